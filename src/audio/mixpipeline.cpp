#include "mixpipeline.h"

#include "audio/mixer.h"
#include "core/log.h"
#include "core/monotonicclock.h"

#include <QCoreApplication>

#include <algorithm>

namespace sorv {

QString MixPipeline::WriteFailure::message() const
{
    const QString saved =
        framesSaved > 0
            ? QCoreApplication::translate("MixPipeline", "The first %1 s are saved in %2.")
                  .arg(QString::number(secondsSaved(), 'f', 1), path)
            : QCoreApplication::translate("MixPipeline", "Nothing could be saved.");
    if (diskFull)
        return QCoreApplication::translate("MixPipeline", "Recording stopped: the disk is full. ") +
               saved;
    return QCoreApplication::translate(
               "MixPipeline", "Recording stopped: the recording could not be written (%1). ")
               .arg(reason) +
           saved;
}

double MixPipeline::monotonicSeconds()
{
    return static_cast<double>(monotonicNowNs()) / static_cast<double>(kNsPerSecond);
}

MixPipeline::MixPipeline(Clock clock) : m_clock(std::move(clock)) {}

bool MixPipeline::openOutput(const QString& path, QString* error)
{
    m_writeFailed = false;
    if (m_output.open(path, static_cast<int>(kCommonSampleRate), static_cast<int>(kCommonChannels)))
        return true;
    if (error)
        *error = m_output.diskFull()
                     ? QCoreApplication::translate(
                           "MixPipeline",
                           "The recording file %1 could not be created: the disk is full.")
                           .arg(path)
                     : QCoreApplication::translate("MixPipeline",
                                                   "The recording file %1 could not be created: %2")
                           .arg(path, m_output.errorString());
    return false;
}

std::int64_t MixPipeline::closeOutput()
{
    const std::int64_t frames = m_output.frames();
    m_output.close();
    return frames;
}

void MixPipeline::reset()
{
    m_agc = AGCState{};
    m_writeCount = 0;
    m_micBufferCount = 0;
    m_systemAudioActive = false;
    m_writeFailed = false;
    m_frameLimit = 0;
    m_limitReached = false;
    m_onLimit = {};
    m_micPeakWindowMax = 0.0f;
    m_lastMetersEmittedAt = 0.0;
    m_systemBuffer.clear();
}

void MixPipeline::setFrameLimit(std::int64_t frames, std::function<void()> onLimit)
{
    m_frameLimit = std::max<std::int64_t>(frames, 0);
    m_limitReached = false;
    m_onLimit = std::move(onLimit);
}

void MixPipeline::receiveSystemAudio(std::span<const float> samples, float peak)
{
    m_systemBuffer.write(samples);
    m_latestSystemLevel = peak;
    emitMetersIfDue();
}

void MixPipeline::processMicBuffer(AudioBuffer& buffer, float peak)
{
    m_latestMicLevel = peak;
    m_micPeakWindowMax = std::max(m_micPeakWindowMax, peak);
    ++m_micBufferCount;
    if (logThinned(m_micBufferCount, 5))
        consoleLog(QStringLiteral("🎤 Mic buffer #%1: frames=%2, peak=%3")
                       .arg(m_micBufferCount)
                       .arg(buffer.frameLength())
                       .arg(QString::asprintf("%.6f", static_cast<double>(peak))));
    mix(buffer);
    emitMetersIfDue();
}

bool MixPipeline::write(std::span<const float> samples, bool mixed)
{
    if (m_writeFailed)
        return false;
    if (m_output.write(samples))
        return true;
    m_writeFailed = true;
    WriteFailure failure{m_output.path(), m_output.errorString(), m_output.diskFull(),
                         m_output.frames()};
    consoleLog(
        mixed ? QStringLiteral("❌ Write error at #%1: %2").arg(m_writeCount).arg(failure.reason)
              : QCoreApplication::translate("MixPipeline", "Write error: %1").arg(failure.reason));
    if (m_writeFailureSink)
        m_writeFailureSink(failure);
    return false;
}

void MixPipeline::mix(AudioBuffer& buffer)
{
    if (!m_output.isOpen()) {
        if (m_writeCount >= 1 && m_writeCount % 100 == 0)
            consoleLog(QStringLiteral("⚠️ outputFile is nil, can't write (writeCount=%1)")
                           .arg(m_writeCount));
        return;
    }
    if (m_limitReached)
        return;
    // A duration limit cuts the last buffer to the exact frame.
    if (m_frameLimit > 0) {
        const std::int64_t room = m_frameLimit - m_output.frames();
        if (buffer.frameLength() > room)
            buffer.samples.resize(static_cast<size_t>(std::max<std::int64_t>(room, 0)));
    }

    const AudioBuffer* out = &buffer;
    if (!m_systemAudioActive) {
        // Microphone only: no gain control, just keep it inside full scale.
        softLimit(buffer.samples);
        write(buffer.samples, false);
    } else {
        const auto n = static_cast<size_t>(buffer.frameLength());
        m_sysScratch.resize(n);
        const auto got = static_cast<size_t>(m_systemBuffer.read(std::span<float>(m_sysScratch)));
        std::fill(m_sysScratch.begin() + static_cast<std::ptrdiff_t>(got), m_sysScratch.end(),
                  0.0f);

        // Linux has no second microphone source, so the engine's own always
        // wins the choice; the choice is still made the one way it is made.
        m_micScratch.resize(n);
        micSamplesForMix(static_cast<std::int64_t>(n), {buffer.samples, {}, false, 0.0f, 0.0f},
                         m_micScratch);

        // Consumers copy what they keep, so one output buffer serves every mix.
        m_mixed.samples.resize(n);
        m_mixed.hostTimeNs = buffer.hostTimeNs;
        m_agc = mixWithGainControl(m_micScratch, m_sysScratch, true, m_agc, m_mixed.samples);

        ++m_writeCount;
        if (logThinned(m_writeCount, 5))
            consoleLog(QString::asprintf(
                "🔊 Mix #%lld: micRMS=%.5f sysRMS=%.5f micGain=%.1fx sysGain=%.2fx",
                static_cast<long long>(m_writeCount), static_cast<double>(m_agc.micRMS),
                static_cast<double>(m_agc.sysRMS), static_cast<double>(m_agc.micGainSmoothed),
                static_cast<double>(m_agc.sysGainSmoothed)));
        if (write(m_mixed.samples, true) && logThinned(m_writeCount, 3))
            consoleLog(QStringLiteral("📝 Write #%1: %2 frames, file length: %3")
                           .arg(m_writeCount)
                           .arg(n)
                           .arg(m_output.frames()));
        out = &m_mixed;
    }

    if (m_mixedSink && out->frameLength() > 0)
        m_mixedSink(*out);

    if (m_frameLimit > 0 && !m_limitReached && m_output.frames() >= m_frameLimit) {
        m_limitReached = true;
        if (m_onLimit)
            m_onLimit();
    }
}

void MixPipeline::emitMetersIfDue()
{
    const double now = m_clock();
    if (now - m_lastMetersEmittedAt < kMetersIntervalSeconds)
        return;
    m_lastMetersEmittedAt = now;
    AudioMeters meters;
    meters.mic = m_latestMicLevel;
    meters.system = m_latestSystemLevel;
    meters.peakWindowMax = m_micPeakWindowMax;
    if (m_metersSink)
        m_metersSink(meters);
}

} // namespace sorv
