#include "sseconnectionstatus.h"

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
        return QStringLiteral("Disconnected");
    case Kind::Connecting:
        return QStringLiteral("Connecting...");
    case Kind::Connected:
        return QStringLiteral("Connected");
    case Kind::Error:
        return QStringLiteral("Error");
    }
    return {};
}

} // namespace sorv
