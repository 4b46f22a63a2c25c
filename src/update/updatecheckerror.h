#pragma once

#include <QString>
#include <QUrl>

namespace sorv {

// Why an update check ended without an answer. The description is the
// user-facing text (the alert shows it, the log line carries it).
class UpdateCheckError {
public:
    enum class Kind {
        InsecureFeed,
        Network,
        Timeout,
        HttpStatus,
        FeedTooLarge,
        InvalidFeed,
        InsecureRedirect,
        DownloadFailed,
        WrongLength,
        BadSignature,
        CannotStore,
    };

    static UpdateCheckError insecureFeed(const QUrl& feedUrl);
    static UpdateCheckError network(const QString& reason);
    static UpdateCheckError timeout();
    static UpdateCheckError httpStatus(int status);
    static UpdateCheckError feedTooLarge();
    static UpdateCheckError invalidFeed(const QString& reason);
    // A redirect away from HTTPS (or from this computer, over plain HTTP).
    static UpdateCheckError insecureRedirect(const QUrl& target);
    // The update's file, as opposed to the feed, could not be fetched.
    static UpdateCheckError downloadFailed(const QString& reason);
    // The file is not as long as the appcast says: `received` bytes, or more
    // than `expected` when the download was stopped there (-1).
    static UpdateCheckError wrongLength(qint64 expected, qint64 received);
    static UpdateCheckError badSignature();
    static UpdateCheckError cannotStore(const QString& reason);

    Kind kind() const { return m_kind; }
    QString description() const { return m_description; }

    friend bool operator==(const UpdateCheckError&, const UpdateCheckError&) = default;

private:
    UpdateCheckError(Kind kind, QString description)
        : m_kind(kind), m_description(std::move(description))
    {}

    Kind m_kind;
    QString m_description;
};

} // namespace sorv
