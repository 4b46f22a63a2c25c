#pragma once

#include <QString>
#include <QUrl>

namespace sorv {

// Why an update check ended without an answer. The description is the
// user-facing text (the alert shows it, the log line carries it).
class UpdateCheckError {
public:
    enum class Kind { InsecureFeed, Network, Timeout, HttpStatus, FeedTooLarge, InvalidFeed };

    static UpdateCheckError insecureFeed(const QUrl& feedUrl);
    static UpdateCheckError network(const QString& reason);
    static UpdateCheckError timeout();
    static UpdateCheckError httpStatus(int status);
    static UpdateCheckError feedTooLarge();
    static UpdateCheckError invalidFeed(const QString& reason);

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
