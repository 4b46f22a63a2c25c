#pragma once

#include "core/delayedcall.h"

#include <QList>

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace sorv::test {

// A DelayedCall whose time moves only when the test says: the delays asked
// for are recorded, and their functions run when advance() passes them.
// Main thread only.
class ManualDelays {
public:
    DelayedCall delayedCall()
    {
        return [state = m_state](std::chrono::milliseconds delay, std::function<void()> fn) {
            state->requests.append(delay.count());
            state->pending.push_back({state->now + delay, state->serial++, std::move(fn)});
        };
    }

    // Moves time on, running what falls due in order of due time.
    void advance(std::chrono::milliseconds by)
    {
        const std::chrono::milliseconds until = m_state->now + by;
        for (;;) {
            auto next = m_state->pending.end();
            for (auto it = m_state->pending.begin(); it != m_state->pending.end(); ++it) {
                if (it->due <= until && (next == m_state->pending.end() || it->due < next->due ||
                                         (it->due == next->due && it->serial < next->serial)))
                    next = it;
            }
            if (next == m_state->pending.end()) {
                m_state->now = until;
                return;
            }
            m_state->now = next->due;
            std::function<void()> fn = std::move(next->fn);
            m_state->pending.erase(next);
            fn();
        }
    }

    // Every delay asked for so far, in milliseconds, in order.
    QList<qint64> requests() const { return m_state->requests; }
    int pendingCount() const { return static_cast<int>(m_state->pending.size()); }

private:
    struct Pending {
        std::chrono::milliseconds due;
        std::uint64_t serial = 0;
        std::function<void()> fn;
    };
    struct State {
        std::chrono::milliseconds now{0};
        std::uint64_t serial = 0;
        std::vector<Pending> pending;
        QList<qint64> requests;
    };
    std::shared_ptr<State> m_state = std::make_shared<State>();
};

} // namespace sorv::test
