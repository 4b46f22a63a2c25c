#pragma once

#include "localservice/localservice.h"

#include <QTemporaryDir>

#include <memory>

namespace sorv::test {

// The local service running in this process on an ephemeral loopback port,
// with its own data directory, and made the run's server origin.
class LocalServiceFixture {
public:
    explicit LocalServiceFixture(local::LocalService::Options options = {});
    ~LocalServiceFixture();

    local::LocalService& service() { return *m_service; }
    local::LocalService* operator->() { return m_service.get(); }
    QString origin() const { return m_origin; }
    QString dataDirectory() const { return m_options.dataDirectory; }

    // Stops it (connections are closed; requests now fail to connect).
    void stop();
    // A new instance on the same port and data directory.
    void restart();

private:
    local::LocalService::Options m_options;
    QTemporaryDir m_data;
    std::unique_ptr<local::LocalService> m_service;
    QString m_origin;
    std::uint16_t m_port = 0;
};

} // namespace sorv::test
