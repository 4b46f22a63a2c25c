#include "livetranscriptevent.h"

#include "core/overloaded.h"

#include <QStringList>

namespace sorv {

namespace {

QString quoted(const QString& s)
{
    return QLatin1Char('"') + s + QLatin1Char('"');
}

} // namespace

QString describe(const LiveTranscriptEvent& event)
{
    return std::visit(
        Overloaded{
            [](const LiveEvent::Connected& e) {
                return QStringLiteral("connected(%1)").arg(quoted(e.transcriptionId));
            },
            [](const LiveEvent::Segment& e) {
                return QStringLiteral("segment(%1, %2, %3, %4, %5)")
                    .arg(quoted(e.speaker), quoted(e.text), QString::number(e.startMs),
                         QString::number(e.endMs),
                         e.isFinal ? QStringLiteral("final") : QStringLiteral("interim"));
            },
            [](const LiveEvent::Partial& e) {
                return QStringLiteral("partial(%1, %2)").arg(quoted(e.text), quoted(e.speaker));
            },
            [](const LiveEvent::SpeakerNames& e) {
                QStringList pairs;
                for (auto it = e.names.cbegin(); it != e.names.cend(); ++it)
                    pairs << quoted(it.key()) + QStringLiteral(": ") + quoted(it.value());
                return QStringLiteral("speakerNames({%1})").arg(pairs.join(QStringLiteral(", ")));
            },
            [](const LiveEvent::Status& e) {
                return QStringLiteral("status(%1)").arg(quoted(e.status));
            },
            [](const LiveEvent::Error& e) {
                return QStringLiteral("error(%1)").arg(quoted(e.message));
            },
            [](const LiveEvent::Disconnected&) { return QStringLiteral("disconnected"); },
        },
        event);
}

} // namespace sorv
