#pragma once

#include <QObject>
#include <QPointer>

#include <functional>

namespace sorv {

// Runs `fn` on the application's main thread, later (never synchronously),
// unless `context` is gone by then. Callable from any thread; take the
// QPointer on the main thread, where the context lives and dies.
//
// The hand-over goes through a std::mutex and a doorbell event that carries
// nothing: ThreadSanitizer sees every value that crosses (Debian's Qt is not
// built with it, so a functor queued through Qt's own event queue would look
// like a race to it).
void postToMainThread(const QPointer<const QObject>& context, std::function<void()> fn);

} // namespace sorv
