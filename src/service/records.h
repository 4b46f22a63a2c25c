#pragma once

#include <QDateTime>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace sorv {

// Records returned by the service. Decoding follows one rule throughout: a
// required field that is absent, null or of the wrong type fails the whole
// record; an optional field that is absent or null gives none, and one of the
// wrong type also fails. On failure `error` (when given) receives a
// description naming the field.

struct Meeting {
    QString id;
    std::optional<QString> meeting_url;
    QString meeting_code;
    QString platform;
    QString status;
    std::optional<QString> bot_name;
    std::optional<QString> created_at;
    std::optional<QString> ended_at;
    std::optional<QString> transcription_id;
    std::optional<QString> error_message;

    static std::optional<Meeting> fromJson(const QJsonValue& json, QString* error = nullptr);
    bool operator==(const Meeting&) const = default;
};

struct RecordingSpeaker {
    QString name;
    QString color;

    static std::optional<RecordingSpeaker> fromJson(const QJsonValue& json,
                                                    QString* error = nullptr);
    bool operator==(const RecordingSpeaker&) const = default;
};

struct Recording {
    QString id;
    QString original_filename;
    QString status;
    std::optional<QString> created_at;
    std::optional<qint64> duration_ms;
    std::optional<QString> language;
    std::optional<QString> ai_title;
    std::optional<QString> batch_id;
    std::optional<qint64> batch_index;
    std::optional<QList<RecordingSpeaker>> speaker_list;

    static std::optional<Recording> fromJson(const QJsonValue& json, QString* error = nullptr);
    bool operator==(const Recording&) const = default;
};

struct RecordingsEnvelope {
    QList<Recording> items;
    std::optional<qint64> total;
    std::optional<qint64> limit;
    std::optional<qint64> offset;

    static std::optional<RecordingsEnvelope> fromJson(const QJsonValue& json,
                                                      QString* error = nullptr);
};

struct RecordingsFetchResult {
    QList<Recording> recordings;
    std::optional<QString> error; // user-facing; none on success
};

struct Passkey {
    qint64 id = 0;
    std::optional<QString> label;
    QDateTime createdAt;
    std::optional<QDateTime> lastUsedAt;
    std::optional<bool> backupEligible;
    std::optional<QStringList> transports;

    static std::optional<Passkey> fromJson(const QJsonValue& json, QString* error = nullptr);
};

// Arrays of records: the whole array fails when one element fails.
std::optional<QList<Meeting>> meetingsFromJson(const QJsonValue& json, QString* error = nullptr);
std::optional<QList<Recording>> recordingsFromJson(const QJsonValue& json,
                                                   QString* error = nullptr);
std::optional<QList<Passkey>> passkeysFromJson(const QJsonValue& json, QString* error = nullptr);

// Passkey dates: an internet date-time (RFC 3339) with or without fractional
// seconds. Anything else fails with "Cannot decode date string {string}".
std::optional<QDateTime> decodePasskeyDate(const QString& text, QString* error = nullptr);

// Parses a body as JSON; a body that is not JSON fails with a description.
std::optional<QJsonValue> parseJsonBody(const QByteArray& body, QString* error = nullptr);

} // namespace sorv
