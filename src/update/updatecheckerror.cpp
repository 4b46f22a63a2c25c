#include "updatecheckerror.h"

namespace sorv {

UpdateCheckError UpdateCheckError::insecureFeed(const QUrl& feedUrl)
{
    return {Kind::InsecureFeed, QStringLiteral("The update feed address “%1” is not an HTTPS "
                                               "address.")
                                    .arg(feedUrl.toDisplayString())};
}

UpdateCheckError UpdateCheckError::network(const QString& reason)
{
    return {Kind::Network,
            QStringLiteral("The update server could not be reached (%1).").arg(reason)};
}

UpdateCheckError UpdateCheckError::timeout()
{
    return {Kind::Timeout, QStringLiteral("The update server did not answer in time.")};
}

UpdateCheckError UpdateCheckError::httpStatus(int status)
{
    return {Kind::HttpStatus,
            QStringLiteral("The update server answered with HTTP status %1.").arg(status)};
}

UpdateCheckError UpdateCheckError::feedTooLarge()
{
    return {Kind::FeedTooLarge, QStringLiteral("The update feed is too large to be an appcast.")};
}

UpdateCheckError UpdateCheckError::invalidFeed(const QString& reason)
{
    return {Kind::InvalidFeed,
            QStringLiteral("The update feed could not be read: %1.").arg(reason)};
}

} // namespace sorv
