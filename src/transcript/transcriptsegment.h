#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>

#include <cstdint>
#include <optional>

namespace sorv {

// One piece of a live transcript: who said it and what. Its identity is `id`,
// unique within the list that holds it and never reused while that list
// lives; equality compares every field, so a view can tell an in-place text
// change from no change at all.
class TranscriptSegment {
    Q_GADGET
    Q_PROPERTY(qint64 id MEMBER id CONSTANT)
    Q_PROPERTY(QString speaker MEMBER speaker CONSTANT)
    Q_PROPERTY(QString displayName MEMBER displayName CONSTANT)
    Q_PROPERTY(QString text MEMBER text CONSTANT)
    Q_PROPERTY(bool hasTimestamp READ hasTimestamp CONSTANT)
    Q_PROPERTY(QString timestamp READ timestampOrEmpty CONSTANT)

public:
    std::int64_t id = 0;
    // The source's own label: a diarisation label ("0", "1"), "you", or a name.
    QString speaker;
    QString displayName;
    // For the segment still being built, replaced as interim text arrives.
    QString text;
    // A wall-clock label, where the source provides one.
    std::optional<QString> timestamp;

    bool hasTimestamp() const { return timestamp.has_value(); }
    QString timestampOrEmpty() const { return timestamp.value_or(QString()); }

    friend bool operator==(const TranscriptSegment&, const TranscriptSegment&) = default;
};

} // namespace sorv

Q_DECLARE_METATYPE(sorv::TranscriptSegment)
