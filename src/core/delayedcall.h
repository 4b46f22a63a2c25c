#pragma once

#include <chrono>
#include <functional>

namespace sorv {

// Runs a function once a delay has passed, on the calling thread's event
// loop. Main-thread controllers that wait (a retry, a pause before moving
// on) take one, so that a test moves time itself instead of waiting. The
// caller guards its function against having gone away in the meantime.
using DelayedCall = std::function<void(std::chrono::milliseconds delay, std::function<void()> fn)>;

// The real one: a single-shot Qt timer.
DelayedCall timerDelayedCall();

} // namespace sorv
