#include "apierror.h"

namespace sorv {

QString APIError::description() const
{
    switch (m_kind) {
    case Kind::http:
        return QStringLiteral("HTTP %1").arg(m_status);
    case Kind::invalidURL:
        return QStringLiteral("Invalid URL");
    case Kind::noResponse:
        return QStringLiteral("No response from server");
    case Kind::server:
    case Kind::transport:
    case Kind::decoding:
        break;
    }
    return m_message;
}

} // namespace sorv
