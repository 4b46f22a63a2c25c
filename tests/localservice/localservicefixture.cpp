#include "localservicefixture.h"

#include "core/settings.h"

#include <QtTest>

namespace sorv::test {

LocalServiceFixture::LocalServiceFixture(local::LocalService::Options options)
    : m_options(std::move(options))
{
    if (m_options.dataDirectory.isEmpty())
        m_options.dataDirectory = m_data.path();
    restart();
}

LocalServiceFixture::~LocalServiceFixture()
{
    stop();
    Settings::setServerOverride({});
}

void LocalServiceFixture::stop()
{
    if (m_service)
        m_service->stop();
}

void LocalServiceFixture::restart()
{
    stop();
    m_service = std::make_unique<local::LocalService>(m_options);
    QString error;
    if (!m_service->start(m_port, &error))
        qFatal("local service did not start: %s", qPrintable(error));
    m_port = m_service->port();
    m_origin = m_service->origin();
    Settings::setServerOverride(m_origin);
}

} // namespace sorv::test
