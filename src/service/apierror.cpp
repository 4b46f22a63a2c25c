#include "apierror.h"

#include <QCoreApplication>

namespace sorv {

QString APIError::description() const
{
    switch (m_kind) {
    case Kind::http:
        return QCoreApplication::translate("ApiError", "HTTP %1").arg(m_status);
    case Kind::invalidURL:
        return QCoreApplication::translate("ApiError", "Invalid URL");
    case Kind::noResponse:
        return QCoreApplication::translate("ApiError", "No response from server");
    case Kind::server:
    case Kind::transport:
    case Kind::decoding:
        break;
    }
    return m_message;
}

} // namespace sorv
