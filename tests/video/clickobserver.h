#pragma once

#include <QString>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace sorv::test {

// Listens to one PulseAudio source in 2.5 ms fragments and notes the
// CLOCK_MONOTONIC moment each click reaches it: when a stimulus really
// arrived, measured beside the recorder under test and independent of it.
// A click is the first sample above `threshold` after at least 0.3 s below.
class ClickObserver {
public:
    ClickObserver(const QString& server, const QString& source, float threshold = 0.1f);
    ~ClickObserver();
    ClickObserver(const ClickObserver&) = delete;
    ClickObserver& operator=(const ClickObserver&) = delete;

    // False (with errorString()) when the stream could not be opened.
    bool isRunning() const { return m_running; }
    const QString& errorString() const { return m_error; }

    // The onsets seen so far, in order.
    std::vector<std::int64_t> clicks() const;

private:
    void run(void* stream);

    float m_threshold;
    bool m_running = false;
    QString m_error;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
    mutable std::mutex m_lock;
    std::vector<std::int64_t> m_clicks;
};

} // namespace sorv::test
