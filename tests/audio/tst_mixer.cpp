// The mixer's numbers are the recording's behaviour: ring buffer order and
// overwrite, level smoothing, gain targets and clamps, bleed suppression,
// limiter, the two paths of mixAndWrite, log cadence and meter rate.

#include "audio/audioengine.h"
#include "audio/audioringbuffer.h"
#include "audio/mixer.h"
#include "core/log.h"
#include "support/isolatedenvironment.h"

#include <QTemporaryDir>
#include <QTest>

#include <sndfile.h>

#include <cmath>
#include <deque>
#include <random>

using namespace sorv;

namespace {

std::vector<float> sine(size_t n, float rms, float freq = 440.0f)
{
    // A sine of amplitude A has RMS A/√2 over whole periods.
    std::vector<float> out(n);
    const float amp = rms * std::sqrt(2.0f);
    for (size_t i = 0; i < n; ++i)
        out[i] = amp * std::sin(2.0f * float(M_PI) * freq * float(i) / 48000.0f);
    return out;
}

std::vector<float> constant(size_t n, float value)
{
    return std::vector<float>(n, value);
}

} // namespace

class TestMixer : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void ringBufferKeepsNewestInOrder();
    void ringBufferMatchesReferenceQueue();
    void silenceDecaysLevelsAndHoldsGains();
    void quietMicApproachesUpperClampByThirtyPercent();
    void systemGainClamps_data();
    void systemGainClamps();
    void bleedFactors_data();
    void bleedFactors();
    void doubleTalkAttenuation();
    void limiterKeepsOutputWithinFullScale();
    void emptyBufferUpdatesStateOnly();
    void unequalLengthsMixCommonPrefix();
    void streamMicrophoneChoice_data();
    void streamMicrophoneChoice();

    void micOnlyPathLimitsInPlaceWithoutCounting();
    void systemActivePathPadsCountsWritesDelivers();
    void logCadence();
    void metersAtMostThirtyPerSecond();
    void noOutputFileDropsBuffers();
};

void TestMixer::ringBufferKeepsNewestInOrder()
{
    AudioRingBuffer ring;
    std::vector<float> in(100'000);
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = float(i);
    ring.write(in);
    QCOMPARE(ring.count(), qint64(96'000));
    const auto out = ring.read(100'000);
    QCOMPARE(out.size(), size_t(96'000));
    for (size_t i = 0; i < out.size(); ++i)
        QCOMPARE(out[i], float(i + 4'000));
    QVERIFY(ring.read(10).empty());

    // Overwrite also works sample by sample across many small writes.
    AudioRingBuffer small(5);
    for (int i = 0; i < 12; ++i) {
        const float v = float(i);
        small.write(std::span<const float>(&v, 1));
    }
    QCOMPARE(small.read(10), (std::vector<float>{7, 8, 9, 10, 11}));
}

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
    for (int i = 0; i < 50; ++i) {
        const AGCState before = state;
        const auto r = mixWithGainControl(zeros, zeros, true, state);
        state = r.state;
        QCOMPARE(state.micRMS, 0.95f * before.micRMS);
        QCOMPARE(state.sysRMS, 0.95f * before.sysRMS);
        // Above the hold threshold the gains move toward 0.06 / level; once the
        // levels fall under 0.0005 they hold exactly.
        if (state.micRMS <= 0.0005f)
            QCOMPARE(state.micGainSmoothed, before.micGainSmoothed);
        for (float x : r.samples)
            QCOMPARE(x, 0.0f);
    }
    // After long silence nothing is amplified further: the gains stay put.
    for (int i = 0; i < 200; ++i)
        state = mixWithGainControl(zeros, zeros, true, state).state;
    const AGCState held = state;
    state = mixWithGainControl(zeros, zeros, true, state).state;
    QCOMPARE(state.micGainSmoothed, held.micGainSmoothed);
    QCOMPARE(state.sysGainSmoothed, held.sysGainSmoothed);
    QVERIFY(state.micRMS < 1e-5f);
}

void TestMixer::quietMicApproachesUpperClampByThirtyPercent()
{
    const auto mic = constant(4096, 0.01f); // RMS exactly 0.01
    const auto sys = constant(4096, 0.0f);
    AGCState state;
    // Start the level where it already is, so the target is 0.06/0.01 = 6.0
    // from the first buffer (clamped at the top).
    state.micRMS = 0.01f;
    float gain = state.micGainSmoothed;
    for (int i = 0; i < 20; ++i) {
        state = mixWithGainControl(mic, sys, true, state).state;
        const float expected = 0.7f * gain + 0.3f * 6.0f;
        QVERIFY2(std::fabs(state.micGainSmoothed - expected) < 1e-5f,
                 qPrintable(QStringLiteral("buffer %1: %2 vs %3")
                                .arg(i)
                                .arg(state.micGainSmoothed)
                                .arg(expected)));
        QVERIFY(state.micGainSmoothed <= 6.0f);
        gain = state.micGainSmoothed;
    }
    QVERIFY(gain > 5.9f);
}

void TestMixer::systemGainClamps_data()
{
    QTest::addColumn<float>("sysLevel");
    QTest::addColumn<float>("target");
    QTest::newRow("very loud: lower clamp 0.1") << 0.9f << 0.1f;
    QTest::newRow("at target level") << 0.06f << 1.0f;
    QTest::newRow("quiet: upper clamp 2.5") << 0.004f << 2.5f;
}

void TestMixer::systemGainClamps()
{
    QFETCH(float, sysLevel);
    QFETCH(float, target);
    AGCState state;
    state.sysRMS = sysLevel;
    const auto sys = constant(4096, sysLevel);
    const auto mic = constant(4096, 0.0f);
    state = mixWithGainControl(mic, sys, true, state).state;
    QVERIFY(std::fabs(state.sysGainSmoothed - (0.7f + 0.3f * target)) < 1e-5f);
}

void TestMixer::bleedFactors_data()
{
    QTest::addColumn<float>("m");
    QTest::addColumn<float>("s");
    QTest::addColumn<float>("factor");
    QTest::newRow("loud system, quiet mic: 0.45") << 0.005f << 0.07f << 0.45f;
    QTest::newRow("mic talks over loud system: none") << 0.04f << 0.07f << 1.0f;
    QTest::newRow("medium system: 0.6") << 0.005f << 0.04f << 0.6f;
    QTest::newRow("soft system: 0.75") << 0.005f << 0.02f << 0.75f;
    QTest::newRow("system below 0.012: none") << 0.005f << 0.011f << 1.0f;
    QTest::newRow("mic above 0.008 but under 0.45·s: 0.45") << 0.009f << 0.07f << 0.45f;
}

void TestMixer::bleedFactors()
{
    QFETCH(float, m);
    QFETCH(float, s);
    QFETCH(float, factor);
    // Constant buffers make the instant RMS exactly the value. With a neutral
    // state the microphone's contribution is d·GM·m, which the system part
    // (GS·s) is removed from by mixing against silence.
    AGCState state{m, s, 1.0f, 1.0f};
    const auto mic = constant(64, m);
    const auto sys = constant(64, s);
    const auto zeros = constant(64, 0.0f);
    const auto both = mixWithGainControl(mic, sys, true, state);
    // The double-talk factor applies to both; divide it out.
    const float duck = (both.state.micRMS > 0.01f && both.state.sysRMS > 0.01f) ? 0.72f : 1.0f;
    const float micPart = both.samples[0] / duck - both.state.sysGainSmoothed * s;
    QVERIFY2(std::fabs(micPart - factor * both.state.micGainSmoothed * m) < 1e-5f,
             qPrintable(QStringLiteral("mic part %1, expected %2")
                            .arg(micPart)
                            .arg(factor * both.state.micGainSmoothed * m)));
    // Without a system signal the microphone is never suppressed.
    const auto noSystem = mixWithGainControl(mic, zeros, true, AGCState{m, 0, 1, 1});
    QVERIFY(std::fabs(noSystem.samples[0] - noSystem.state.micGainSmoothed * m) < 1e-6f);
}

void TestMixer::doubleTalkAttenuation()
{
    const auto mic = constant(32, 0.05f);
    const auto sys = constant(32, 0.05f);
    const AGCState state{0.05f, 0.05f, 1.0f, 1.0f};
    const auto r = mixWithGainControl(mic, sys, true, state);
    // m = s = 0.05: no bleed factor (m ≥ 0.45·s), both smoothed levels > 0.01.
    const float expected =
        (r.state.micGainSmoothed * 0.05f + r.state.sysGainSmoothed * 0.05f) * 0.72f;
    QVERIFY(std::fabs(r.samples[0] - expected) < 1e-6f);
    // Without the system flag neither bleed nor ducking apply.
    const auto alone = mixWithGainControl(mic, sys, false, state);
    QVERIFY(std::fabs(alone.samples[0] -
                      (alone.state.micGainSmoothed + alone.state.sysGainSmoothed) * 0.05f) < 1e-6f);
}

void TestMixer::limiterKeepsOutputWithinFullScale()
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    AGCState state{0.001f, 0.001f, 6.0f, 2.5f}; // maximum gains on full-scale input
    for (int b = 0; b < 20; ++b) {
        std::vector<float> mic(4096), sys(4096);
        for (size_t i = 0; i < mic.size(); ++i) {
            mic[i] = dist(rng);
            sys[i] = dist(rng);
        }
        const auto r = mixWithGainControl(mic, sys, true, state);
        state = r.state;
        for (float x : r.samples)
            QVERIFY(std::fabs(x) <= 1.0f);
    }
    // Below the knee samples pass unchanged; above it they become tanh(x).
    std::vector<float> v{0.5f, -0.92f, 0.93f, -3.0f, 40.0f};
    softLimit(v);
    QCOMPARE(v[0], 0.5f);
    QCOMPARE(v[1], -0.92f);
    QCOMPARE(v[2], float(std::tanh(double(0.93f))));
    QCOMPARE(v[3], float(std::tanh(-3.0)));
    QCOMPARE(v[4], 1.0f);
}

void TestMixer::emptyBufferUpdatesStateOnly()
{
    const AGCState state{0.2f, 0.2f, 1.0f, 1.0f};
    const auto r = mixWithGainControl({}, {}, true, state);
    QVERIFY(r.samples.empty());
    QCOMPARE(r.state.micRMS, 0.95f * 0.2f); // instant level 0 for n = 0
}

void TestMixer::unequalLengthsMixCommonPrefix()
{
#ifndef QT_NO_DEBUG
    QSKIP("Unequal lengths are an assertion in debug builds");
#else
    const auto mic = constant(100, 0.1f);
    const auto sys = constant(60, 0.1f);
    std::vector<float> out(100, 7.0f);
    mixWithGainControl(mic, sys, true, AGCState{}, out);
    QVERIFY(out[59] != 7.0f);
    QCOMPARE(out[60], 7.0f); // untouched beyond the common prefix
#endif
}

void TestMixer::streamMicrophoneChoice_data()
{
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<float>("enginePeak");
    QTest::addColumn<float>("scPeak");
    QTest::addColumn<float>("latestMic");
    QTest::addColumn<float>("latestSC");
    QTest::addColumn<bool>("usesSC");
    QTest::newRow("disabled never switches") << false << 0.0f << 0.9f << 0.0f << 0.9f << false;
    QTest::newRow("stream 15 % louder") << true << 0.1f << 0.2f << 0.1f << 0.2f << true;
    QTest::newRow("stream only 10 % louder") << true << 0.1f << 0.11f << 0.1f << 0.11f << false;
    QTest::newRow("engine mic silent, stream hears")
        << true << 0.1f << 0.1f << 0.001f << 0.01f << true;
    QTest::newRow("both quiet, stream not twice")
        << true << 0.1f << 0.1f << 0.002f << 0.003f << false;
}

void TestMixer::streamMicrophoneChoice()
{
    QFETCH(bool, enabled);
    QFETCH(float, enginePeak);
    QFETCH(float, scPeak);
    QFETCH(float, latestMic);
    QFETCH(float, latestSC);
    QFETCH(bool, usesSC);
    auto mic = constant(256, 0.0f);
    mic[10] = -enginePeak;
    auto sc = constant(256, 0.0f);
    sc[20] = scPeak;
    std::vector<float> out(256, 9.0f);
    const MicChoice c = micSamplesForMix(256, {mic, sc, enabled, latestMic, latestSC}, out);
    QCOMPARE(c.usedSCMic, usesSC);
    QCOMPARE(out[10], usesSC ? 0.0f : -enginePeak);
    QCOMPARE(out[20], usesSC ? scPeak : 0.0f);
    // No float data: n zeros.
    micSamplesForMix(256, {{}, sc, enabled, latestMic, latestSC}, out);
    QCOMPARE(out[20], 0.0f);
}

namespace {
struct EngineFixture {
    QTemporaryDir dir;
    AudioEngine engine;
    QString path = dir.filePath(QStringLiteral("rec.wav"));
    std::vector<AudioEngineUpdate> updates;
    std::vector<double> meterTimes;
    std::function<double()> clock;
    std::vector<AudioBuffer> delivered;

    void open(bool systemActive)
    {
        engine.setMixedBufferCallback([this](const AudioBuffer& b) { delivered.push_back(b); });
        engine.audioQueue().postAndWait([&] {
            engine.resetMixState();
            QVERIFY(engine.openOutputFile(path));
            engine.setUpdateHandler([this](const AudioEngineUpdate& u) {
                updates.push_back(u);
                if (clock && u.kind == AudioEngineUpdate::Kind::Meters)
                    meterTimes.push_back(clock());
            });
            engine.setSystemAudioActiveFlag(systemActive);
        });
    }
    void onQueue(const std::function<void()>& fn) { engine.audioQueue().postAndWait(fn); }
    std::vector<float> readBack()
    {
        onQueue([&] { engine.closeOutputFile(); });
        SF_INFO info{};
        SNDFILE* f = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
        if (!f)
            return {};
        std::vector<float> out(size_t(info.frames));
        sf_readf_float(f, out.data(), info.frames);
        sf_close(f);
        return out;
    }
};
} // namespace

void TestMixer::micOnlyPathLimitsInPlaceWithoutCounting()
{
    EngineFixture fx;
    fx.open(false);
    fx.onQueue([&] {
        AudioBuffer b;
        b.samples = {0.1f, 0.95f, -2.0f};
        fx.engine.systemBuffer().write(constant(3, 0.5f));
        fx.engine.mixAndWrite(b);
        QCOMPARE(b.samples[0], 0.1f);
        QCOMPARE(b.samples[1], float(std::tanh(double(0.95f))));
        QCOMPARE(fx.engine.writeCount(), qint64(0));
        // The system ring buffer is not drained in microphone-only mode.
        QCOMPARE(fx.engine.systemBuffer().count(), qint64(3));
    });
    QCOMPARE(fx.delivered.size(), size_t(1));
    const auto file = fx.readBack();
    QCOMPARE(file.size(), size_t(3));
    QCOMPARE(file[2], float(std::tanh(-2.0)));
}

void TestMixer::systemActivePathPadsCountsWritesDelivers()
{
    EngineFixture fx;
    fx.open(true);
    const auto mic = sine(4096, 0.02f, 1000.0f);
    const auto sys = sine(1000, 0.05f, 440.0f); // less than a buffer: padded with silence
    fx.onQueue([&] {
        fx.engine.receiveSystemAudio(sys, peakLevel(sys));
        AudioBuffer b;
        b.samples = mic;
        b.hostTimeNs = 123;
        fx.engine.processMicBuffer(b, peakLevel(mic));
        QCOMPARE(fx.engine.writeCount(), qint64(1));
        QCOMPARE(fx.engine.systemBuffer().count(), qint64(0));
    });
    QCOMPARE(fx.delivered.size(), size_t(1));
    QCOMPARE(fx.delivered[0].hostTimeNs, qint64(123));
    const auto expected = mixWithGainControl(
        mic,
        [&] {
            auto padded = sys;
            padded.resize(4096, 0.0f);
            return padded;
        }(),
        true, AGCState{});
    QCOMPARE(fx.delivered[0].samples, expected.samples);
    QCOMPARE(fx.readBack(), expected.samples);
}

void TestMixer::logCadence()
{
    QStringList lines;
    setLogSink([&](const QString& l) { lines << l; });
    EngineFixture fx;
    fx.open(true);
    fx.onQueue([&] {
        AudioBuffer b;
        for (int i = 0; i < 1000; ++i) {
            b.samples = constant(16, 0.01f);
            fx.engine.mixAndWrite(b);
        }
    });
    setLogSink({});
    QList<int> mixes, writes;
    for (const QString& l : lines) {
        if (l.startsWith(QStringLiteral("🔊 Mix #")))
            mixes << l.section(QLatin1Char('#'), 1).section(QLatin1Char(':'), 0, 0).toInt();
        if (l.startsWith(QStringLiteral("📝 Write #")))
            writes << l.section(QLatin1Char('#'), 1).section(QLatin1Char(':'), 0, 0).toInt();
    }
    QCOMPARE(mixes, (QList<int>{1, 2, 3, 4, 5, 500, 1000}));
    QCOMPARE(writes, (QList<int>{1, 2, 3, 500, 1000}));
    QVERIFY(lines.contains(QStringLiteral("📝 Write #500: 16 frames, file length: 8000")));
    QVERIFY(lines.contains(
        QStringLiteral("🔊 Mix #1: micRMS=0.00300 sysRMS=0.00000 micGain=2.5x sysGain=1.00x")));
}

void TestMixer::metersAtMostThirtyPerSecond()
{
    EngineFixture fx;
    double now = 1000.0;
    fx.clock = [&] { return now; };
    fx.engine.setUptimeClock(fx.clock);
    fx.open(true);
    fx.onQueue([&] {
        // 300 buffers and 300 system chunks within one simulated second.
        for (int i = 0; i < 300; ++i) {
            now += 1.0 / 300.0;
            AudioBuffer b;
            b.samples = constant(8, 0.3f);
            fx.engine.receiveSystemAudio(constant(8, 0.2f), 0.2f);
            fx.engine.processMicBuffer(b, 0.3f);
        }
    });
    // The handler ran synchronously on the queue, so meterTimes holds the
    // clock at each emission: never two within 1/30 s, and they keep coming.
    QVERIFY2(fx.meterTimes.size() >= 25 && fx.meterTimes.size() <= 30,
             qPrintable(QString::number(fx.meterTimes.size())));
    for (size_t i = 1; i < fx.meterTimes.size(); ++i)
        QVERIFY(fx.meterTimes[i] - fx.meterTimes[i - 1] >= 1.0 / 30.0);
    const auto& last = fx.updates.back();
    QCOMPARE(last.meters.mic, 0.3f);
    QCOMPARE(last.meters.system, 0.2f);
    QCOMPARE(last.meters.peakWindowMax, 0.3f);
}

void TestMixer::noOutputFileDropsBuffers()
{
    AudioEngine engine;
    size_t delivered = 0;
    engine.setMixedBufferCallback([&](const AudioBuffer&) { ++delivered; });
    engine.audioQueue().postAndWait([&] {
        engine.resetMixState();
        engine.setSystemAudioActiveFlag(true);
        AudioBuffer b;
        b.samples = constant(8, 0.1f);
        engine.mixAndWrite(b);
        QCOMPARE(engine.writeCount(), qint64(0));
    });
    QCOMPARE(delivered, size_t(0));
}

QTEST_GUILESS_MAIN(TestMixer)
#include "tst_mixer.moc"
