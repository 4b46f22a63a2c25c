#pragma once

#include <QObject>

#include <initializer_list>
#include <memory>

class QSocketNotifier;

namespace sorv {

// Turns POSIX signals into a Qt signal on the thread that made the notifier.
// The handler itself only writes the signal's number to a pipe (all a signal
// handler may safely do); the event loop reads it and emits received().
// One notifier at a time per process; the previous handlers are restored
// when it goes.
class SignalNotifier : public QObject {
    Q_OBJECT
public:
    explicit SignalNotifier(std::initializer_list<int> signalNumbers, QObject* parent = nullptr);
    ~SignalNotifier() override;

    bool isValid() const { return m_valid; }

Q_SIGNALS:
    void received(int signalNumber);

private:
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::unique_ptr<struct SignalNotifierSaved> m_saved;
    bool m_valid = false;
};

} // namespace sorv
