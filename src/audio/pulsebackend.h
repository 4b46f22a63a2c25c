#pragma once

#include "audio/capturebackend.h"

#include <memory>

namespace sorv {

// The sound server through libpulse: PulseAudio itself or PipeWire's pulse
// server. Each connection has its own main-loop thread (PulseContext).
class PulseBackend : public CaptureBackend {
public:
    std::unique_ptr<Connection> connect(const QString& clientName, ConnectError* error,
                                        QString* message, int timeoutMs) override;

    // The one the application uses.
    static std::shared_ptr<CaptureBackend> shared();
};

} // namespace sorv
