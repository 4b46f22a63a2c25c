#include "audioengine.h"

#include "audio/mixer.h"
#include "core/log.h"

#include <QtGlobal>

#include <ctime>

namespace sorv {

AudioEngine::AudioEngine() = default;

AudioEngine::~AudioEngine()
{
    // Let queued work finish before the members it touches go away.
    m_audioQueue.shutdown();
}

double AudioEngine::monotonicUptimeSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    const auto ns = static_cast<std::int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
    return static_cast<double>(ns) / 1e9;
}

void AudioEngine::assertOnQueue() const
{
    Q_ASSERT_X(m_audioQueue.isCurrent(), "AudioEngine", "must run on com.sorvelandrix.audio");
}

void AudioEngine::report(const AudioEngineUpdate& update) const
{
    if (m_onUpdate)
        m_onUpdate(update);
}

void AudioEngine::setMixedBufferCallback(MixedBufferCallback callback)
{
    m_audioQueue.post(
        [this, cb = std::move(callback)]() mutable { m_mixedBufferCallback = std::move(cb); });
}

void AudioEngine::resetMixState()
{
    assertOnQueue();
    m_writeCount = 0;
    m_micBufferCount = 0;
    m_agcState = AGCState{};
    m_lastMetersEmittedAt = 0.0;
    m_systemAudioActiveFlag = false;
    m_micPeakWindowMax = 0.0f;
    m_scMicPeakWindowMax = 0.0f;
    m_systemBuffer.clear();
    m_scMicBuffer.clear();
}

bool AudioEngine::openOutputFile(const QString& path, QString* error)
{
    assertOnQueue();
    auto file = std::make_unique<WavWriter>();
    if (!file->open(path, static_cast<int>(sampleRate), static_cast<int>(channels))) {
        if (error)
            *error = file->errorString();
        m_outputFile.reset();
        m_outputPath.clear();
        return false;
    }
    m_outputFile = std::move(file);
    m_outputPath = path;
    return true;
}

void AudioEngine::closeOutputFile()
{
    assertOnQueue();
    m_outputFile.reset();
    m_outputPath.clear();
}

void AudioEngine::setUpdateHandler(UpdateHandler handler)
{
    assertOnQueue();
    m_onUpdate = std::move(handler);
}

void AudioEngine::setSystemAudioActiveFlag(bool active)
{
    assertOnQueue();
    m_systemAudioActiveFlag = active;
}

void AudioEngine::receiveSystemAudio(std::span<const float> samples, float peak)
{
    assertOnQueue();
    m_systemBuffer.write(samples);
    m_latestSystemLevel = peak;
    emitMetersIfDue();
}

void AudioEngine::receiveSCMicAudio(std::span<const float> samples, float peak)
{
    assertOnQueue();
    if (!m_scMicCaptureEnabled)
        return;
    m_scMicBuffer.write(samples);
    m_latestSCMicLevel = peak;
    m_scMicPeakWindowMax = std::max(m_scMicPeakWindowMax, peak);
    emitMetersIfDue();
}

void AudioEngine::processMicBuffer(AudioBuffer buffer, float peak)
{
    assertOnQueue();
    m_latestMicLevel = peak;
    m_micPeakWindowMax = std::max(m_micPeakWindowMax, peak);
    ++m_micBufferCount;
    if (logThinned(m_micBufferCount, 5))
        consoleLog(QStringLiteral("🎤 Mic buffer #%1: frames=%2, peak=%3")
                       .arg(m_micBufferCount)
                       .arg(buffer.frameLength())
                       .arg(QString::asprintf("%.6f", static_cast<double>(peak))));
    mixAndWrite(buffer);
    emitMetersIfDue();
}

void AudioEngine::mixAndWrite(AudioBuffer& buffer)
{
    assertOnQueue();
    if (!m_outputFile) {
        if (m_writeCount >= 1 && m_writeCount % 100 == 0)
            consoleLog(QStringLiteral("⚠️ outputFile is nil, can't write (writeCount=%1)")
                           .arg(m_writeCount));
        return;
    }

    if (!m_systemAudioActiveFlag) {
        // Microphone only: no gain control, just keep it inside full scale.
        softLimit(buffer.samples);
        if (!m_outputFile->write(buffer.samples))
            consoleLog(QStringLiteral("Write error: %1").arg(m_outputFile->errorString()));
        if (m_mixedBufferCallback)
            m_mixedBufferCallback(buffer);
        return;
    }

    const auto n = static_cast<size_t>(buffer.frameLength());
    m_sysScratch.resize(n);
    const auto got = static_cast<size_t>(m_systemBuffer.read(std::span<float>(m_sysScratch)));
    std::fill(m_sysScratch.begin() + static_cast<std::ptrdiff_t>(got), m_sysScratch.end(), 0.0f);

    std::span<const float> scMic;
    if (m_scMicCaptureEnabled) {
        m_scMicScratch.resize(n);
        const auto scGot =
            static_cast<size_t>(m_scMicBuffer.read(std::span<float>(m_scMicScratch)));
        std::fill(m_scMicScratch.begin() + static_cast<std::ptrdiff_t>(scGot), m_scMicScratch.end(),
                  0.0f);
        scMic = m_scMicScratch;
    }

    m_micScratch.resize(n);
    const MicChoice choice = micSamplesForMix(
        static_cast<std::int64_t>(n),
        {buffer.samples, scMic, m_scMicCaptureEnabled, m_latestMicLevel, m_latestSCMicLevel},
        m_micScratch);
    if (choice.usedSCMic && m_writeCount <= 2)
        consoleLog(QString::asprintf("🎤 Using SCStream mic for mix (enginePeak=%.4f scPeak=%.4f)",
                                     static_cast<double>(choice.enginePeak),
                                     static_cast<double>(choice.scPeak)));

    // Consumers copy what they keep, so one output buffer serves every mix.
    m_mixed.samples.resize(n);
    m_mixed.hostTimeNs = buffer.hostTimeNs;
    m_agcState = mixWithGainControl(m_micScratch, m_sysScratch, true, m_agcState, m_mixed.samples);

    ++m_writeCount;
    if (logThinned(m_writeCount, 5))
        consoleLog(QString::asprintf(
            "🔊 Mix #%lld: micRMS=%.5f sysRMS=%.5f micGain=%.1fx sysGain=%.2fx",
            static_cast<long long>(m_writeCount), static_cast<double>(m_agcState.micRMS),
            static_cast<double>(m_agcState.sysRMS), static_cast<double>(m_agcState.micGainSmoothed),
            static_cast<double>(m_agcState.sysGainSmoothed)));

    if (m_outputFile->write(m_mixed.samples)) {
        if (logThinned(m_writeCount, 3))
            consoleLog(QStringLiteral("📝 Write #%1: %2 frames, file length: %3")
                           .arg(m_writeCount)
                           .arg(n)
                           .arg(m_outputFile->frames()));
    } else {
        consoleLog(QStringLiteral("❌ Write error at #%1: %2")
                       .arg(m_writeCount)
                       .arg(m_outputFile->errorString()));
    }

    if (m_mixedBufferCallback)
        m_mixedBufferCallback(m_mixed);
}

void AudioEngine::emitMetersIfDue()
{
    assertOnQueue();
    const double now = m_uptime();
    if (now - m_lastMetersEmittedAt < m_metersIntervalSeconds)
        return;
    m_lastMetersEmittedAt = now;
    AudioMeters meters;
    meters.mic = std::max(m_latestMicLevel, m_latestSCMicLevel);
    meters.scMic = m_latestSCMicLevel;
    meters.system = m_latestSystemLevel;
    meters.peakWindowMax = std::max(m_micPeakWindowMax, m_scMicPeakWindowMax);
    report(AudioEngineUpdate::makeMeters(meters));
}

} // namespace sorv
