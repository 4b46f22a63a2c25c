#pragma once

#include "audio/audiotypes.h"

#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

namespace sorv {

// Keeps a recording's microphone alive: restarts it when its configuration
// changes, when the watchdog finds it stalled (at most five times, then the
// fatal report, repeated while it stays stalled), and when it delivers only
// silence (two hard resets per silent stretch, then the silent-microphone
// report, and the recovery report once sound returns).
//
// A microphone just set up is not stalled before its first buffer, for a
// while: a Bluetooth headset or a source waking from suspension takes a
// second or two to deliver. Restarts for a change of device do not use up
// the stall restarts: a user switching headsets is no failing microphone.
//
// It decides; the microphone it watches acts. Single-threaded: the engine
// drives it from its audio queue (the watchdog's timer lives there), tests
// drive it with a clock of their own.
class MicrophoneHealth {
public:
    // The microphone path being watched.
    class Microphone {
    public:
        virtual ~Microphone() = default;
        // Buffers delivered since the recording started (never reset by a restart).
        virtual std::int64_t bufferCount() const = 0;
        // A capture stream exists / exists and records.
        virtual bool hasEngine() const = 0;
        virtual bool engineRunning() const = 0;
        // The loudest peak since the window was last reset.
        virtual float windowPeak() const = 0;
        virtual void resetWindowPeak() = 0;
        // Tears the microphone down and sets it up again (its window peak
        // starts at 0); the error's text when that fails.
        virtual std::optional<QString> restart() = 0;
    };

    struct Timing {
        std::chrono::milliseconds watchdogPeriod{1000};
        double graceSeconds = 2.0;
        double silenceWindowSeconds = 5.0;
        // How long a microphone just set up may take to deliver its first buffer.
        double firstBufferSeconds = 3.0;
    };

    static constexpr float kSilenceThreshold = 0.002f;
    static constexpr std::int64_t kMaxRestarts = 5;
    static constexpr std::int64_t kSilenceResets = 2;

    using Clock = std::function<double()>; // monotonic seconds
    using Reporter = std::function<void(const AudioEngineUpdate&)>;

    MicrophoneHealth(Microphone& microphone, Clock clock, Timing timing);

    void setReporter(Reporter reporter) { m_report = std::move(reporter); }
    const Timing& timing() const { return m_timing; }

    // A recording's microphone runs: counters cleared, grace and window start now.
    void start();
    void stop() { m_running = false; }
    bool isRunning() const { return m_running; }

    // One watchdog period passed.
    void tick();
    // The microphone's source changed under it: restart.
    void configurationChanged();
    // The engine switched to another microphone: the silence checks start
    // over, with a new grace period; the restart count is kept.
    void deviceSwitched();
    // The engine set the microphone up again by itself (the sound server came
    // back): buffers are counted from here, with a new grace period.
    void resumed();

    // Every restart / those for a stall, which the limit counts.
    std::int64_t restartCount() const { return m_restartCount; }
    std::int64_t stallRestartCount() const { return m_stallRestarts; }
    std::int64_t silenceRecoveryAttempts() const { return m_silenceRecoveryAttempts; }
    bool isMicSilent() const { return m_isMicSilent; }

    static QString silenceMessage();
    static QString fatalMessage();

private:
    void report(const AudioEngineUpdate& update) const;
    // The microphone has just been set up: its first buffer is awaited.
    void setUp(double at);
    void restarted(double at);
    void handleMicSilence(float windowPeak, double now);

    Microphone& m_mic;
    Clock m_clock;
    Timing m_timing;
    Reporter m_report;

    bool m_running = false;
    std::int64_t m_lastBufferCount = 0;
    std::int64_t m_restartCount = 0;
    std::int64_t m_stallRestarts = 0;
    double m_setUpAt = 0.0;
    std::int64_t m_bufferCountAtSetUp = 0;
    std::int64_t m_silenceRecoveryAttempts = 0;
    std::optional<double> m_graceStart;
    std::optional<double> m_windowStart;
    bool m_isMicSilent = false;
};

} // namespace sorv
