#include "delayedcall.h"

#include <QTimer>

namespace sorv {

DelayedCall timerDelayedCall()
{
    return [](std::chrono::milliseconds delay, std::function<void()> fn) {
        QTimer::singleShot(delay, [fn = std::move(fn)] { fn(); });
    };
}

} // namespace sorv
