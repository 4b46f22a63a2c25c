#include "sseconnectionstatus.h"

#include <QCoreApplication>

namespace sorv {

QString SSEConnectionStatus::caseName() const
{
    switch (m_kind) {
    case Kind::Disconnected:
        return QStringLiteral("disconnected");
    case Kind::Connecting:
        return QStringLiteral("connecting");
    case Kind::Connected:
        return QStringLiteral("connected");
    case Kind::Error:
        return QStringLiteral("error");
    }
    return {};
}

QString SSEConnectionStatus::label() const
{
    switch (m_kind) {
    case Kind::Disconnected:
        return QCoreApplication::translate("SSEConnectionStatus", "Disconnected");
    case Kind::Connecting:
        return QCoreApplication::translate("SSEConnectionStatus", "Connecting...");
    case Kind::Connected:
        return QCoreApplication::translate("SSEConnectionStatus", "Connected");
    case Kind::Error:
        return QCoreApplication::translate("SSEConnectionStatus", "Error");
    }
    return {};
}

} // namespace sorv

#include "moc_sseconnectionstatus.cpp"
