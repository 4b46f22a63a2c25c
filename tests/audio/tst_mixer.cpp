// The mix is the recording: ring-buffer order and overwrite, the gain
// control's invariants, and the pipeline every buffer takes (the two mix
// paths, file, consumer, meters, a file that stops taking audio, a duration
// cut to the frame).

#include "audio/audioringbuffer.h"
#include "audio/mixer.h"
#include "audio/mixpipeline.h"
#include "support/toneprobe.h"

#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <csignal>
#include <deque>
#include <random>

#include <sys/resource.h>

using namespace sorv;
using namespace sorv::test;

namespace {

std::vector<float> constant(size_t n, float value)
{
    return std::vector<float>(n, value);
}

std::vector<float> noise(size_t n, float amplitude, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> dist(-amplitude, amplitude);
    std::vector<float> out(n);
    for (float& x : out)
        x = dist(rng);
    return out;
}

struct Pipeline {
    QTemporaryDir dir;
    QString path = dir.filePath(QStringLiteral("rec.wav"));
    double now = 1000.0;
    MixPipeline mix{[this] { return now; }};
    std::vector<AudioBuffer> delivered;
    std::vector<std::pair<double, AudioMeters>> meters;

    explicit Pipeline(bool systemActive = true)
    {
        mix.setMixedSink([this](const AudioBuffer& b) { delivered.push_back(b); });
        mix.setMetersSink([this](const AudioMeters& m) { meters.emplace_back(now, m); });
        mix.reset();
        mix.setSystemAudioActive(systemActive);
    }
    bool open() { return mix.openOutput(path); }
    void feed(std::vector<float> mic, std::int64_t hostTimeNs = 0)
    {
        AudioBuffer b;
        b.samples = std::move(mic);
        b.hostTimeNs = hostTimeNs;
        mix.processMicBuffer(b, peakLevel(b.samples));
    }
    std::vector<float> readBack()
    {
        mix.closeOutput();
        return readWavFile(path).samples;
    }
};

} // namespace

class TestMixer : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void ringBufferMatchesReferenceQueue();
    void silenceDecaysLevelsAndHoldsGains();
    void gainsSettleInsideTheirClamps();
    void quietMicrophoneUnderLoudSystemIsSuppressed();
    void limiterKeepsOutputWithinFullScale();

    void micOnlyPathLimitsInPlaceWithoutCounting();
    void systemActivePathPadsCountsWritesDelivers();
    void metersAtMostThirtyPerSecond();
    void fileThatStopsTakingAudioEndsTheRecordingOnce();
    void durationLimitCutsToTheFrame();
};

void TestMixer::ringBufferMatchesReferenceQueue()
{
    // Random writes and reads of every size, including larger than capacity,
    // against a plain queue that drops its oldest samples.
    AudioRingBuffer ring(1000);
    std::deque<float> ref;
    std::mt19937 rng(42);
    float next = 0;
    for (int step = 0; step < 3000; ++step) {
        if (rng() % 2) {
            std::vector<float> w(rng() % 1500);
            for (float& x : w) {
                x = next++;
                ref.push_back(x);
                if (ref.size() > 1000)
                    ref.pop_front();
            }
            ring.write(w);
        } else {
            const auto n = qint64(rng() % 1200);
            const auto got = ring.read(n);
            const size_t k = std::min(size_t(n), ref.size());
            QCOMPARE(got.size(), k);
            for (size_t i = 0; i < k; ++i) {
                QCOMPARE(got[i], ref.front());
                ref.pop_front();
            }
        }
        QCOMPARE(ring.count(), qint64(ref.size()));
    }
}

void TestMixer::silenceDecaysLevelsAndHoldsGains()
{
    AGCState state{0.2f, 0.1f, 2.0f, 0.7f};
    const auto zeros = constant(4096, 0.0f);
    for (int i = 0; i < 300; ++i) {
        const AGCState before = state;
        const auto r = mixWithGainControl(zeros, zeros, true, state);
        state = r.state;
        QCOMPARE(state.micRMS, 0.95f * before.micRMS);
        QCOMPARE(state.sysRMS, 0.95f * before.sysRMS);
        for (float x : r.samples)
            QCOMPARE(x, 0.0f);
    }
    // After long silence the gains hold exactly: noise that follows is not
    // met with a gain that kept climbing.
    const AGCState held = state;
    state = mixWithGainControl(zeros, zeros, true, state).state;
    QCOMPARE(state.micGainSmoothed, held.micGainSmoothed);
    QCOMPARE(state.sysGainSmoothed, held.sysGainSmoothed);
}

void TestMixer::gainsSettleInsideTheirClamps()
{
    // Whatever the levels, the microphone gain stays within [0.5, 6] and the
    // system gain within [0.1, 2.5] once it has settled on them; a level of
    // 0.01 RMS asks for 6 (0.06 / 0.01) and gets there within 20 buffers.
    struct Case {
        float mic, sys, micGain, sysGain;
    };
    const Case cases[] = {
        {0.01f, 0.0f, 6.0f, 1.0f}, {0.9f, 0.9f, 0.5f, 0.1f}, {0.06f, 0.004f, 1.0f, 2.5f}};
    for (const Case& c : cases) {
        AGCState state;
        const auto mic = constant(4096, c.mic);
        const auto sys = constant(4096, c.sys);
        for (int i = 0; i < 60; ++i) {
            state = mixWithGainControl(mic, sys, true, state).state;
            QVERIFY(state.micGainSmoothed >= 0.5f - 1e-6f && state.micGainSmoothed <= 6.0f);
            QVERIFY(state.sysGainSmoothed >= 0.1f - 1e-6f && state.sysGainSmoothed <= 2.5f);
        }
        QVERIFY2(std::fabs(state.micGainSmoothed - c.micGain) < 0.01f,
                 qPrintable(QString::number(state.micGainSmoothed)));
        QVERIFY2(std::fabs(state.sysGainSmoothed - c.sysGain) < 0.01f,
                 qPrintable(QString::number(state.sysGainSmoothed)));
    }
}

void TestMixer::quietMicrophoneUnderLoudSystemIsSuppressed()
{
    // The microphone of a laptop mostly hears its speakers: while the system
    // is loud and the microphone is not clearly talking over it, the
    // microphone's share of the mix shrinks; a voice over it is left alone.
    const auto micShare = [](float m, float s) {
        const AGCState neutral{m, s, 1.0f, 1.0f};
        const auto mic = constant(64, m);
        const auto sys = constant(64, s);
        const auto zeros = constant(64, 0.0f);
        const float both = mixWithGainControl(mic, sys, true, neutral).samples[0];
        const float systemOnly = mixWithGainControl(zeros, sys, true, neutral).samples[0];
        const float micOnly = mixWithGainControl(mic, zeros, true, neutral).samples[0];
        return (both - systemOnly) / micOnly;
    };
    QVERIFY(micShare(0.005f, 0.07f) < 0.5f);
    QVERIFY(micShare(0.005f, 0.02f) < micShare(0.005f, 0.011f));
    QVERIFY(std::fabs(micShare(0.005f, 0.011f) - 1.0f) < 1e-3f);
}

void TestMixer::limiterKeepsOutputWithinFullScale()
{
    AGCState state{0.001f, 0.001f, 6.0f, 2.5f}; // maximum gains on full-scale input
    for (unsigned b = 0; b < 20; ++b) {
        const auto r =
            mixWithGainControl(noise(4096, 1.0f, b), noise(4096, 1.0f, b + 100), true, state);
        state = r.state;
        for (float x : r.samples)
            QVERIFY(std::fabs(x) <= 1.0f);
    }
    // Below the knee samples pass unchanged; above it they become tanh(x).
    std::vector<float> v{0.5f, -0.92f, 0.93f, -3.0f};
    softLimit(v);
    QCOMPARE(v, (std::vector<float>{0.5f, -0.92f, float(std::tanh(double(0.93f))),
                                    float(std::tanh(-3.0))}));
}

void TestMixer::micOnlyPathLimitsInPlaceWithoutCounting()
{
    Pipeline p(false);
    QVERIFY(p.open());
    p.mix.receiveSystemAudio(constant(3, 0.5f), 0.5f);
    p.feed({0.1f, 0.95f, -2.0f});
    QCOMPARE(p.mix.writeCount(), qint64(0));
    // The system ring buffer is not drained in microphone-only mode.
    QCOMPARE(p.mix.systemBuffer().count(), qint64(3));
    QCOMPARE(p.delivered.size(), size_t(1));
    const std::vector<float> limited{0.1f, float(std::tanh(double(0.95f))), float(std::tanh(-2.0))};
    QCOMPARE(p.delivered[0].samples, limited);
    QCOMPARE(p.readBack(), limited);
}

void TestMixer::systemActivePathPadsCountsWritesDelivers()
{
    Pipeline p;
    QVERIFY(p.open());
    const auto mic = noise(4096, 0.05f, 1);
    const auto sys = noise(1000, 0.1f, 2); // less than a buffer: padded with silence
    p.mix.receiveSystemAudio(sys, peakLevel(sys));
    p.feed(mic, 123);
    QCOMPARE(p.mix.writeCount(), qint64(1));
    QCOMPARE(p.mix.systemBuffer().count(), qint64(0));

    auto padded = sys;
    padded.resize(4096, 0.0f);
    const auto expected = mixWithGainControl(mic, padded, true, AGCState{});
    QCOMPARE(p.delivered.size(), size_t(1));
    QCOMPARE(p.delivered[0].hostTimeNs, qint64(123));
    QCOMPARE(p.delivered[0].samples, expected.samples);
    QCOMPARE(p.readBack(), expected.samples);
}

void TestMixer::metersAtMostThirtyPerSecond()
{
    Pipeline p;
    QVERIFY(p.open());
    // 300 buffers and 300 system chunks within one simulated second.
    for (int i = 0; i < 300; ++i) {
        p.now += 1.0 / 300.0;
        p.mix.receiveSystemAudio(constant(8, 0.2f), 0.2f);
        p.feed(constant(8, 0.3f));
    }
    QVERIFY2(p.meters.size() >= 25 && p.meters.size() <= 30,
             qPrintable(QString::number(p.meters.size())));
    for (size_t i = 1; i < p.meters.size(); ++i)
        QVERIFY(p.meters[i].first - p.meters[i - 1].first >= 1.0 / 30.0);
    const AudioMeters& last = p.meters.back().second;
    QCOMPARE(last.mic, 0.3f);
    QCOMPARE(last.system, 0.2f);
    QCOMPARE(last.peakWindowMax, 0.3f);
}

void TestMixer::fileThatStopsTakingAudioEndsTheRecordingOnce()
{
    // The file system refuses to let the file grow past 64 KiB (what a full
    // disk does to the recording's file): the failure is reported once, with
    // what was saved, and the file holds exactly that and still opens.
    struct rlimit previous {};
    QVERIFY(::getrlimit(RLIMIT_FSIZE, &previous) == 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    Pipeline p;
    QVERIFY(p.open());
    std::vector<MixPipeline::WriteFailure> failures;
    p.mix.setWriteFailureSink([&](const MixPipeline::WriteFailure& f) { failures.push_back(f); });
    struct rlimit small = previous;
    small.rlim_cur = rlim_t{64} * 1024;
    QVERIFY(::setrlimit(RLIMIT_FSIZE, &small) == 0);
    for (int i = 0; i < 10; ++i)
        p.feed(noise(4096, 0.1f, unsigned(i)));
    ::setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousHandler);

    QCOMPARE(failures.size(), size_t(1));
    const MixPipeline::WriteFailure& f = failures.front();
    QVERIFY(!f.diskFull); // over a limit, not out of space
    QVERIFY(f.framesSaved > 4096 && f.framesSaved < 16384);
    QCOMPARE(f.path, p.path);
    QVERIFY(f.message().startsWith(QStringLiteral("Recording stopped: the recording could not be "
                                                  "written (")));
    QVERIFY(f.message().endsWith(
        QStringLiteral("The first %1 s are saved in %2.")
            .arg(QString::number(double(f.framesSaved) / 48000.0, 'f', 1), p.path)));
    QCOMPARE(qint64(p.readBack().size()), f.framesSaved);

    MixPipeline::WriteFailure full{QStringLiteral("/r.wav"), QStringLiteral("x"), true, 523200};
    QCOMPARE(full.message(),
             QStringLiteral("Recording stopped: the disk is full. The first 10.9 s are saved in "
                            "/r.wav."));
    full.framesSaved = 0;
    QCOMPARE(full.message(),
             QStringLiteral("Recording stopped: the disk is full. Nothing could be saved."));
}

void TestMixer::durationLimitCutsToTheFrame()
{
    for (const bool systemActive : {false, true}) {
        Pipeline p(systemActive);
        QVERIFY(p.open());
        int reached = 0;
        p.mix.setFrameLimit(10'000, [&] { ++reached; });
        for (int i = 0; i < 5; ++i)
            p.feed(noise(4096, 0.1f, unsigned(i)));
        QCOMPARE(reached, 1);
        QCOMPARE(p.mix.outputFrames(), qint64(10'000));
        QCOMPARE(p.delivered.back().samples.size(), size_t(10'000 - 2 * 4096));
        QCOMPARE(p.readBack().size(), size_t(10'000));
    }
}

QTEST_GUILESS_MAIN(TestMixer)
#include "tst_mixer.moc"
