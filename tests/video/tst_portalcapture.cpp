// Screen capture on a Wayland desktop: the ScreenCast portal client against a
// stand-in portal (screencastportal.py) on a private session bus, handing out
// a real PipeWire video node for each session (GStreamer's test pattern
// through pipewiresink) from a real pipewire + wireplumber.

#include "core/settings.h"
#include "mediafile.h"
#include "recorderwait.h"
#include "support/isolatedenvironment.h"
#include "video/pipewirestream.h"
#include "video/portalscreencast.h"
#include "video/screencaptureaccess.h"
#include "video/screencapturetargetstore.h"
#include "video/videorecorder.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <spa/buffer/meta.h>
#include <spa/param/video/raw.h>

#include <csignal>
#include <cstddef>
#include <memory>
#include <sys/prctl.h>
#include <vector>

using namespace sorv;
using namespace sorv::test;

namespace {

constexpr QSize kPicture(320, 240);

// A desktop session of our own: its bus, PipeWire with its session manager
// and the stand-in portal.
class ScreenCastDesktop {
public:
    ScreenCastDesktop()
    {
        for (const char* tool :
             {"dbus-daemon", "pipewire", "wireplumber", "gst-launch-1.0", "pw-dump"})
            if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty()) {
                error = QStringLiteral("%1 is not installed").arg(QLatin1String(tool));
                return;
            }
        const QString dir = m_dir.path();
        m_env = QProcessEnvironment::systemEnvironment();
        m_env.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir);
        m_env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                     QStringLiteral("unix:path=") + dir + QStringLiteral("/bus"));
        // Our own process talks to the same bus and PipeWire.
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(dir));
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_env.value("DBUS_SESSION_BUS_ADDRESS").toUtf8());
        const auto exists = [&](const char* name) {
            return QTest::qWaitFor([&] { return QFile::exists(m_dir.filePath(name)); }, 5000);
        };
        if (!start({QStringLiteral("dbus-daemon"), QStringLiteral("--session"),
                    QStringLiteral("--nofork"),
                    QStringLiteral("--address=unix:path=") + dir + QStringLiteral("/bus")}) ||
            !exists("bus") || !start({QStringLiteral("pipewire")}) || !exists("pipewire-0") ||
            !start({QStringLiteral("wireplumber")}) || !startPortal())
            return;
        running = true;
    }

    // The stand-in portal (again), without any consent it gave before.
    bool startPortal()
    {
        QFile::remove(m_dir.filePath(QStringLiteral("calls.log")));
        setBehaviour(QStringLiteral("share"));
        m_portal = start({QStringLiteral("/usr/bin/python3"), QFINDTESTDATA("screencastportal.py"),
                          m_dir.filePath("format"), m_dir.filePath("behaviour"),
                          m_dir.filePath("calls.log")});
        return m_portal && QTest::qWaitFor([] { return portalRegistered(); }, 10000);
    }
    bool stopPortal()
    {
        if (m_portal)
            m_portal->kill();
        return QTest::qWaitFor([] { return !portalRegistered(); }, 5000);
    }

    // What the portal does at the next Start: share, cancel, silent;
    // and the shared pattern's pixel format.
    void setBehaviour(const QString& behaviour, const QString& format = QStringLiteral("BGRx"))
    {
        write(QStringLiteral("behaviour"), behaviour);
        write(QStringLiteral("format"), format);
    }

    std::vector<QJsonObject> calls(const QString& name) const
    {
        std::vector<QJsonObject> out;
        QFile f(m_dir.filePath(QStringLiteral("calls.log")));
        if (f.open(QIODevice::ReadOnly))
            for (const QByteArray& line : f.readAll().split('\n'))
                if (const QJsonObject o = QJsonDocument::fromJson(line).object();
                    o.value(QStringLiteral("call")).toString() == name)
                    out.push_back(o);
        return out;
    }

    bool running = false;
    QString error;

private:
    static bool portalRegistered()
    {
        return QDBusConnection::sessionBus().interface()->isServiceRegistered(
            PortalScreenCast::serviceName());
    }

    void write(const QString& name, const QString& text) const
    {
        QFile f(m_dir.filePath(name));
        if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            f.write(text.toUtf8());
    }

    QProcess* start(QStringList command)
    {
        auto p = std::make_unique<QProcess>();
        p->setProcessEnvironment(m_env);
        p->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        p->setStandardOutputFile(QProcess::nullDevice());
        p->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        const QString program = command.takeFirst();
        p->start(program, command);
        if (!p->waitForStarted(5000)) {
            error = program + QStringLiteral(" did not start");
            return nullptr;
        }
        m_processes.push_back(std::move(p));
        return m_processes.back().get();
    }

    QTemporaryDir m_dir;
    QProcessEnvironment m_env;
    std::vector<std::unique_ptr<QProcess>> m_processes; // stopped in reverse on destruction
    QProcess* m_portal = nullptr;

public:
    ~ScreenCastDesktop()
    {
        for (auto it = m_processes.rbegin(); it != m_processes.rend(); ++it) {
            (*it)->terminate();
            (*it)->waitForFinished(3000);
        }
    }
};

// The SMPTE pattern's seven bars, left to right, get darker: white, yellow,
// cyan, green, magenta, red, blue. Red and blue swapped, or a picture out of
// place, breaks the order.
QString patternProblem(const QString& path)
{
    std::vector<QRect> bars;
    const int barWidth = kPicture.width() / 7;
    for (int i = 0; i < 7; ++i)
        bars.emplace_back(i * barWidth + barWidth / 4, 20, barWidth / 2, 100);
    const MediaFile m = MediaFile::read(path, true, {}, 0.0, bars);
    if (!m.opened || m.videoSize != kPicture || m.moreLuma.size() < 5)
        return QStringLiteral("%1: %2×%3, %4 frames")
            .arg(m.error)
            .arg(m.videoSize.width())
            .arg(m.videoSize.height())
            .arg(m.moreLuma.size());
    const std::vector<double>& luma = m.moreLuma.back();
    for (size_t i = 1; i < luma.size(); ++i)
        if (luma[i] > luma[i - 1] - 5)
            return QStringLiteral("bar %1 (luma %2) is not darker than bar %3 (luma %4)")
                .arg(i)
                .arg(luma[i])
                .arg(i - 1)
                .arg(luma[i - 1]);
    return {};
}

} // namespace

class TestPortalCapture : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { m_desktop.reset(); }
    void init()
    {
        Settings::remove(PortalScreenCast::restoreTokenKey(PortalScreenCast::Source::Monitor));
    }

    void recordsTheSharedScreenAskingOnce();
    void desktopStopsSharing();
    void staleConsentIsDroppedAndAskedAgain();
    void startFailures_data();
    void startFailures();
    void drawsThePointerFromMetadata();

private:
    IsolatedEnvironment m_isolated;
    std::unique_ptr<ScreenCastDesktop> m_desktop;
};

void TestPortalCapture::initTestCase()
{
    qputenv("SORVELANDRIX_SCREEN_CAPTURE", "portal");
    m_desktop = std::make_unique<ScreenCastDesktop>();
    if (!m_desktop->running)
        QSKIP(qPrintable(QStringLiteral("no screen-cast desktop: ") + m_desktop->error));
}

void TestPortalCapture::recordsTheSharedScreenAskingOnce()
{
    // What the picker and `targets` offer on Wayland.
    ScreenCaptureTargetStore store;
    QSignalSpy reloaded(&store, &ScreenCaptureTargetStore::reloaded);
    store.reload();
    QVERIFY(reloaded.wait());
    QCOMPARE(store.options(),
             (QList<ScreenCaptureTargetOption>{ScreenCaptureTargetOption::portalMonitor(),
                                               ScreenCaptureTargetOption::portalWindow()}));
    QVERIFY(!screenCapturePreflight());

    // The first recording (from the command line: no window) asks; the
    // second (from a window) sends the consent back and does not. The second
    // pattern comes as RGBx, from a desktop that sends the pointer only as
    // metadata.
    for (const QString& format : {QStringLiteral("BGRx"), QStringLiteral("RGBx")}) {
        const bool second = format == QLatin1String("RGBx");
        m_desktop->setBehaviour(
            second ? QStringLiteral("metadata-cursor") : QStringLiteral("share"), format);
        if (second)
            PortalScreenCast::setParentWindow([] { return QStringLiteral("x11:4a00007"); });
        VideoRecorder recorder;
        const QString path = m_isolated.path(format + QStringLiteral(".mp4"));
        const auto error = startAndWait(
            recorder, path, *ScreenCaptureTargetOption::fromID(QStringLiteral("portal:monitor")));
        QVERIFY2(!error, qPrintable(error ? error->description() : QString()));
        QTRY_VERIFY2_WITH_TIMEOUT(recorder.statistics().framesWritten >= 10,
                                  qPrintable(QStringLiteral("%1 frames came, %2 written")
                                                 .arg(recorder.statistics().framesDue)
                                                 .arg(recorder.statistics().framesWritten)),
                                  20000);
        const auto result = stopAndWait(recorder);
        QVERIFY2(!result.error, qPrintable(result.error ? result.error->description() : ""));
        const QString problem = patternProblem(path);
        QVERIFY2(problem.isEmpty(), qPrintable(format + QStringLiteral(": ") + problem));
        QVERIFY(screenCapturePreflight());
    }
    PortalScreenCast::setParentWindow({});
    const auto starts = m_desktop->calls(QStringLiteral("Start"));
    QCOMPARE(starts.size(), size_t(2));
    QCOMPARE(starts[0].value(QStringLiteral("parent_window")).toString(), QString());
    QCOMPARE(starts[1].value(QStringLiteral("parent_window")).toString(),
             QStringLiteral("x11:4a00007"));
    const auto selects = m_desktop->calls(QStringLiteral("SelectSources"));
    QCOMPARE(selects.size(), size_t(2));
    QVERIFY(!selects[0].contains(QStringLiteral("restore_token")));
    QCOMPARE(selects[0].value(QStringLiteral("persist_mode")).toInt(), 2);
    QCOMPARE(selects[0].value(QStringLiteral("types")).toInt(), 1);
    QCOMPARE(selects[0].value(QStringLiteral("cursor_mode")).toInt(), 2);
    QCOMPARE(selects[1].value(QStringLiteral("cursor_mode")).toInt(), 4);
    QCOMPARE(selects[1].value(QStringLiteral("restore_token")).toString(),
             QStringLiteral("token-1"));
    QCOMPARE(m_desktop->calls(QStringLiteral("dialog")).size(), size_t(1));
    // Each session was closed once its recording ended.
    QCOMPARE(m_desktop->calls(QStringLiteral("Close")).size(), size_t(2));
}

void TestPortalCapture::desktopStopsSharing()
{
    m_desktop->setBehaviour(QStringLiteral("share"));
    VideoRecorder recorder;
    QSignalSpy ended(&recorder, &VideoCapture::captureEnded);
    const QString path = m_isolated.path(QStringLiteral("closed.mp4"));
    const auto error = startAndWait(
        recorder, path, *ScreenCaptureTargetOption::fromID(QStringLiteral("portal:window")));
    QVERIFY2(!error, qPrintable(error ? error->description() : QString()));
    QCOMPARE(m_desktop->calls(QStringLiteral("SelectSources")).back().value("types").toInt(), 2);
    QTRY_VERIFY_WITH_TIMEOUT(recorder.statistics().framesWritten >= 5, 20000);
    // The desktop's "Stop sharing".
    const QDBusMessage stop = QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
        PortalScreenCast::serviceName(), PortalScreenCast::objectPath(),
        QStringLiteral("org.sorvelandrix.Test"), QStringLiteral("StopSharing")));
    QCOMPARE(stop.type(), QDBusMessage::ReplyMessage);
    QVERIFY(ended.wait(10000));
    // What the recording controller does with it: the file is finished.
    const auto result = stopAndWait(recorder);
    QVERIFY2(!result.error, qPrintable(result.error ? result.error->description() : ""));
    QCOMPARE(patternProblem(path), QString());
}

void TestPortalCapture::staleConsentIsDroppedAndAskedAgain()
{
    const QString key = PortalScreenCast::restoreTokenKey(PortalScreenCast::Source::Monitor);
    Settings::setValue(key, QStringLiteral("revoked-long-ago"));
    m_desktop->setBehaviour(QStringLiteral("share"));
    const auto dialogsBefore = m_desktop->calls(QStringLiteral("dialog")).size();
    VideoRecorder recorder;
    const auto error =
        startAndWait(recorder, m_isolated.path(QStringLiteral("stale.mp4")),
                     *ScreenCaptureTargetOption::fromID(QStringLiteral("portal:monitor")));
    QVERIFY2(!error, qPrintable(error ? error->description() : QString()));
    QVERIFY(!stopAndWait(recorder).error);
    const auto selects = m_desktop->calls(QStringLiteral("SelectSources"));
    QVERIFY(selects.size() >= 2);
    QCOMPARE(selects[selects.size() - 2].value(QStringLiteral("restore_token")).toString(),
             QStringLiteral("revoked-long-ago"));
    QVERIFY(!selects.back().contains(QStringLiteral("restore_token")));
    QCOMPARE(m_desktop->calls(QStringLiteral("dialog")).size(), dialogsBefore + 1);
    QVERIFY(Settings::value(key).toString().startsWith(QLatin1String("token-")));
}

void TestPortalCapture::startFailures_data()
{
    QTest::addColumn<QString>("behaviour");
    QTest::addColumn<QString>("message");
    QTest::newRow("the user cancelled the dialog")
        << "cancel" << QStringLiteral("Screen sharing was cancelled.");
    QTest::newRow("the portal never answers")
        << "silent"
        << QStringLiteral("Could not start screen capture: The desktop's screen-sharing portal "
                          "did not answer Start in time.");
    QTest::newRow("no portal at all")
        << "absent"
        << QStringLiteral("Screen sharing needs xdg-desktop-portal and a portal for your "
                          "desktop (GNOME, KDE or wlroots).");
}

void TestPortalCapture::startFailures()
{
    QFETCH(QString, behaviour);
    QFETCH(QString, message);
    qputenv("SORVELANDRIX_PORTAL_TIMEOUT_MS", "1500");
    if (behaviour == QLatin1String("absent"))
        QVERIFY(m_desktop->stopPortal());
    else
        m_desktop->setBehaviour(behaviour);
    const QString path = m_isolated.path(behaviour + QStringLiteral(".mp4"));
    {
        VideoRecorder recorder;
        const auto error = startAndWait(
            recorder, path, *ScreenCaptureTargetOption::fromID(QStringLiteral("portal:monitor")));
        QVERIFY(error);
        QCOMPARE(error->description(), message);
        QCOMPARE(recorder.state(), VideoRecorderState::idle());
    }
    qunsetenv("SORVELANDRIX_PORTAL_TIMEOUT_MS");
    QVERIFY(!QFile::exists(path));
    QVERIFY(!PortalScreenCast::hasRestoreToken(PortalScreenCast::Source::Monitor));
    if (behaviour == QLatin1String("absent")) {
        bool available = true;
        bool answered = false;
        probeScreenCaptureAvailable(this, [&](bool a) {
            available = a;
            answered = true;
        });
        QTRY_VERIFY(answered);
        QVERIFY(!available);
        QCOMPARE(screenCaptureAdviceText(), message);
        QVERIFY(m_desktop->startPortal());
    }
}

void TestPortalCapture::drawsThePointerFromMetadata()
{
    // One buffer's metadata: a 2×2 opaque red pointer (RGBA), hotspot 1,1.
    struct Meta {
        spa_meta_cursor cursor;
        spa_meta_bitmap bitmap;
        std::array<std::uint8_t, 16> pixels;
    } meta{};
    meta.cursor = {1, 0, {5, 3}, {1, 1}, offsetof(Meta, bitmap)};
    meta.bitmap = {SPA_VIDEO_FORMAT_RGBA, {2, 2}, 8, sizeof(spa_meta_bitmap)};
    for (size_t i = 0; i < meta.pixels.size(); i += 4)
        meta.pixels[i] = meta.pixels[i + 3] = 255;
    CursorOverlay overlay;
    std::vector<std::uint8_t> picture;
    const auto drawn = [&](const spa_meta_cursor& cursor) {
        overlay.update(cursor, sizeof meta);
        picture.assign(8 * 8 * 4, 0);
        overlay.draw(picture.data(), QSize(8, 8), 8 * 4);
        QString red; // the bgr0 picture's red pixels, "x,y "
        for (int i = 0; i < 64; ++i)
            if (picture[size_t(i) * 4 + 2] == 255 && picture[size_t(i) * 4] == 0)
                red += QStringLiteral("%1,%2 ").arg(i % 8).arg(i / 8);
        return red;
    };
    QCOMPARE(drawn(meta.cursor), QStringLiteral("4,2 5,2 4,3 5,3 "));
    // Later buffers move it without a bitmap, or say nothing new: it is kept.
    QCOMPARE(drawn({1, 0, {1, 7}, {0, 0}, 0}), QStringLiteral("0,6 1,6 0,7 1,7 "));
    QCOMPARE(drawn({0, 0, {4, 4}, {0, 0}, 0}), QStringLiteral("0,6 1,6 0,7 1,7 "));
    // A bitmap without image hides it; one larger than its metadata is refused.
    meta.bitmap.offset = 0;
    QCOMPARE(drawn(meta.cursor), QString());
    meta.bitmap = {SPA_VIDEO_FORMAT_RGBA, {2, 3}, 8, sizeof(spa_meta_bitmap)};
    QCOMPARE(drawn(meta.cursor), QString());
}

QTEST_GUILESS_MAIN(TestPortalCapture)
#include "tst_portalcapture.moc"
