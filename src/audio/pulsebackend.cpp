#include "pulsebackend.h"

#include "audio/pulsecontext.h"

namespace sorv {

std::unique_ptr<CaptureBackend::Connection> PulseBackend::connect(const QString& clientName,
                                                                  ConnectError* error,
                                                                  QString* message, int timeoutMs)
{
    auto context = std::make_unique<PulseContext>();
    if (!context->connect(clientName, error, message, timeoutMs))
        return nullptr;
    return context;
}

std::shared_ptr<CaptureBackend> PulseBackend::shared()
{
    // Stateless: one instance serves every engine and monitor.
    static const auto backend = std::make_shared<PulseBackend>();
    return backend;
}

} // namespace sorv
