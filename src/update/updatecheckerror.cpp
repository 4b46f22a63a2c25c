#include "updatecheckerror.h"

#include <QCoreApplication>

namespace sorv {

UpdateCheckError UpdateCheckError::insecureFeed(const QUrl& feedUrl)
{
    return {Kind::InsecureFeed,
            QCoreApplication::translate("UpdateCheckError",
                                        "The update feed address “%1” is not an HTTPS "
                                        "address.")
                .arg(feedUrl.toDisplayString())};
}

UpdateCheckError UpdateCheckError::network(const QString& reason)
{
    return {Kind::Network, QCoreApplication::translate(
                               "UpdateCheckError", "The update server could not be reached (%1).")
                               .arg(reason)};
}

UpdateCheckError UpdateCheckError::timeout()
{
    return {Kind::Timeout, QCoreApplication::translate(
                               "UpdateCheckError", "The update server did not answer in time.")};
}

UpdateCheckError UpdateCheckError::httpStatus(int status)
{
    return {Kind::HttpStatus,
            QCoreApplication::translate("UpdateCheckError",
                                        "The update server answered with HTTP status %1.")
                .arg(status)};
}

UpdateCheckError UpdateCheckError::feedTooLarge()
{
    return {Kind::FeedTooLarge,
            QCoreApplication::translate("UpdateCheckError",
                                        "The update feed is too large to be an appcast.")};
}

UpdateCheckError UpdateCheckError::invalidFeed(const QString& reason)
{
    return {Kind::InvalidFeed, QCoreApplication::translate("UpdateCheckError",
                                                           "The update feed could not be read: %1.")
                                   .arg(reason)};
}

UpdateCheckError UpdateCheckError::insecureRedirect(const QUrl& target)
{
    return {Kind::InsecureRedirect,
            QCoreApplication::translate(
                "UpdateCheckError",
                "The update server redirected to “%1”, which is not an HTTPS address.")
                .arg(target.toDisplayString())};
}

UpdateCheckError UpdateCheckError::downloadFailed(const QString& reason)
{
    return {
        Kind::DownloadFailed,
        QCoreApplication::translate("UpdateCheckError", "The update could not be downloaded (%1).")
            .arg(reason)};
}

UpdateCheckError UpdateCheckError::wrongLength(qint64 expected, qint64 received)
{
    const QString got =
        received < 0
            ? QCoreApplication::translate("UpdateCheckError",
                                          "The downloaded update is longer than the %1 bytes "
                                          "the update feed gives")
                  .arg(expected)
            : QCoreApplication::translate("UpdateCheckError",
                                          "The downloaded update is %1 bytes long, but the "
                                          "update feed gives %2 bytes")
                  .arg(QString::number(received), QString::number(expected));
    return {Kind::WrongLength, got + QStringLiteral(": it was discarded.")};
}

UpdateCheckError UpdateCheckError::badSignature()
{
    return {Kind::BadSignature,
            QCoreApplication::translate(
                "UpdateCheckError",
                "The downloaded update is not signed with this build's key: it was "
                "discarded.")};
}

UpdateCheckError UpdateCheckError::cannotStore(const QString& reason)
{
    return {Kind::CannotStore,
            QCoreApplication::translate("UpdateCheckError", "The update could not be saved (%1).")
                .arg(reason)};
}

} // namespace sorv
