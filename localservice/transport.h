#pragma once

#include "localservice/serviceoptions.h"

#include <cstdint>
#include <memory>

namespace sorv::local {

class RequestScripts;
class Router;

// HTTP and WebSocket on 127.0.0.1 (Boost.Beast, blocking, a thread per
// connection): requests are read (bodies whole or streamed, with time
// limits), logged, answered from the tests' scripts when one is queued, and
// otherwise handed to the router's endpoints.
class Transport {
public:
    Transport(const ServiceOptions& options, const Router& router, RequestScripts& scripts);
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    // Port 0 picks a free one. False (with the reason) when it cannot listen.
    bool start(std::uint16_t port, QString* error);
    // Closes the listener and every open connection; waits for them.
    void stop();
    bool isListening() const;
    std::uint16_t port() const;

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace sorv::local
