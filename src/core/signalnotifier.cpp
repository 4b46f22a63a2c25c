#include "signalnotifier.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace sorv {

struct SignalNotifierSaved {
    std::vector<std::pair<int, struct sigaction>> handlers;
};

namespace {

int g_pipe[2] = {-1, -1};

void onSignal(int signalNumber)
{
    const int saved = errno;
    const auto byte = static_cast<unsigned char>(signalNumber);
    [[maybe_unused]] const auto n = ::write(g_pipe[1], &byte, 1);
    errno = saved;
}

} // namespace

SignalNotifier::SignalNotifier(std::initializer_list<int> signalNumbers, QObject* parent)
    : QObject(parent), m_saved(std::make_unique<SignalNotifierSaved>())
{
    if (g_pipe[0] < 0 && ::pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    for (const int number : signalNumbers) {
        struct sigaction action {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        struct sigaction previous {};
        if (::sigaction(number, &action, &previous) != 0)
            return;
        m_saved->handlers.emplace_back(number, previous);
    }
    m_notifier = std::make_unique<QSocketNotifier>(g_pipe[0], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] {
        unsigned char byte = 0;
        while (::read(g_pipe[0], &byte, 1) == 1)
            Q_EMIT received(byte);
    });
    m_valid = true;
}

SignalNotifier::~SignalNotifier()
{
    for (const auto& [number, previous] : m_saved->handlers)
        ::sigaction(number, &previous, nullptr);
}

} // namespace sorv

#include "moc_signalnotifier.cpp"
