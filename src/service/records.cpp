#include "records.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <cmath>
#include <limits>

namespace sorv {

namespace {

// Reads the members of one JSON object; the first failure sticks and later
// reads are no-ops, so a decoder reads all its fields then asks ok().
class FieldReader {
public:
    FieldReader(const QJsonValue& json, QString path, QString* error)
        : m_path(std::move(path)), m_error(error)
    {
        if (!json.isObject())
            fail(QStringLiteral("expected an object at %1").arg(where()));
        else
            m_object = json.toObject();
    }

    bool ok() const { return m_ok; }

    QString requiredString(const QString& key)
    {
        return required<QString>(key,
                                 [this, &key](const QJsonValue& v) { return asString(key, v); });
    }
    std::optional<QString> optionalString(const QString& key)
    {
        return optional<QString>(key,
                                 [this, &key](const QJsonValue& v) { return asString(key, v); });
    }
    qint64 requiredInt(const QString& key)
    {
        return required<qint64>(key, [this, &key](const QJsonValue& v) { return asInt(key, v); });
    }
    std::optional<qint64> optionalInt(const QString& key)
    {
        return optional<qint64>(key, [this, &key](const QJsonValue& v) { return asInt(key, v); });
    }
    std::optional<bool> optionalBool(const QString& key)
    {
        return optional<bool>(key, [this, &key](const QJsonValue& v) -> std::optional<bool> {
            if (!v.isBool()) {
                typeMismatch(key, QStringLiteral("a boolean"));
                return std::nullopt;
            }
            return v.toBool();
        });
    }
    std::optional<QStringList> optionalStringArray(const QString& key)
    {
        return optional<QStringList>(
            key, [this, &key](const QJsonValue& v) -> std::optional<QStringList> {
                if (!v.isArray()) {
                    typeMismatch(key, QStringLiteral("an array"));
                    return std::nullopt;
                }
                QStringList list;
                const QJsonArray array = v.toArray();
                for (const auto& item : array) {
                    if (!item.isString()) {
                        typeMismatch(key, QStringLiteral("an array of strings"));
                        return std::nullopt;
                    }
                    list << item.toString();
                }
                return list;
            });
    }
    template <typename T, typename Decode> T requiredRecord(const QString& key, Decode decode)
    {
        return required<T>(key, [this, &key, &decode](const QJsonValue& v) {
            return decode(v, memberPath(key), m_error);
        });
    }
    template <typename T, typename Decode>
    std::optional<T> optionalRecord(const QString& key, Decode decode)
    {
        return optional<T>(key, [this, &key, &decode](const QJsonValue& v) {
            return decode(v, memberPath(key), m_error);
        });
    }
    // Marks the reader failed when a nested decoder failed (it wrote the error).
    void nestedFailed() { m_ok = false; }

    void fail(const QString& message)
    {
        if (m_ok && m_error)
            *m_error = message;
        m_ok = false;
    }

private:
    QString where() const { return m_path.isEmpty() ? QStringLiteral("the top level") : m_path; }
    QString memberPath(const QString& key) const
    {
        return m_path.isEmpty() ? key : m_path + QLatin1Char('.') + key;
    }
    void typeMismatch(const QString& key, const QString& expected)
    {
        fail(QStringLiteral("expected %1 for \"%2\"").arg(expected, memberPath(key)));
    }

    std::optional<QString> asString(const QString& key, const QJsonValue& v)
    {
        if (!v.isString()) {
            typeMismatch(key, QStringLiteral("a string"));
            return std::nullopt;
        }
        return v.toString();
    }
    std::optional<qint64> asInt(const QString& key, const QJsonValue& v)
    {
        // JSON has one number type; only whole numbers that fit are integers.
        const double d = v.toDouble();
        if (!v.isDouble() || !std::isfinite(d) || std::trunc(d) != d || d < -9.007199254740992e15 ||
            d > 9.007199254740992e15) {
            typeMismatch(key, QStringLiteral("an integer"));
            return std::nullopt;
        }
        return static_cast<qint64>(d);
    }

    template <typename T, typename Convert> T required(const QString& key, Convert convert)
    {
        if (!m_ok)
            return T{};
        const QJsonValue v = m_object.value(key);
        if (v.isUndefined()) {
            fail(QStringLiteral("missing key \"%1\"").arg(memberPath(key)));
            return T{};
        }
        if (v.isNull()) {
            fail(QStringLiteral("null value for key \"%1\"").arg(memberPath(key)));
            return T{};
        }
        std::optional<T> result = convert(v);
        if (!result) {
            m_ok = false;
            return T{};
        }
        return std::move(*result);
    }
    template <typename T, typename Convert>
    std::optional<T> optional(const QString& key, Convert convert)
    {
        if (!m_ok)
            return std::nullopt;
        const QJsonValue v = m_object.value(key);
        if (v.isUndefined() || v.isNull())
            return std::nullopt;
        std::optional<T> result = convert(v);
        if (!result)
            m_ok = false;
        return result;
    }

    QJsonObject m_object;
    QString m_path;
    QString* m_error;
    bool m_ok = true;
};

template <typename T, typename Decode>
std::optional<QList<T>> arrayOf(const QJsonValue& json, const QString& path, QString* error,
                                Decode decode)
{
    if (!json.isArray()) {
        if (error)
            *error = QStringLiteral("expected an array at %1")
                         .arg(path.isEmpty() ? QStringLiteral("the top level") : path);
        return std::nullopt;
    }
    QList<T> list;
    const QJsonArray array = json.toArray();
    list.reserve(array.size());
    for (qsizetype i = 0; i < array.size(); ++i) {
        std::optional<T> item =
            decode(array.at(i), QStringLiteral("%1[%2]").arg(path).arg(i), error);
        if (!item)
            return std::nullopt;
        list << std::move(*item);
    }
    return list;
}

std::optional<Meeting> decodeMeeting(const QJsonValue& json, const QString& path, QString* error)
{
    FieldReader r(json, path, error);
    Meeting m;
    m.id = r.requiredString(QStringLiteral("id"));
    m.meeting_url = r.optionalString(QStringLiteral("meeting_url"));
    m.meeting_code = r.requiredString(QStringLiteral("meeting_code"));
    m.platform = r.requiredString(QStringLiteral("platform"));
    m.status = r.requiredString(QStringLiteral("status"));
    m.bot_name = r.optionalString(QStringLiteral("bot_name"));
    m.created_at = r.optionalString(QStringLiteral("created_at"));
    m.ended_at = r.optionalString(QStringLiteral("ended_at"));
    m.transcription_id = r.optionalString(QStringLiteral("transcription_id"));
    m.error_message = r.optionalString(QStringLiteral("error_message"));
    return r.ok() ? std::optional<Meeting>(std::move(m)) : std::nullopt;
}

std::optional<RecordingSpeaker> decodeSpeaker(const QJsonValue& json, const QString& path,
                                              QString* error)
{
    FieldReader r(json, path, error);
    RecordingSpeaker s;
    s.name = r.requiredString(QStringLiteral("name"));
    s.color = r.requiredString(QStringLiteral("color"));
    return r.ok() ? std::optional<RecordingSpeaker>(std::move(s)) : std::nullopt;
}

std::optional<Recording> decodeRecording(const QJsonValue& json, const QString& path,
                                         QString* error)
{
    FieldReader r(json, path, error);
    Recording rec;
    rec.id = r.requiredString(QStringLiteral("id"));
    rec.original_filename = r.requiredString(QStringLiteral("original_filename"));
    rec.status = r.requiredString(QStringLiteral("status"));
    rec.created_at = r.optionalString(QStringLiteral("created_at"));
    rec.duration_ms = r.optionalInt(QStringLiteral("duration_ms"));
    rec.language = r.optionalString(QStringLiteral("language"));
    rec.ai_title = r.optionalString(QStringLiteral("ai_title"));
    rec.batch_id = r.optionalString(QStringLiteral("batch_id"));
    rec.batch_index = r.optionalInt(QStringLiteral("batch_index"));
    rec.speaker_list = r.optionalRecord<QList<RecordingSpeaker>>(
        QStringLiteral("speaker_list"), [](const QJsonValue& v, const QString& p, QString* e) {
            return arrayOf<RecordingSpeaker>(v, p, e, decodeSpeaker);
        });
    return r.ok() ? std::optional<Recording>(std::move(rec)) : std::nullopt;
}

std::optional<RecordingsEnvelope> decodeEnvelope(const QJsonValue& json, const QString& path,
                                                 QString* error)
{
    FieldReader r(json, path, error);
    RecordingsEnvelope env;
    env.items = r.requiredRecord<QList<Recording>>(
        QStringLiteral("items"), [](const QJsonValue& v, const QString& p, QString* e) {
            return arrayOf<Recording>(v, p, e, decodeRecording);
        });
    env.total = r.optionalInt(QStringLiteral("total"));
    env.limit = r.optionalInt(QStringLiteral("limit"));
    env.offset = r.optionalInt(QStringLiteral("offset"));
    return r.ok() ? std::optional<RecordingsEnvelope>(std::move(env)) : std::nullopt;
}

std::optional<Passkey> decodePasskey(const QJsonValue& json, const QString& path, QString* error)
{
    FieldReader r(json, path, error);
    const auto date = [](const QJsonValue& v, const QString& p,
                         QString* e) -> std::optional<QDateTime> {
        if (!v.isString()) {
            if (e)
                *e = QStringLiteral("expected a string for \"%1\"").arg(p);
            return std::nullopt;
        }
        return decodePasskeyDate(v.toString(), e);
    };
    Passkey p;
    p.id = r.requiredInt(QStringLiteral("id"));
    p.label = r.optionalString(QStringLiteral("label"));
    p.createdAt = r.requiredRecord<QDateTime>(QStringLiteral("created_at"), date);
    p.lastUsedAt = r.optionalRecord<QDateTime>(QStringLiteral("last_used_at"), date);
    p.backupEligible = r.optionalBool(QStringLiteral("backup_eligible"));
    p.transports = r.optionalStringArray(QStringLiteral("transports"));
    return r.ok() ? std::optional<Passkey>(std::move(p)) : std::nullopt;
}

} // namespace

std::optional<Meeting> Meeting::fromJson(const QJsonValue& json, QString* error)
{
    return decodeMeeting(json, {}, error);
}

std::optional<RecordingSpeaker> RecordingSpeaker::fromJson(const QJsonValue& json, QString* error)
{
    return decodeSpeaker(json, {}, error);
}

std::optional<Recording> Recording::fromJson(const QJsonValue& json, QString* error)
{
    return decodeRecording(json, {}, error);
}

std::optional<RecordingsEnvelope> RecordingsEnvelope::fromJson(const QJsonValue& json,
                                                               QString* error)
{
    return decodeEnvelope(json, {}, error);
}

std::optional<Passkey> Passkey::fromJson(const QJsonValue& json, QString* error)
{
    return decodePasskey(json, {}, error);
}

std::optional<QList<Meeting>> meetingsFromJson(const QJsonValue& json, QString* error)
{
    return arrayOf<Meeting>(json, {}, error, decodeMeeting);
}

std::optional<QList<Recording>> recordingsFromJson(const QJsonValue& json, QString* error)
{
    return arrayOf<Recording>(json, {}, error, decodeRecording);
}

std::optional<QList<Passkey>> passkeysFromJson(const QJsonValue& json, QString* error)
{
    return arrayOf<Passkey>(json, {}, error, decodePasskey);
}

std::optional<QDateTime> decodePasskeyDate(const QString& text, QString* error)
{
    // QDateTime's own ISO parser also takes bare dates and missing zones,
    // which this format must refuse.
    static const QRegularExpression pattern(QStringLiteral(
        R"(^(\d{4})-(\d{2})-(\d{2})T(\d{2}):(\d{2}):(\d{2})(?:\.(\d+))?(Z|[+-]\d{2}:\d{2})$)"));
    const QRegularExpressionMatch m = pattern.match(text);
    if (m.hasMatch()) {
        const QDate date(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt());
        const QString fraction = m.captured(7);
        const int ms =
            fraction.isEmpty() ? 0 : fraction.left(3).leftJustified(3, QLatin1Char('0')).toInt();
        const QTime time(m.captured(4).toInt(), m.captured(5).toInt(), m.captured(6).toInt(), ms);
        const QString zone = m.captured(8);
        int offsetSeconds = 0;
        bool zoneOk = true;
        if (zone != QLatin1String("Z")) {
            const int hours = zone.mid(1, 2).toInt();
            const int minutes = zone.mid(4, 2).toInt();
            zoneOk = hours < 24 && minutes < 60;
            offsetSeconds =
                (hours * 3600 + minutes * 60) * (zone.startsWith(QLatin1Char('-')) ? -1 : 1);
        }
        if (date.isValid() && time.isValid() && zoneOk)
            return QDateTime(date, time, Qt::OffsetFromUTC, offsetSeconds).toUTC();
    }
    if (error)
        *error = QStringLiteral("Cannot decode date string %1").arg(text);
    return std::nullopt;
}

std::optional<QJsonValue> parseJsonBody(const QByteArray& body, QString* error)
{
    QJsonParseError parseError{};
    const QJsonDocument doc = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (error)
            *error = QStringLiteral("invalid JSON at offset %1: %2")
                         .arg(parseError.offset)
                         .arg(parseError.errorString());
        return std::nullopt;
    }
    if (doc.isArray())
        return QJsonValue(doc.array());
    return QJsonValue(doc.object());
}

} // namespace sorv
