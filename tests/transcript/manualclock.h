#pragma once

#include "transcript/liveaudiostreamer.h"

#include <QList>

#include <chrono>
#include <functional>
#include <mutex>
#include <vector>

namespace sorv::test {

// A clock for LiveAudioStreamer that moves only when the test says: the
// streamer's delays (back-off, keepalive, the stop's grace) are recorded
// and run when advance() passes them.
class ManualClock {
public:
    using Clock = LiveAudioStreamer::Clock;

    LiveAudioStreamer::Timing timing()
    {
        return {[this] { return now(); },
                [this](std::chrono::milliseconds delay, std::function<void()> fn) {
                    std::lock_guard lock(m_mutex);
                    m_requests.push_back(delay.count());
                    m_pending.push_back({m_now + delay, m_serial++, std::move(fn)});
                }};
    }

    Clock::time_point now() const
    {
        std::lock_guard lock(m_mutex);
        return m_now;
    }

    // Called after each function that advance() runs, to wait until its
    // effect is done (e.g. a synchronous round trip through the streamer's
    // queue), so that what it schedules in turn is seen.
    void setSettle(std::function<void()> settle) { m_settle = std::move(settle); }

    // Moves time on, running what falls due, in order of their due time.
    void advance(std::chrono::milliseconds by)
    {
        const Clock::time_point until = now() + by;
        for (;;) {
            std::function<void()> fn;
            {
                std::lock_guard lock(m_mutex);
                auto next = m_pending.end();
                for (auto it = m_pending.begin(); it != m_pending.end(); ++it) {
                    if (it->due <= until && (next == m_pending.end() || it->due < next->due ||
                                             (it->due == next->due && it->serial < next->serial)))
                        next = it;
                }
                if (next == m_pending.end()) {
                    m_now = until;
                    return;
                }
                m_now = std::max(m_now, next->due);
                fn = std::move(next->fn);
                m_pending.erase(next);
            }
            fn();
            if (m_settle)
                m_settle();
        }
    }

    // Every delay asked for so far, in milliseconds, in order.
    QList<qint64> requests() const
    {
        std::lock_guard lock(m_mutex);
        return m_requests;
    }
    // The same without the keepalive's 15 s ticks and 10 s waits for a pong.
    QList<qint64> requestsBesidesKeepalive() const
    {
        QList<qint64> out;
        for (qint64 ms : requests())
            if (ms != 15000 && ms != 10000)
                out << ms;
        return out;
    }

private:
    struct Pending {
        Clock::time_point due;
        std::uint64_t serial = 0;
        std::function<void()> fn;
    };
    mutable std::mutex m_mutex;
    Clock::time_point m_now{std::chrono::hours(1000)};
    std::uint64_t m_serial = 0;
    std::vector<Pending> m_pending;
    QList<qint64> m_requests;
    std::function<void()> m_settle;
};

} // namespace sorv::test
