#pragma once

#include "audio/audioengine.h"
#include "audio/capturebackend.h"
#include "core/delayedcall.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace sorv::test {

// Time for an engine under test: its clock and its waits, moved only by the
// test. Waits may be asked for from any thread; they run on the thread that
// moves the clock (the engine posts them to its queue).
class ManualClock {
public:
    double seconds() const;
    std::int64_t nanoseconds() const;
    DelayedCall delayedCall();
    // Moves time on, running the waits that fall due in order of due time.
    void advance(std::chrono::nanoseconds by);

private:
    struct Wait {
        std::int64_t dueNs;
        std::uint64_t serial;
        std::function<void()> fn;
    };
    mutable std::mutex m_lock;
    std::int64_t m_nowNs = 100'000'000'000; // far from 0, so stamps minus a latency stay positive
    std::uint64_t m_serial = 0;
    std::vector<Wait> m_waits;
};

// A sound server in the test's hands. Microphones and outputs (sinks, each
// with its monitor source) come and go as the test says, every change is
// reported to the subscribed connections as the server would, and pump()
// plays the part of the sound cards: each stream that records gets a chunk
// of its source's tone and the clock moves on by the chunk's length.
class FakeCaptureBackend : public CaptureBackend,
                           public std::enable_shared_from_this<FakeCaptureBackend> {
public:
    static constexpr std::uint32_t kChunkFrames = AudioEngine::kFramesPerBuffer;

    static std::shared_ptr<FakeCaptureBackend> create();

    // A microphone hearing a tone of `frequency` Hz.
    void addMicrophone(const QString& name, const QString& description, double frequency = 1000,
                       float level = 0.3f);
    // An output whose monitor carries a tone of `frequency` Hz.
    void addOutput(const QString& name, const QString& description, double frequency = 440,
                   float level = 0.3f);
    // A source or an output (with its monitor) goes; its streams fail.
    void remove(const QString& name);
    // Gone and back under the same name, as a Bluetooth profile switch does.
    void recreate(const QString& name);
    void setDefaultSource(const QString& name);
    void setDefaultSink(const QString& name);
    // What a source (or an output's monitor) hears; 0 is silence.
    void setLevel(const QString& name, float level);
    // A held source keeps its streams but delivers nothing.
    void setHeld(const QString& name, bool held);
    // The latency the server reports for the source's streams.
    void setLatency(const QString& name, std::chrono::milliseconds latency);
    // The next `times` streams on the source fail to start.
    void refuseStreams(const QString& source, int times, bool accessDenied,
                       const QString& message = QStringLiteral("Access denied"));

    // Down: every connection breaks and every stream fails; nothing answers
    // until it is up again, with the devices it then has.
    void setRunning(bool running);

    void pump(int chunks = 1);

    // Sources of the streams that record now, in the order they were opened.
    QStringList recordedSources() const;
    int streamsOpened(const QString& source) const;

    ManualClock& clock() { return *m_clock; }
    // The application's timing, on this server and this clock.
    AudioEngine::Options engineOptions();

    std::unique_ptr<Connection> connect(const QString& clientName, ConnectError* error,
                                        QString* message, int timeoutMs) override;

    struct Device;
    struct StreamState;
    struct ConnectionState;
    struct State;

private:
    FakeCaptureBackend();
    std::shared_ptr<State> m_state;
    std::shared_ptr<ManualClock> m_clock;
};

} // namespace sorv::test
