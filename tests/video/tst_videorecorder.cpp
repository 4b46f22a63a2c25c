// The video recorder against a real X server and FFmpeg's own demuxer: what
// the file holds, that picture and sound stay together, what a torn-down
// recording keeps, and the refusals. A killed recording is tst_av_sync's.

#include "mediafile.h"
#include "recorderwait.h"
#include "support/isolatedenvironment.h"
#include "support/syntheticaudio.h"
#include "support/xvfbsession.h"
#include "testwindows.h"
#include "video/videorecorder.h"

#include <QTest>

#include <algorithm>
#include <cmath>
#include <memory>

using namespace sorv;
using namespace sorv::test;

namespace {

constexpr QSize kScreen(640, 360);

} // namespace

class TestVideoRecorder : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void startFailures_data();
    void startFailures();
    void recordingHoldsSyncedH264AndAac();
    void tearDownAnswersAndKeepsWhatWasWritten();

private:
    std::unique_ptr<XvfbSession> m_x;
    std::unique_ptr<TestWindows> m_flash;
};

void TestVideoRecorder::initTestCase()
{
    if (!XvfbSession::toolsAvailable())
        QSKIP("Xvfb is needed");
    m_x = std::make_unique<XvfbSession>(XvfbSession::Options{kScreen, false});
    QVERIFY2(m_x->isRunning(), qPrintable(m_x->errorString()));
    // A black window over the whole screen that flashes white on command.
    m_flash = std::make_unique<TestWindows>(QStringList{QStringLiteral("Flash|0|0|640|360|")});
    QVERIFY(m_flash->isReady());
    QCOMPARE(m_flash->command(QStringLiteral("fill 0 000000")), QStringLiteral("ok"));
}

void TestVideoRecorder::cleanupTestCase()
{
    m_flash.reset();
    m_x.reset();
}

void TestVideoRecorder::startFailures_data()
{
    QTest::addColumn<bool>("withDisplay");
    QTest::addColumn<ScreenCaptureTargetOption>("target");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expectedStart");

    const QString file = QStringLiteral("out.mp4");
    QTest::newRow("no X server") << false << ScreenCaptureTargetOption::mainDisplay() << file
                                 << QStringLiteral("No display found for screen capture.");
    QTest::newRow("window gone") << true
                                 << ScreenCaptureTargetOption::window(0x7fffff,
                                                                      QStringLiteral("Gone"), {})
                                 << file << QStringLiteral("No display found for screen capture.");
    QTest::newRow("display gone") << true
                                  << ScreenCaptureTargetOption::display(
                                         4242, QStringLiteral("HDMI-9"), 1, 1)
                                  << file << QStringLiteral("No display found for screen capture.");
    QTest::newRow("file cannot be written") << true << ScreenCaptureTargetOption::mainDisplay()
                                            << QStringLiteral("/nonexistent-dir/out.mp4")
                                            << QStringLiteral("Could not set up video writer: ");
}

void TestVideoRecorder::startFailures()
{
    QFETCH(bool, withDisplay);
    QFETCH(ScreenCaptureTargetOption, target);
    QFETCH(QString, path);
    QFETCH(QString, expectedStart);
    IsolatedEnvironment env;
    const QString out = path.startsWith(QLatin1Char('/')) ? path : env.path(path);

    const QByteArray display = qgetenv("DISPLAY");
    if (!withDisplay)
        qunsetenv("DISPLAY");
    VideoRecorder recorder;
    QList<VideoRecorderState> states;
    connect(&recorder, &VideoRecorder::stateChanged, this, [&] { states << recorder.state(); });
    const auto error = startAndWait(recorder, out, target);
    qputenv("DISPLAY", display);

    QVERIFY(error);
    QVERIFY2(error->description().startsWith(expectedStart), qPrintable(error->description()));
    QCOMPARE(states, (QList{VideoRecorderState::preparing(), VideoRecorderState::idle()}));
    QVERIFY(!QFile::exists(out));
    // Nothing left behind: the next start works.
    if (withDisplay && !path.startsWith(QLatin1Char('/'))) {
        const auto second = startAndWait(recorder, out, ScreenCaptureTargetOption::mainDisplay());
        QVERIFY2(!second, qPrintable(second ? second->description() : QString()));
        QVERIFY(!stopAndWait(recorder).error);
    }
}

void TestVideoRecorder::recordingHoldsSyncedH264AndAac()
{
    IsolatedEnvironment env;
    const QString path = env.path(QStringLiteral("sorvelandrix_1.mp4"));
    VideoRecorder recorder;
    // Four flashes about a second apart, each at another point between two
    // frames; a click in the audio at the moment each is meant to reach the
    // screen.
    constexpr int kFlashes = 4;
    constexpr int kPeriodMs = 1011;
    SyntheticAudio audio(SyntheticAudio::nowNs(), 0.05f);
    QTimer feed;
    connect(&feed, &QTimer::timeout, this, [&] {
        for (const AudioBuffer& b : audio.due())
            recorder.appendAudio(b);
    });
    feed.start(20);

    const auto started = startAndWait(recorder, path, ScreenCaptureTargetOption::mainDisplay());
    QVERIFY2(!started, qPrintable(started ? started->description() : QString()));
    QCOMPARE(recorder.state(), VideoRecorderState::recording());
    QCOMPARE(recorder.outputPath(), path);

    const std::int64_t first = SyntheticAudio::nowNs() + 700'000'000;
    std::vector<std::int64_t> scheduled;
    for (int k = 0; k < kFlashes; ++k) {
        scheduled.push_back(first + std::int64_t(k) * kPeriodMs * 1'000'000);
        audio.addClick(scheduled.back());
    }
    m_flash->send(QStringLiteral("flash 0 %1 %2 150 %3").arg(kFlashes).arg(kPeriodMs).arg(first));
    std::vector<std::int64_t> shown;
    QVERIFY(QTest::qWaitFor(
        [&] {
            for (const QString& line : m_flash->availableLines()) {
                const QStringList f = line.split(QLatin1Char(' '));
                if (f.size() == 3 && f[0] == QLatin1String("flash"))
                    shown.push_back(f[2].toLongLong());
            }
            return shown.size() == size_t(kFlashes);
        },
        kFlashes * kPeriodMs + 5000));
    QTest::qWait(600);
    QVERIFY(recorder.elapsed() > 4.0);

    const auto stopped = stopAndWait(recorder);
    feed.stop();
    QVERIFY2(!stopped.error, qPrintable(stopped.error ? stopped.error->description() : QString()));
    QCOMPARE(stopped.path, path);
    QCOMPARE(recorder.state(), VideoRecorderState::idle());
    QCOMPARE(recorder.lastFinalisedPath(), path);
    QVERIFY(!QFile::exists(path + QStringLiteral(".part")));
    const VideoRecorder::Statistics stats = recorder.statistics();
    qInfo("frames due %lld, written %lld, dropped (queue full) %lld, most waiting %d",
          static_cast<long long>(stats.framesDue), static_cast<long long>(stats.framesWritten),
          static_cast<long long>(stats.framesDroppedQueueFull), stats.maxFramesWaiting);
    QVERIFY(stats.maxFramesWaiting <= VideoRecorder::kMaxFramesWaiting);

    const MediaFile m = MediaFile::read(path, true);
    QVERIFY2(m.opened, qPrintable(m.error));
    // A plain MP4 with its index first.
    QVERIFY(m.boxes.size() >= 3);
    QCOMPARE(m.boxes[0], QStringLiteral("ftyp"));
    const auto moov = std::find(m.boxes.begin(), m.boxes.end(), QStringLiteral("moov"));
    const auto mdat = std::find(m.boxes.begin(), m.boxes.end(), QStringLiteral("mdat"));
    QVERIFY(moov < mdat && mdat != m.boxes.end());
    QVERIFY(std::find(m.boxes.begin(), m.boxes.end(), QStringLiteral("moof")) == m.boxes.end());

    QCOMPARE(m.videoCodec, QStringLiteral("h264"));
    QCOMPARE(m.videoProfile, 100); // High
    QCOMPARE(m.videoSize, kScreen);
    QCOMPARE(m.audioCodec, QStringLiteral("aac"));
    QCOMPARE(m.audioChannels, 1);
    QCOMPARE(m.audioSampleRate, 44100);
    QCOMPARE(m.readErrors, 0);
    QCOMPARE(m.decodeErrors, 0);
    qInfo("video %.3f s (%zu frames), audio %.3f–%.3f s", m.videoEnd, m.framePts.size(),
          m.audioStart, m.audioEnd);
    QVERIFY(m.videoEnd > 4.0);
    QVERIFY2(std::fabs(m.audioEnd - m.videoEnd) <= 0.2,
             qPrintable(QStringLiteral("%1 vs %2").arg(m.audioEnd).arg(m.videoEnd)));
    QVERIFY(std::fabs(m.audioStart) < 0.001);
    // The targets (30 frames a second, less a fifth; each click within 60 ms
    // of its flash) are checked by bench/av_sync.sh (SORV_AV_SYNC_STRICT=1);
    // on a loaded machine the suite asks only that the frames keep coming and
    // that each flash has its own click, the next lying a second away.
    const bool strict = qEnvironmentVariableIntValue("SORV_AV_SYNC_STRICT") == 1;
    QVERIFY(m.framePts.size() >= size_t((strict ? 0.8 * 30 : 5) * m.videoEnd));
    const std::vector<double> flashes = m.flashTimes();
    const std::vector<double> clicks = m.clickTimes(0.4f, 0.5);
    QCOMPARE(flashes.size(), size_t(kFlashes));
    QCOMPARE(clicks.size(), size_t(kFlashes));
    for (int k = 0; k < kFlashes; ++k) {
        const double stimulus = double(shown[size_t(k)] - scheduled[size_t(k)]) / 1e9;
        const double offset = (flashes[size_t(k)] - stimulus) - clicks[size_t(k)];
        qInfo("flash %d: picture %.3f s, sound %.3f s, flash late by %.1f ms → offset %+.1f ms", k,
              flashes[size_t(k)], clicks[size_t(k)], stimulus * 1e3, offset * 1e3);
        QVERIFY2(std::fabs(offset) <= (strict ? 0.060 : 0.2), qPrintable(QString::number(offset)));
        // A frame cannot show the flash before it happened: sound placed late
        // would show here first.
        QVERIFY2(offset >= -0.005, qPrintable(QString::number(offset)));
    }
}

void TestVideoRecorder::tearDownAnswersAndKeepsWhatWasWritten()
{
    IsolatedEnvironment env;
    const QString path = env.path(QStringLiteral("abandoned.mp4"));
    VideoRecorder recorder;

    // Torn down while preparing: the start still answers, once.
    int answers = 0;
    std::optional<VideoRecorderError> answer;
    recorder.start(path, ScreenCaptureTargetOption::mainDisplay(),
                   [&](const std::optional<VideoRecorderError>& error) {
                       ++answers;
                       answer = error;
                   });
    recorder.tearDown();
    QCOMPARE(recorder.state(), VideoRecorderState::idle());
    QTRY_COMPARE(answers, 1);
    QVERIFY(answer);
    QCOMPARE(answer->code(), VideoRecorderError::Code::InvalidState);
    QTest::qWait(200);
    QCOMPARE(answers, 1);

    // Torn down while recording: what was written plays.
    const auto started = startAndWait(recorder, path, ScreenCaptureTargetOption::mainDisplay());
    QVERIFY2(!started, qPrintable(started ? started->description() : QString()));
    QTRY_VERIFY(recorder.statistics().framesWritten >= 75);
    recorder.tearDown();
    QCOMPARE(recorder.state(), VideoRecorderState::idle());
    QVERIFY(recorder.outputPath().isEmpty());
    // No audio at all here: the picture is written regardless.
    QTRY_VERIFY(MediaFile::read(path, true).framePts.size() >= 15);
    const MediaFile m = MediaFile::read(path, true);
    QCOMPARE(m.decodeErrors + m.readErrors, 0);
    QCOMPARE(stopAndWait(recorder).error->code(), VideoRecorderError::Code::NotRecording);
}

QTEST_GUILESS_MAIN(TestVideoRecorder)
#include "tst_videorecorder.moc"
