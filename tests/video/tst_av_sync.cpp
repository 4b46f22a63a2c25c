// Video recordings as a user makes them: `sorvelandrix record --video` inside
// a private PulseAudio daemon and a private X server. Windows flash white
// while clicks reach the microphone and the speakers at the same moments; in
// the MP4 each flash and its click must stay together, from the first seconds
// to the end (past a minute with SORV_AV_SYNC_SECONDS=63). How late each stimulus itself arrived
// (the flash on the screen, the click at the source) is measured beside the recorder and taken out.
// What the MP4 holds, codec by codec, is tst_videorecorder's.

#include "clickobserver.h"
#include "mediafile.h"
#include "support/isolatedenvironment.h"
#include "support/jsonlines.h"
#include "support/pulsesandbox.h"
#include "support/toneprobe.h"
#include "support/xvfbsession.h"
#include "testwindows.h"

#include <QDir>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

using namespace sorv::test;

namespace {

constexpr QSize kScreen(640, 360);
constexpr int kRate = 48000;
constexpr int kPeriodMs = 1000;
// The microphone's clicks fall between the speakers' ones.
constexpr double kMicFirstClick = 1.0;
constexpr double kSystemFirstClick = 1.5;
// The targets, checked by bench/av_sync.sh (SORV_AV_SYNC_STRICT=1): a
// loaded machine delays the stimulus itself, so the suite checks only that
// each flash has its own click, the other source's lying half a period away.
constexpr double kMicTolerance = 0.060;
// The mix is clocked by the microphone: system audio may wait up to one
// 4 096-frame buffer in its ring.
constexpr double kSystemTolerance = 0.130;
constexpr double kPairingTolerance = 0.200;

bool strict()
{
    return qEnvironmentVariableIntValue("SORV_AV_SYNC_STRICT") == 1;
}

double allowed(double target)
{
    return strict() ? target : kPairingTolerance;
}

QString cli()
{
    return buildDirectory() + QStringLiteral("/src/cli/sorvelandrix");
}

// 5 ms bursts at 2 kHz, starting at full height, every period from `first`
// on; the microphone's file has a faint noise floor under them, as a real
// microphone does.
bool writeClicks(const QString& path, double seconds, double first, float noise)
{
    SF_INFO info{};
    info.samplerate = kRate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* f = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!f)
        return false;
    std::vector<float> samples(size_t(seconds * kRate));
    QRandomGenerator random(7);
    for (float& s : samples)
        s = noise * float(random.generateDouble() * 2.0 - 1.0);
    for (double t = first; t + 0.01 < seconds; t += kPeriodMs / 1000.0) {
        const auto start = size_t(std::llround(t * kRate));
        for (size_t i = 0; i < size_t(kRate / 200); ++i)
            samples[start + i] = 0.5f * float(std::cos(2.0 * M_PI * 2000.0 * double(i) / kRate));
    }
    const bool ok = sf_writef_float(f, samples.data(), sf_count_t(samples.size())) ==
                    sf_count_t(samples.size());
    sf_close(f);
    return ok;
}

// A window that flashes for one source's clicks, and the moments it did.
struct FlashSource {
    QString name;
    std::unique_ptr<TestWindows> window;
    QRect frame;                        // in root coordinates
    std::unique_ptr<ClickObserver> ear; // where its clicks arrive
    std::vector<std::int64_t> shown;
    double tolerance = 0.0;

    void collect()
    {
        for (const QString& line : window->availableLines()) {
            const QStringList f = line.split(QLatin1Char(' '));
            if (f.size() == 3 && f[0] == QLatin1String("flash"))
                shown.push_back(f[2].toLongLong());
        }
    }
};

// Offsets of one recording: picture minus sound in the file, less the same
// difference between when the stimuli really arrived. Positive: the picture
// is late.
struct Pair {
    double fileTime = 0.0;
    double offset = 0.0;
};

} // namespace

class TestAvSync : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void bothSourcesStayInSync();
    void killedRecordingsAreRepairedAndListed();

private:
    struct Run {
        QString wav;
        QString mp4;
        QString error;
    };
    // Records `seconds` with the command line while both sources click and
    // their windows flash `flashes` times each.
    Run record(double seconds, int flashes, const QStringList& extraArgs);
    // Pairs each flash of `source` in the file with its click.
    std::vector<Pair> pairs(const MediaFile& m, size_t region, FlashSource& source,
                            const std::vector<double>& fileClicks);

    std::unique_ptr<XvfbSession> m_x;
    std::unique_ptr<PulseSandbox> m_sandbox;
    std::unique_ptr<IsolatedEnvironment> m_env;
    FlashSource m_mic;
    FlashSource m_system;
};

void TestAvSync::initTestCase()
{
    if (!XvfbSession::toolsAvailable() || !PulseSandbox::toolsAvailable())
        QSKIP("Xvfb, openbox and the PulseAudio tools are needed");
    if (!QFile::exists(cli()))
        QSKIP("the CLI is not built in this tree");
    m_x = std::make_unique<XvfbSession>(XvfbSession::Options{kScreen, true});
    QVERIFY2(m_x->isRunning(), qPrintable(m_x->errorString()));
    m_mic.name = QStringLiteral("microphone");
    m_mic.tolerance = kMicTolerance;
    m_system.name = QStringLiteral("system audio");
    m_system.tolerance = kSystemTolerance;
    int x = 0;
    for (FlashSource* s : {&m_mic, &m_system}) {
        s->window = std::make_unique<TestWindows>(
            QStringList{QStringLiteral("Flash|%1|0|320|360|%2").arg(x).arg(s->name)});
        QVERIFY(s->window->isReady());
        QCOMPARE(s->window->command(QStringLiteral("fill 0 000000")), QStringLiteral("ok"));
        s->frame = TestWindows::frameFrom(s->window->command(QStringLiteral("move 0 %1 0").arg(x)));
        QVERIFY(!s->frame.isEmpty());
        x += 320;
    }
}

void TestAvSync::cleanupTestCase()
{
    m_mic.ear.reset();
    m_system.ear.reset();
    m_sandbox.reset();
    m_env.reset();
    m_mic.window.reset();
    m_system.window.reset();
    m_x.reset();
}

TestAvSync::Run TestAvSync::record(double seconds, int flashes, const QStringList& extraArgs)
{
    Run run;
    m_mic.ear.reset();
    m_system.ear.reset();
    m_sandbox.reset();
    m_env.reset();
    m_env = std::make_unique<IsolatedEnvironment>();
    m_sandbox = std::make_unique<PulseSandbox>();
    if (!m_sandbox->isRunning()) {
        run.error = m_sandbox->errorString();
        return run;
    }
    const QString micFile = m_env->path(QStringLiteral("mic-clicks.wav"));
    const QString systemFile = m_env->path(QStringLiteral("system-clicks.wav"));
    if (!writeClicks(micFile, seconds + 5, kMicFirstClick, 0.002f) ||
        !writeClicks(systemFile, seconds + 5, kSystemFirstClick, 0.0f)) {
        run.error = QStringLiteral("cannot write the click files");
        return run;
    }
    m_mic.ear =
        std::make_unique<ClickObserver>(m_sandbox->serverAddress(), QStringLiteral("virtmic"));
    m_system.ear = std::make_unique<ClickObserver>(m_sandbox->serverAddress(),
                                                   QStringLiteral("speakers.monitor"));
    for (FlashSource* s : {&m_mic, &m_system}) {
        s->shown.clear();
        if (!s->ear->isRunning()) {
            run.error = s->ear->errorString();
            return run;
        }
    }

    QProcess p;
    p.setProcessChannelMode(QProcess::SeparateChannels);
    p.start(cli(), QStringList{QStringLiteral("record"), QStringLiteral("--video"),
                               QStringLiteral("--duration"), QString::number(seconds),
                               QStringLiteral("--json")} +
                       extraArgs);
    QByteArray out;
    const bool recording = QTest::qWaitFor(
        [&] {
            out += p.readAllStandardOutput();
            return out.contains("\"recording\"") || p.state() == QProcess::NotRunning;
        },
        20000);
    if (!recording || !out.contains("\"recording\"")) {
        run.error = QStringLiteral("no recording: ") + QString::fromUtf8(out) +
                    QString::fromUtf8(p.readAllStandardError());
        p.kill();
        p.waitForFinished();
        return run;
    }

    // The clicks start now; each window's flashes follow its source's first
    // click, a period apart, as the clicks do.
    m_sandbox->playIntoMicrophone(micFile);
    m_sandbox->playToSpeakers(systemFile);
    for (FlashSource* s : {&m_mic, &m_system}) {
        if (!QTest::qWaitFor([&] { return !s->ear->clicks().empty(); }, 5000)) {
            run.error = QStringLiteral("no click reached the ") + s->name;
            p.kill();
            p.waitForFinished();
            return run;
        }
        const std::int64_t first = s->ear->clicks().front() + std::int64_t(kPeriodMs) * 1'000'000;
        s->window->send(
            QStringLiteral("flash 0 %1 %2 150 %3").arg(flashes).arg(kPeriodMs).arg(first));
    }

    const bool ended = QTest::qWaitFor(
        [&] {
            out += p.readAllStandardOutput();
            m_mic.collect();
            m_system.collect();
            return p.state() == QProcess::NotRunning;
        },
        int(seconds * 1000) + 30000);
    out += p.readAllStandardOutput();
    const QString err = QString::fromUtf8(p.readAllStandardError());
    if (!ended || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        run.error = QStringLiteral("the recording failed: ") + QString::fromUtf8(out) + err;
        p.kill();
        p.waitForFinished();
        return run;
    }
    m_sandbox->stopPlayback();
    // The flash helpers answer "ok" after their last flash.
    for (FlashSource* s : {&m_mic, &m_system}) {
        // A helper short of flashes shows up in the timing checks below.
        (void)QTest::qWaitFor(
            [&] {
                s->collect();
                return s->shown.size() >= size_t(flashes);
            },
            3000);
    }
    const QJsonObject saved = jsonLines(out, QStringLiteral("saved")).value(0);
    run.wav = saved.value(QStringLiteral("wav")).toString();
    run.mp4 = saved.value(QStringLiteral("mp4")).toString();
    if (run.mp4.isEmpty())
        run.error = QStringLiteral("no saved event with an MP4: ") + QString::fromUtf8(out) + err;
    return run;
}

std::vector<Pair> TestAvSync::pairs(const MediaFile& m, size_t region, FlashSource& source,
                                    const std::vector<double>& fileClicks)
{
    std::vector<Pair> result;
    const std::vector<double> flashes = m.flashTimes(int(region));
    const std::vector<std::int64_t> heard = source.ear->clicks();
    if (flashes.size() != source.shown.size()) {
        qWarning("%s: %zu flashes in the file, %zu shown", qPrintable(source.name), flashes.size(),
                 source.shown.size());
        return result;
    }
    for (size_t k = 0; k < flashes.size(); ++k) {
        // The click heard nearest to when the flash was shown, and the click
        // in the file nearest to the flash there.
        const std::int64_t flashShown = source.shown[k];
        const auto heardClick = std::min_element(heard.begin(), heard.end(), [&](auto a, auto b) {
            return std::llabs(a - flashShown) < std::llabs(b - flashShown);
        });
        if (heardClick == heard.end())
            return {};
        // In the file the click belongs where the flash, less the stimulus's
        // own offset, puts it: the other source's clicks lie half a period
        // away.
        const double stimulus = double(flashShown - *heardClick) / 1e9;
        const double expected = flashes[k] - stimulus;
        const auto fileClick =
            std::min_element(fileClicks.begin(), fileClicks.end(), [&](double a, double b) {
                return std::fabs(a - expected) < std::fabs(b - expected);
            });
        if (fileClick == fileClicks.end())
            return {};
        result.push_back({flashes[k], (flashes[k] - *fileClick) - stimulus});
    }
    return result;
}

void TestAvSync::bothSourcesStayInSync()
{
    // The whole screen: both windows, the microphone's clicks and the
    // speakers' in one mix. 20 s by default so that the suite stays quick;
    // SORV_AV_SYNC_SECONDS=63 checks the sync still holds after a minute.
    bool ok = false;
    const int seconds = qEnvironmentVariableIntValue("SORV_AV_SYNC_SECONDS", &ok);
    const int length = ok && seconds >= 8 ? seconds : 20;
    const int flashes = length - 3;
    const Run run = record(length, flashes, {});
    QVERIFY2(run.error.isEmpty(), qPrintable(run.error));
    QCOMPARE(QFileInfo(run.mp4).completeBaseName(), QFileInfo(run.wav).completeBaseName());
    const WavContents w = readWavFile(run.wav);
    QVERIFY(w.ok);
    QCOMPARE(w.samples.size(), size_t(length * kRate));

    const auto centreOf = [](const QRect& frame) {
        return QRect(frame.center() - QPoint(16, 16), QSize(32, 32));
    };
    const MediaFile m =
        MediaFile::read(run.mp4, true, {}, 0.0, {centreOf(m_mic.frame), centreOf(m_system.frame)});
    QVERIFY2(m.opened, qPrintable(m.error));
    QCOMPARE(m.videoSize, kScreen);
    QCOMPARE(m.readErrors + m.decodeErrors, 0);
    // The video starts once the audio runs and ends with it: the news that
    // the audio reached its length comes late on a loaded machine (seen: a
    // second or two), and the frames encoded meanwhile are left out of the
    // finished file. A frame or two can still be missing at the end when
    // the machine is busy: the suite allows a few, the bench one.
    const double slack = strict() ? 0.1 : 0.5;
    QVERIFY2(m.videoEnd > length - 1.0 && m.videoEnd <= length + slack + 1.0 / 30,
             qPrintable(QString::number(m.videoEnd)));
    QVERIFY2(std::fabs(m.audioEnd - m.videoEnd) <= slack,
             qPrintable(QStringLiteral("%1 vs %2").arg(m.audioEnd).arg(m.videoEnd)));
    const std::vector<double> clicks = m.clickTimes(0.15f, 0.3);
    size_t region = 0;
    for (FlashSource* s : {&m_mic, &m_system}) {
        const std::vector<Pair> found = pairs(m, region++, *s, clicks);
        QCOMPARE(found.size(), size_t(flashes));
        double worst = 0.0;
        double sum = 0.0;
        for (const Pair& p : found) {
            worst = std::max(worst, std::fabs(p.offset));
            sum += p.offset;
            QVERIFY2(std::fabs(p.offset) <= allowed(s->tolerance),
                     qPrintable(QStringLiteral("%1 at %2 s: %3 ms")
                                    .arg(s->name)
                                    .arg(p.fileTime)
                                    .arg(p.offset * 1e3)));
        }
        qInfo("%s: first flash at %.2f s %+.1f ms, last at %.2f s %+.1f ms, mean %+.1f ms, "
              "worst %.1f ms",
              qPrintable(s->name), found.front().fileTime, found.front().offset * 1e3,
              found.back().fileTime, found.back().offset * 1e3, sum / double(found.size()) * 1e3,
              worst * 1e3);
        // From the start to the end.
        QVERIFY(found.front().fileTime < 5.0);
        QVERIFY(found.back().fileTime > length - 3.0);
    }
}

void TestAvSync::killedRecordingsAreRepairedAndListed()
{
    // `record` killed outright, in audio and in video mode (of one window):
    // the next `pending` lists both, repaired (the WAV's header matches its
    // data, the MP4 has its index first and holds that window at its size),
    // and lists no file that a recording still running holds.
    m_sandbox.reset();
    m_env = std::make_unique<IsolatedEnvironment>();
    m_sandbox = std::make_unique<PulseSandbox>();
    QVERIFY2(m_sandbox->isRunning(), qPrintable(m_sandbox->errorString()));
    const auto startRecording = [](QProcess& p, const QStringList& extra) {
        p.start(cli(), QStringList{QStringLiteral("record"), QStringLiteral("--json")} + extra);
        return QTest::qWaitFor([&] { return p.peek(4096).contains("\"recording\""); }, 20000);
    };
    const QString window = QStringLiteral("window:%1").arg(m_mic.window->ids[0]);
    for (const QStringList& mode :
         {QStringList{},
          QStringList{QStringLiteral("--video"), QStringLiteral("--target"), window}}) {
        QProcess p;
        QVERIFY(startRecording(p, mode));
        QTest::qWait(2500);
        p.kill();
        QVERIFY(p.waitForFinished(10000));
    }
    QProcess running;
    QVERIFY(startRecording(running, {}));

    QProcess pending;
    pending.start(cli(), {QStringLiteral("pending"), QStringLiteral("--json")});
    QVERIFY(pending.waitForFinished(60000));
    QCOMPARE(pending.exitCode(), 0);
    const QList<QJsonObject> listed = jsonLines(pending.readAllStandardOutput());
    running.kill();
    running.waitForFinished();
    QCOMPARE(listed.size(), 2);
    for (const QJsonObject& e : listed) {
        const QString path = e.value(QStringLiteral("path")).toString();
        QCOMPARE(e.value(QStringLiteral("reason")).toString(), QStringLiteral("Left by a crash"));
        QVERIFY2(e.value(QStringLiteral("seconds")).toDouble() > 1.0, qPrintable(path));
        QVERIFY(e.value(QStringLiteral("bytes")).toInteger() >= QFileInfo(path).size());
        const QString wav = path.chopped(4) + QStringLiteral(".wav");
        SF_INFO info{};
        SNDFILE* f = sf_open(QFile::encodeName(wav).constData(), SFM_READ, &info);
        QVERIFY(f);
        sf_close(f);
        QVERIFY(QFileInfo(wav).size() - qint64(info.frames) * 4 < 1024); // all data counted
        if (path.endsWith(QStringLiteral(".mp4"))) {
            const MediaFile media = MediaFile::read(path, true);
            QVERIFY2(media.opened, qPrintable(media.error));
            QCOMPARE(media.readErrors + media.decodeErrors, 0);
            QCOMPARE(std::count(media.boxes.begin(), media.boxes.end(), QStringLiteral("moof")), 0);
            QVERIFY(media.duration > 1.0);
            // yuv420p needs even sizes: an odd side loses its last row or column.
            QCOMPARE(media.videoSize, QSize(m_mic.frame.width() & ~1, m_mic.frame.height() & ~1));
        }
    }
}

QTEST_GUILESS_MAIN(TestAvSync)
#include "tst_av_sync.moc"
