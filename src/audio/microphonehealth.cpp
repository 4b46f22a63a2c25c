#include "microphonehealth.h"

#include "core/log.h"

#include <QCoreApplication>

namespace sorv {

MicrophoneHealth::MicrophoneHealth(Microphone& microphone, Clock clock, Timing timing)
    : m_mic(microphone), m_clock(std::move(clock)), m_timing(timing)
{}

QString MicrophoneHealth::silenceMessage()
{
    return QCoreApplication::translate(
        "MicrophoneHealth",
        "The selected microphone is returning silence. Another app (e.g. WhatsApp, Zoom, Teams) "
        "may have exclusive voice processing on this mic. Try switching input devices, or quit "
        "the other app.");
}

QString MicrophoneHealth::fatalMessage()
{
    return QCoreApplication::translate("MicrophoneHealth",
                                       "Microphone engine could not be restarted after %1 attempts")
        .arg(kMaxRestarts);
}

void MicrophoneHealth::report(const AudioEngineUpdate& update) const
{
    if (m_report)
        m_report(update);
}

void MicrophoneHealth::start()
{
    const double now = m_clock();
    m_running = true;
    m_lastBufferCount = m_mic.bufferCount();
    m_restartCount = 0;
    m_stallRestarts = 0;
    setUp(now);
    m_silenceRecoveryAttempts = 0;
    m_graceStart = now;
    m_windowStart = now;
    m_isMicSilent = false;
    m_mic.resetWindowPeak();
}

void MicrophoneHealth::setUp(double at)
{
    m_setUpAt = at;
    m_bufferCountAtSetUp = m_mic.bufferCount();
}

void MicrophoneHealth::restarted(double at)
{
    // A new microphone set-up opens a new window (its peak starts at 0). It
    // opens when the restart was decided: the time the restart itself takes
    // must not push every later window one tick further out.
    m_windowStart = at;
    setUp(at);
}

void MicrophoneHealth::deviceSwitched()
{
    const double now = m_clock();
    m_isMicSilent = false;
    m_silenceRecoveryAttempts = 0;
    m_graceStart = now;
    m_windowStart = now;
    m_mic.resetWindowPeak();
    setUp(now);
}

void MicrophoneHealth::resumed()
{
    const double now = m_clock();
    m_lastBufferCount = m_mic.bufferCount();
    m_graceStart = now;
    m_windowStart = now;
    m_mic.resetWindowPeak();
    setUp(now);
}

void MicrophoneHealth::configurationChanged()
{
    if (!m_running)
        return;
    consoleLog(QStringLiteral("⚠️ Audio engine configuration changed — scheduling restart"));
    const double now = m_clock();
    if (const auto error = m_mic.restart()) {
        consoleLog(QStringLiteral("❌ Failed to restart mic engine: %1").arg(*error));
        return;
    }
    restarted(now);
    // Counted and reported, but no stall: they never end the recording.
    ++m_restartCount;
    consoleLog(
        QStringLiteral("✅ Mic engine restarted after config change (#%1)").arg(m_restartCount));
    report(AudioEngineUpdate::micEngineRestarted(m_restartCount));
}

void MicrophoneHealth::tick()
{
    if (!m_running)
        return;
    const std::int64_t count = m_mic.bufferCount();
    const double now = m_clock();

    const bool awaitingFirstBuffer =
        count == m_bufferCountAtSetUp && now - m_setUpAt < m_timing.firstBufferSeconds;
    std::optional<QString> reason;
    const QString notRunning = QStringLiteral("engine not running");
    if (!m_mic.hasEngine() || !m_mic.engineRunning())
        reason = notRunning;
    else if (count == m_lastBufferCount && !awaitingFirstBuffer)
        reason = QStringLiteral("no new buffers in %1s")
                     .arg(static_cast<double>(m_timing.watchdogPeriod.count()) / 1000.0);

    if (reason) {
        consoleLog(QStringLiteral("🚨 Mic watchdog: %1, restarting mic engine").arg(*reason));
        ++m_restartCount;
        ++m_stallRestarts;
        if (m_stallRestarts <= kMaxRestarts) {
            if (const auto error = m_mic.restart()) {
                // The buffer count seen stays as it was: the next tick tries again.
                consoleLog(QStringLiteral("❌ Mic watchdog: restart failed: %1").arg(*error));
                return;
            }
            restarted(now);
            consoleLog(
                QStringLiteral("✅ Mic watchdog: engine restarted (#%1)").arg(m_restartCount));
            report(AudioEngineUpdate::micEngineRestarted(m_restartCount));
            m_lastBufferCount = count;
            return;
        }
        // Given up; the recording goes on, and every tick that finds the
        // microphone still stalled says so again.
        consoleLog(QStringLiteral("❌ Mic watchdog: too many restarts (%1), giving up")
                       .arg(m_stallRestarts));
        m_lastBufferCount = count;
        report(AudioEngineUpdate::fatalError(fatalMessage()));
        return;
    }
    m_lastBufferCount = count;
    // Nothing to judge until the microphone has said something.
    if (awaitingFirstBuffer)
        return;
    if (m_graceStart && now - *m_graceStart < m_timing.graceSeconds)
        return;
    if (!m_windowStart)
        m_windowStart = now;
    // Windows are whole numbers of ticks, and ticks come a little late by
    // varying amounts: without some slack a window would close one tick late
    // whenever its first tick was later than its last.
    const double slack = 0.25 * static_cast<double>(m_timing.watchdogPeriod.count()) / 1000.0;
    if (now - *m_windowStart < m_timing.silenceWindowSeconds - slack)
        return;
    const float windowPeak = m_mic.windowPeak();
    m_windowStart = now;
    m_mic.resetWindowPeak();
    if (windowPeak >= kSilenceThreshold) {
        if (m_isMicSilent) {
            consoleLog(QStringLiteral("✅ Mic recovered: peak %1 above threshold")
                           .arg(QString::asprintf("%.5f", static_cast<double>(windowPeak))));
            m_isMicSilent = false;
            m_silenceRecoveryAttempts = 0;
            report(AudioEngineUpdate::micSilent(false, std::nullopt));
        }
        return;
    }
    handleMicSilence(windowPeak, now);
}

void MicrophoneHealth::handleMicSilence(float windowPeak, double now)
{
    consoleLog(QStringLiteral("🔇 Mic silence detected: windowPeak=%1 for %2s")
                   .arg(QString::asprintf("%.6f", static_cast<double>(windowPeak)))
                   .arg(QString::number(m_timing.silenceWindowSeconds, 'f', 1)));
    if (m_silenceRecoveryAttempts < kSilenceResets) {
        ++m_silenceRecoveryAttempts;
        consoleLog(QStringLiteral("🔄 Mic silence recovery attempt #%1: hard-resetting mic engine")
                       .arg(m_silenceRecoveryAttempts));
        if (const auto error = m_mic.restart())
            consoleLog(QStringLiteral("❌ Mic silence recovery restart failed: %1").arg(*error));
        else
            restarted(now);
        return;
    }
    if (m_isMicSilent)
        return;
    m_isMicSilent = true;
    consoleLog(QStringLiteral("❌ Mic silence recovery exhausted — surfacing error to UI"));
    report(AudioEngineUpdate::micSilent(true, silenceMessage()));
}

} // namespace sorv
