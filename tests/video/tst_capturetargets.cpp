// Capture targets on a real X server (Xvfb + openbox): the list the picker
// shows, the fallback of a vanished selection, and how a window or an
// application target is grabbed as it moves and is covered.

#include "support/jsonlines.h"
#include "support/xvfbsession.h"
#include "testwindows.h"
#include "video/capturearea.h"
#include "video/framepool.h"
#include "video/screencapturetargetstore.h"
#include "video/x11screengrabber.h"

#include <QFile>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <unistd.h>

using namespace sorv;
using namespace sorv::test;
using Kind = ScreenCaptureTargetOption::Kind;

Q_DECLARE_METATYPE(sorv::ShareableContent)

namespace {

QStringList describe(const QList<ScreenCaptureTargetOption>& options)
{
    QStringList out;
    for (const ScreenCaptureTargetOption& o : options)
        out << QStringLiteral("%1 | %2 | %3 | %4").arg(o.id, o.title, o.subtitle, o.kind.name());
    return out;
}

// The RandR output id xrandr reports for an output name.
quint32 outputId(const XvfbSession& x, const QString& name)
{
    QString out;
    if (!x.run(QStringLiteral("xrandr"), {QStringLiteral("--verbose")}, &out))
        return 0;
    bool inOutput = false;
    for (const QString& line : out.split(QLatin1Char('\n'))) {
        if (!line.startsWith(QLatin1Char('\t')) && !line.startsWith(QLatin1Char(' ')))
            inOutput = line.startsWith(name + QLatin1Char(' '));
        if (inOutput && line.trimmed().startsWith(QLatin1String("Identifier:")))
            return line.trimmed().mid(11).trimmed().toUInt(nullptr, 16);
    }
    return 0;
}

// A grab of a capture area, kept as plain pixels.
struct Picture {
    QSize size;
    QRect destination;
    std::vector<std::uint32_t> pixels; // 0x00RRGGBB

    std::uint32_t at(int x, int y) const
    {
        return pixels[size_t(y) * size_t(size.width()) + size_t(x)] & 0xffffff;
    }
};

Picture grab(X11ScreenGrabber& grabber)
{
    FramePool pool;
    Picture p;
    const int slot = pool.tryAcquire();
    X11ScreenGrabber::Frame frame;
    QString why;
    if (!grabber.grab(pool, slot, &frame, &why)) {
        qWarning("grab failed: %s", qPrintable(why));
        return p;
    }
    p.size = frame.size;
    p.destination = frame.destination;
    p.pixels.resize(size_t(frame.size.width()) * size_t(frame.size.height()));
    for (int y = 0; y < frame.size.height(); ++y)
        std::memcpy(p.pixels.data() + size_t(y) * size_t(frame.size.width()),
                    pool.slot(slot).data + size_t(y) * size_t(frame.stride),
                    size_t(frame.size.width()) * 4);
    return p;
}

} // namespace

class TestCaptureTargets : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void listsDisplaysApplicationsAndWindows();
    void cliListsTargetsByGroup();
    void vanishedSelectionFallsBackToMainDisplay();
    void withoutDisplayReloadFailsAndKeepsOptions();
    void applicationGoesToDisplayWithMostWindows_data();
    void applicationGoesToDisplayWithMostWindows();
    void letterboxKeepsAspectOnEvenPixels_data();
    void letterboxKeepsAspectOnEvenPixels();
    void windowTargetFollowsMovesAndHidesWhatCoversIt();
    void applicationTargetShowsOnlyItsWindows();

private:
    // Opens a window of this process, which the list must never show.
    void openOwnWindow();
    void warpPointer(int x, int y);

    std::unique_ptr<XvfbSession> m_x;
    xcb_connection_t* m_own = nullptr;
};

void TestCaptureTargets::initTestCase()
{
    if (!XvfbSession::toolsAvailable())
        QSKIP("Xvfb and openbox are needed");
    m_x = std::make_unique<XvfbSession>(XvfbSession::Options{QSize(1280, 720), true});
    QVERIFY2(m_x->isRunning(), qPrintable(m_x->errorString()));
    // Two monitors: the left takes over the output, the right has none.
    QVERIFY(
        m_x->setMonitor(QStringLiteral("LEFT-1"), QRect(0, 0, 640, 720), QStringLiteral("screen")));
    QVERIFY(m_x->setMonitor(QStringLiteral("RIGHT-1"), QRect(640, 0, 640, 720),
                            QStringLiteral("none")));
    openOwnWindow();
    warpPointer(2, 2);
}

void TestCaptureTargets::cleanupTestCase()
{
    if (m_own)
        xcb_disconnect(m_own);
    m_x.reset();
}

void TestCaptureTargets::openOwnWindow()
{
    m_own = xcb_connect(nullptr, nullptr);
    QVERIFY(!xcb_connection_has_error(m_own));
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_own)).data;
    const xcb_window_t w = xcb_generate_id(m_own);
    xcb_create_window(m_own, XCB_COPY_FROM_PARENT, w, screen->root, 900, 400, 200, 100, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
    const auto atom = [&](const char* name) {
        auto* r = xcb_intern_atom_reply(
            m_own, xcb_intern_atom(m_own, 0, uint16_t(std::strlen(name)), name), nullptr);
        const xcb_atom_t a = r->atom;
        std::free(r);
        return a;
    };
    const char wmClass[] = "ownapp\0OwnApp";
    xcb_change_property(m_own, XCB_PROP_MODE_REPLACE, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                        sizeof wmClass, wmClass);
    const char title[] = "Recorder window";
    xcb_change_property(m_own, XCB_PROP_MODE_REPLACE, w, atom("_NET_WM_NAME"), atom("UTF8_STRING"),
                        8, sizeof title - 1, title);
    const auto pid = std::uint32_t(::getpid());
    xcb_change_property(m_own, XCB_PROP_MODE_REPLACE, w, atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 32,
                        1, &pid);
    xcb_map_window(m_own, w);
    xcb_flush(m_own);
    const auto listed = [&] {
        ShareableContentError error;
        const auto content = queryShareableContent(&error);
        return content && content->window(w);
    };
    // A window manager that is still starting up may miss the first map.
    if (!QTest::qWaitFor(listed, 5000)) {
        xcb_unmap_window(m_own, w);
        xcb_map_window(m_own, w);
        xcb_flush(m_own);
        QTRY_VERIFY_WITH_TIMEOUT(listed(), 10000);
    }
}

void TestCaptureTargets::warpPointer(int x, int y)
{
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_own)).data;
    xcb_warp_pointer(m_own, XCB_NONE, screen->root, 0, 0, 0, 0, int16_t(x), int16_t(y));
    std::free(xcb_get_input_focus_reply(m_own, xcb_get_input_focus(m_own), nullptr));
}

void TestCaptureTargets::listsDisplaysApplicationsAndWindows()
{
    TestWindows windows({
        QStringLiteral("Meetly|40|60|260|160|Standup notes"),
        QStringLiteral("meetly|340|60|260|160|Budget 2025"),
        QStringLiteral("Meetly|40|300|260|160|"),
        QStringLiteral("Browser|700|60|260|160|Café menu"),
        QStringLiteral("Browser|700|300|260|160|wm:Old style"),
        QStringLiteral("Notes|340|300|200|120|Hidden notes"),
        // Another copy of our own application: hidden with it.
        QStringLiteral("OwnApp|980|60|200|120|Second recorder"),
    });
    QVERIFY(windows.isReady());
    QCOMPARE(windows.command(QStringLiteral("iconify 5")), QStringLiteral("ok"));

    ScreenCaptureTargetStore store;
    QSignalSpy reloaded(&store, &ScreenCaptureTargetStore::reloaded);
    store.reload();
    QVERIFY(store.isLoading());
    QVERIFY(reloaded.wait(10000));
    QVERIFY(!store.isLoading());
    QVERIFY(store.loadError().isNull());

    const quint32 left = outputId(*m_x, QStringLiteral("screen"));
    QVERIFY(left != 0);
    const quint32 right = displayIDForMonitorName(QStringLiteral("RIGHT-1"));
    const auto& id = windows.ids;
    const auto window = [&](int i) { return QString::number(id[size_t(i)]); };
    const QStringList expected{
        QStringLiteral("display:main | Main display | Full screen (default) | mainDisplay"),
        QStringLiteral("display:%1 | LEFT-1 | 640×720 | display").arg(left),
        QStringLiteral("display:%1 | RIGHT-1 | 640×720 | display").arg(right),
        QStringLiteral("app:Browser | Browser | Application | application"),
        // Equal but for case: next to each other, in the order found.
        QStringLiteral("app:Meetly | Meetly | Application | application"),
        QStringLiteral("app:meetly | meetly | Application | application"),
        QStringLiteral("window:%1 | Budget 2025 | meetly | window").arg(window(1)),
        QStringLiteral("window:%1 | Café menu | Browser | window").arg(window(3)),
        QStringLiteral("window:%1 | Old style | Browser | window").arg(window(4)),
        QStringLiteral("window:%1 | Standup notes | Meetly | window").arg(window(0)),
        QStringLiteral("window:%1 | Untitled window | Meetly | window").arg(window(2)),
    };
    QCOMPARE(describe(store.options()), expected);

    // `record --target ID` takes each listed id back to the same target.
    for (const ScreenCaptureTargetOption& o : store.options()) {
        const auto parsed = ScreenCaptureTargetOption::fromID(o.id);
        QVERIFY2(parsed && parsed->kind == o.kind && parsed->id == o.id, qPrintable(o.id));
    }
}

void TestCaptureTargets::cliListsTargetsByGroup()
{
    const QString cli = buildDirectory() + QStringLiteral("/src/cli/sorvelandrix");
    if (!QFile::exists(cli))
        QSKIP("the CLI is not built in this tree");
    TestWindows windows({QStringLiteral("Meetly|40|60|260|160|Standup notes")});
    QVERIFY(windows.isReady());
    const auto run = [&](const QStringList& args, QString* out, QString* err) {
        QProcess p;
        p.start(cli, args);
        if (!p.waitForFinished(15000))
            return -1;
        *out = QString::fromUtf8(p.readAllStandardOutput());
        *err = QString::fromUtf8(p.readAllStandardError());
        return p.exitCode();
    };
    QString out, err;
    QCOMPARE(run({QStringLiteral("targets")}, &out, &err), 0);
    const QStringList lines = out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    const QStringList headings = lines.filter(QRegularExpression(QStringLiteral("^\\S")));
    QCOMPARE(headings, (QStringList{QStringLiteral("Displays"), QStringLiteral("Applications"),
                                    QStringLiteral("Windows")}));
    const auto row = lines.filter(QStringLiteral("window:%1").arg(windows.ids[0]));
    QCOMPARE(row.size(), 1);
    QCOMPARE(row[0].simplified(),
             QStringLiteral("window:%1 Standup notes Meetly").arg(windows.ids[0]));

    QCOMPARE(run({QStringLiteral("--json"), QStringLiteral("targets")}, &out, &err), 0);
    const QList<QJsonObject> objects = jsonLines(out);
    QVERIFY(objects.size() >= 4);
    QCOMPARE(objects[0],
             (QJsonObject{{QStringLiteral("event"), QStringLiteral("target")},
                          {QStringLiteral("id"), QStringLiteral("display:main")},
                          {QStringLiteral("title"), QStringLiteral("Main display")},
                          {QStringLiteral("subtitle"), QStringLiteral("Full screen (default)")},
                          {QStringLiteral("kind"), QStringLiteral("mainDisplay")}}));
    QVERIFY(std::any_of(objects.begin(), objects.end(), [](const QJsonObject& o) {
        return o[QStringLiteral("id")] == QStringLiteral("app:Meetly") &&
               o[QStringLiteral("kind")] == QStringLiteral("application");
    }));
}

void TestCaptureTargets::vanishedSelectionFallsBackToMainDisplay()
{
    ScreenCaptureTargetStore store;
    // Before any reload there is only the main display, and it is selected.
    QCOMPARE(store.options(), QList{ScreenCaptureTargetOption::mainDisplay()});
    QCOMPARE(store.selectedOption(), ScreenCaptureTargetOption::mainDisplay());

    QSignalSpy reloaded(&store, &ScreenCaptureTargetStore::reloaded);
    auto windows =
        std::make_unique<TestWindows>(QStringList{QStringLiteral("Meetly|40|60|260|160|Call")});
    QVERIFY(windows->isReady());
    const QString id = QStringLiteral("window:%1").arg(windows->ids[0]);
    store.reload();
    QVERIFY(reloaded.wait(10000));
    store.setSelectedID(id);
    QCOMPARE(store.selectedOption().title, QStringLiteral("Call"));

    windows.reset(); // the window closes
    store.reload();
    QVERIFY(reloaded.wait(10000));
    QCOMPARE(store.selectedID(), id);
    QCOMPARE(store.selectedOption(), ScreenCaptureTargetOption::mainDisplay());
}

void TestCaptureTargets::withoutDisplayReloadFailsAndKeepsOptions()
{
    ScreenCaptureTargetStore store;
    QSignalSpy reloaded(&store, &ScreenCaptureTargetStore::reloaded);
    store.reload();
    QVERIFY(reloaded.wait(10000));
    const auto options = store.options();
    QVERIFY(options.size() > 1);

    const QByteArray display = qgetenv("DISPLAY");
    qunsetenv("DISPLAY");
    store.reload();
    const bool answered = reloaded.wait(10000);
    qputenv("DISPLAY", display);
    QVERIFY(answered);
    QCOMPARE(store.loadError(), QStringLiteral("No display found for screen capture."));
    QCOMPARE(store.options(), options);
    QVERIFY(!store.isLoading());
}

void TestCaptureTargets::applicationGoesToDisplayWithMostWindows_data()
{
    QTest::addColumn<ShareableContent>("content");
    QTest::addColumn<int>("expectedDisplay"); // -1: not resolvable

    ShareableContent base;
    base.rootRect = QRect(0, 0, 3000, 1000);
    base.displays = {{11, QStringLiteral("A"), QRect(0, 0, 1000, 1000), false},
                     {12, QStringLiteral("B"), QRect(1000, 0, 1000, 1000), true},
                     {13, QStringLiteral("C"), QRect(2000, 0, 1000, 1000), false}};
    const auto window = [](std::uint32_t id, const char* app, QRect frame) {
        WindowInfo w;
        w.id = id;
        w.applicationName = QString::fromLatin1(app);
        w.frame = frame;
        return w;
    };

    ShareableContent most = base;
    most.windows = {window(1, "Chat", QRect(100, 100, 300, 300)),
                    window(2, "Chat", QRect(2100, 100, 300, 300)),
                    window(3, "Chat", QRect(2500, 500, 300, 300)),
                    window(4, "Other", QRect(1100, 100, 300, 300)),
                    window(5, "Other", QRect(1500, 100, 300, 300))};
    QTest::newRow("most windows on the third display") << most << 13;

    ShareableContent tie = base;
    tie.windows = {window(1, "Chat", QRect(100, 100, 300, 300)),
                   window(2, "Chat", QRect(1100, 100, 300, 300))};
    QTest::newRow("a tie goes to the main display") << tie << 12;

    // A window mostly on A, though it reaches into B.
    ShareableContent straddling = base;
    straddling.windows = {window(1, "Chat", QRect(500, 100, 600, 300))};
    QTest::newRow("by the centre of the window") << straddling << 11;

    ShareableContent none = base;
    none.windows = {window(4, "Other", QRect(1100, 100, 300, 300))};
    QTest::newRow("no window of the application") << none << -1;
}

void TestCaptureTargets::applicationGoesToDisplayWithMostWindows()
{
    QFETCH(ShareableContent, content);
    QFETCH(int, expectedDisplay);
    const auto area = resolveCaptureArea(content, Kind::application(QStringLiteral("Chat")));
    if (expectedDisplay < 0) {
        QVERIFY(!area);
        return;
    }
    QVERIFY(area);
    QCOMPARE(area->mode, CaptureArea::Mode::Application);
    QCOMPARE(area->rect, content.display(std::uint32_t(expectedDisplay))->frame);
    QCOMPARE(area->applicationName, QStringLiteral("Chat"));
}

void TestCaptureTargets::letterboxKeepsAspectOnEvenPixels_data()
{
    QTest::addColumn<QSize>("content");
    QTest::addColumn<QSize>("frame");
    QTest::addColumn<QRect>("expected");
    QTest::newRow("same size") << QSize(640, 480) << QSize(640, 480) << QRect(0, 0, 640, 480);
    QTest::newRow("wider: bands above and below")
        << QSize(1280, 480) << QSize(640, 480) << QRect(0, 120, 640, 240);
    QTest::newRow("taller: bands left and right")
        << QSize(320, 960) << QSize(640, 480) << QRect(240, 0, 160, 480);
    QTest::newRow("smaller is scaled up")
        << QSize(320, 240) << QSize(640, 480) << QRect(0, 0, 640, 480);
    QTest::newRow("odd result rounded to even")
        << QSize(1001, 300) << QSize(640, 480) << QRect(0, 144, 640, 192);
}

void TestCaptureTargets::letterboxKeepsAspectOnEvenPixels()
{
    QFETCH(QSize, content);
    QFETCH(QSize, frame);
    QFETCH(QRect, expected);
    QCOMPARE(letterboxRect(content, frame), expected);
}

void TestCaptureTargets::windowTargetFollowsMovesAndHidesWhatCoversIt()
{
    TestWindows windows({QStringLiteral("Mover|100|100|320|240|Mover"),
                         QStringLiteral("Cover|900|500|200|150|Cover")});
    QVERIFY(windows.isReady());
    QCOMPARE(windows.command(QStringLiteral("fill 0 ff0000")), QStringLiteral("ok"));
    QCOMPARE(windows.command(QStringLiteral("fill 1 00ff00")), QStringLiteral("ok"));

    ShareableContentError error;
    const auto content = queryShareableContent(&error);
    QVERIFY(content);
    const WindowInfo* mover = content->window(windows.ids[0]);
    QVERIFY(mover);
    const auto area = resolveCaptureArea(*content, Kind::window(windows.ids[0]));
    QVERIFY(area);
    QCOMPARE(area->mode, CaptureArea::Mode::Window);
    const QSize videoSize(mover->frame.width() & ~1, mover->frame.height() & ~1);
    QCOMPARE(area->videoSize, videoSize);
    QString why;
    auto grabber = X11ScreenGrabber::create(*area, &why);
    QVERIFY2(grabber, qPrintable(why));

    // The client area sits at the bottom of the frame (the title bar on top).
    const QPoint inside(videoSize.width() / 2, videoSize.height() - 40);
    Picture p = grab(*grabber);

    QCOMPARE(p.size, videoSize);
    QCOMPARE(p.destination, QRect(QPoint(0, 0), videoSize));
    QCOMPARE(p.at(inside.x(), inside.y()), 0xff0000u);

    // Moved: the same picture from its new place.
    const QRect moved = TestWindows::frameFrom(windows.command(QStringLiteral("move 0 700 300")));
    QVERIFY(moved.x() >= 600);
    p = grab(*grabber);

    QCOMPARE(p.size, videoSize);
    QCOMPARE(p.at(inside.x(), inside.y()), 0xff0000u);
    QCOMPARE(p.at(10, videoSize.height() - 10), 0xff0000u);

    // Covered on its right half: that half is black, not the other window.
    windows.command(
        QStringLiteral("move 1 %1 %2").arg(moved.x() + moved.width() / 2).arg(moved.y() + 20));
    p = grab(*grabber);
    QCOMPARE(p.at(videoSize.width() - 20, 100), 0u);
    QCOMPARE(p.at(20, 100), 0xff0000u);
    windows.command(QStringLiteral("move 1 20 500"));

    // The pointer is drawn in.
    const QPoint pointer = moved.topLeft() + QPoint(40, moved.height() - 60);
    warpPointer(pointer.x(), pointer.y());
    p = grab(*grabber);
    int changed = 0;
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 12; ++x)
            changed += p.at(40 + x, moved.height() - 60 + y) != 0xff0000u ? 1 : 0;
    QVERIFY2(changed > 10, qPrintable(QString::number(changed)));
    warpPointer(2, 2);

    // Resized: the video keeps its first size and the window is fitted in.
    windows.command(QStringLiteral("move 0 100 100"));
    const QRect wide = TestWindows::frameFrom(windows.command(QStringLiteral("resize 0 640 240")));
    QVERIFY(wide.width() > moved.width());
    p = grab(*grabber);
    const QRect fitted = letterboxRect(QSize(wide.width() & ~1, wide.height() & ~1), videoSize);
    QCOMPARE(p.destination, fitted);
    QVERIFY(fitted.y() > 0);
    QCOMPARE(p.size, QSize(wide.width() & ~1, wide.height() & ~1));
}

void TestCaptureTargets::applicationTargetShowsOnlyItsWindows()
{
    TestWindows windows({QStringLiteral("Chat|40|40|260|160|Chat one"),
                         QStringLiteral("Chat|340|40|260|160|Chat two"),
                         QStringLiteral("Editor|40|170|200|200|Editor")});
    QVERIFY(windows.isReady());
    QCOMPARE(windows.command(QStringLiteral("fill 0 0000ff")), QStringLiteral("ok"));
    QCOMPARE(windows.command(QStringLiteral("fill 1 0000ff")), QStringLiteral("ok"));
    QCOMPARE(windows.command(QStringLiteral("fill 2 ffff00")), QStringLiteral("ok"));

    ShareableContentError error;
    const auto content = queryShareableContent(&error);
    QVERIFY(content);
    const auto area = resolveCaptureArea(*content, Kind::application(QStringLiteral("Chat")));
    QVERIFY(area);
    QCOMPARE(area->rect, QRect(0, 0, 640, 720)); // LEFT-1, which holds both
    QString why;
    auto grabber = X11ScreenGrabber::create(*area, &why);
    QVERIFY2(grabber, qPrintable(why));
    const Picture p = grab(*grabber);
    QCOMPARE(p.size, QSize(640, 720));

    const WindowInfo* one = content->window(windows.ids[0]);
    const WindowInfo* two = content->window(windows.ids[1]);
    const WindowInfo* editor = content->window(windows.ids[2]);
    QVERIFY(one && two && editor);
    const QPoint twoInside = two->frame.bottomRight() - QPoint(20, 20);
    QCOMPARE(p.at(twoInside.x(), twoInside.y()), 0x0000ffu);
    // The editor is not the application's, even where it covers Chat one.
    const QPoint editorInside = editor->frame.bottomRight() - QPoint(20, 20);
    QCOMPARE(p.at(editorInside.x(), editorInside.y()), 0u);
    const QPoint covered = QPoint(editor->frame.x() + 20, one->frame.bottom() - 10);
    QVERIFY(editor->frame.contains(covered));
    QCOMPARE(p.at(covered.x(), covered.y()), 0u);
    const QPoint oneUncovered = QPoint(one->frame.right() - 10, one->frame.bottom() - 10);
    QVERIFY(!editor->frame.contains(oneUncovered));
    QCOMPARE(p.at(oneUncovered.x(), oneUncovered.y()), 0x0000ffu);
    // The desktop around them is black too.
    QCOMPARE(p.at(620, 700), 0u);
}

QTEST_GUILESS_MAIN(TestCaptureTargets)
#include "tst_capturetargets.moc"
