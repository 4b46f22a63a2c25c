#include "passkeyerror.h"

#include <QCoreApplication>

namespace sorv {

QString PasskeyError::description() const
{
    switch (m_kind) {
    case Kind::authorizationFailed:
        return QCoreApplication::translate("PasskeyError", "Passkey authorization failed: %1")
            .arg(m_message);
    case Kind::invalidServerOptions:
        return QCoreApplication::translate("PasskeyError",
                                           "Server returned invalid passkey options: %1")
            .arg(m_message);
    case Kind::cancelled:
        return QCoreApplication::translate("PasskeyError", "Passkey sign-in was cancelled.");
    case Kind::notAvailable:
        return QCoreApplication::translate("PasskeyError",
                                           "Passkeys are not available on this device.");
    }
    return m_message;
}

QString PasskeyAuthError::description() const
{
    switch (m_kind) {
    case Kind::badResponse:
        return QCoreApplication::translate("PasskeyError", "Unexpected server response: %1")
            .arg(m_message);
    case Kind::notLoggedIn:
        return QCoreApplication::translate("PasskeyError",
                                           "You need to be signed in to manage passkeys.");
    case Kind::cancelled:
        return QCoreApplication::translate("PasskeyError", "Passkey action was cancelled.");
    case Kind::server:
    case Kind::transport:
        break;
    }
    return m_message;
}

QString describe(const PasskeyFailure& failure)
{
    return std::visit([](const auto& error) { return error.description(); }, failure);
}

} // namespace sorv
