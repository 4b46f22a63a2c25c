#include "meetingtranscript.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <optional>

namespace sorv {

namespace {

std::optional<QString> stringMember(const QJsonObject& object, QLatin1String key)
{
    const QJsonValue value = object.value(key);
    return value.isString() ? std::optional<QString>(value.toString()) : std::nullopt;
}

// A name, a label or a status: never longer than a label.
std::optional<QString> labelMember(const QJsonObject& object, QLatin1String key)
{
    const std::optional<QString> value = stringMember(object, key);
    if (!value)
        return std::nullopt;
    return TranscriptLimits::fitted(*value, TranscriptLimits::kMaxLabelChars);
}

} // namespace

MeetingTranscript::Changes MeetingTranscript::apply(const QByteArray& payload)
{
    Changes changes;
    const QJsonDocument doc = QJsonDocument::fromJson(payload);
    if (!doc.isObject())
        return changes;
    const QJsonObject object = doc.object();
    const std::optional<QString> type = stringMember(object, QLatin1String("type"));
    if (!type)
        return changes;

    if (*type == QLatin1String("speaker_names")) {
        const QJsonValue names = object.value(QLatin1String("names"));
        if (!names.isObject())
            return changes;
        QMap<QString, QString> map;
        const QJsonObject namesObject = names.toObject();
        for (auto it = namesObject.begin(); it != namesObject.end(); ++it) {
            if (!it.value().isString())
                return changes;
            map.insert(
                TranscriptLimits::fitted(it.key(), TranscriptLimits::kMaxLabelChars),
                TranscriptLimits::fitted(it.value().toString(), TranscriptLimits::kMaxLabelChars));
        }
        // Segments keep the names they started with.
        changes.speakerNames = map != m_speakerNames;
        m_speakerNames = std::move(map);
    } else if (*type == QLatin1String("transcript")) {
        const QJsonValue list = object.value(QLatin1String("segments"));
        if (!list.isArray())
            return changes;
        const QJsonArray elements = list.toArray();
        if (!std::all_of(elements.begin(), elements.end(),
                         [](const QJsonValue& e) { return e.isObject(); }))
            return changes;
        for (const auto& element : elements)
            applyElement(element.toObject(), changes);
        trim(changes);
    } else if (*type == QLatin1String("status")) {
        const std::optional<QString> status = labelMember(object, QLatin1String("status"));
        if (!status)
            return changes;
        changes.meetingStatus = *status != m_meetingStatus;
        m_meetingStatus = *status;
    }
    return changes;
}

void MeetingTranscript::applyElement(const QJsonObject& element, Changes& changes)
{
    const QString speaker =
        labelMember(element, QLatin1String("speaker")).value_or(QStringLiteral("unknown"));
    QString text = stringMember(element, QLatin1String("text")).value_or(QString());
    text.truncate(TranscriptLimits::fittingLength(text, kMaxSegmentChars));

    if (!m_segments.isEmpty() && m_segments.last().speaker == speaker &&
        m_segments.last().text.size() + 1 + text.size() <= kMaxSegmentChars) {
        m_segments.last().text += QLatin1Char(' ') + text;
        // A row appended by this same payload is new, not grown.
        if (changes.firstAppended < 0)
            changes.grownRow = m_segments.size() - 1;
        return;
    }

    QString displayName;
    if (const std::optional<QString> own = labelMember(element, QLatin1String("display_name")))
        displayName = *own;
    else
        displayName = m_speakerNames.value(speaker, speaker);
    m_segments.append(
        TranscriptSegment{m_nextSegmentId++, speaker, displayName, text,
                          labelMember(element, QLatin1String("absolute_start_time"))});
    if (changes.firstAppended < 0)
        changes.firstAppended = m_segments.size() - 1;
}

void MeetingTranscript::trim(Changes& changes)
{
    if (m_segments.size() <= kMaxSegments)
        return;
    const qsizetype drop = m_segments.size() - kMaxSegments + kTrimBatch;
    m_segments.remove(0, drop);
    changes.trimmed = drop;
    changes.grownRow = changes.grownRow >= drop ? changes.grownRow - drop : -1;
    if (changes.firstAppended >= 0)
        changes.firstAppended = std::max<qsizetype>(0, changes.firstAppended - drop);
}

void MeetingTranscript::clear()
{
    m_segments.clear();
    m_speakerNames.clear();
    m_meetingStatus.clear();
    m_nextSegmentId = 0;
}

} // namespace sorv
