#include "livemessagehandler.h"

#include "core/log.h"
#include "transcript/transcriptlimits.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <optional>
#include <utility>

namespace sorv {

namespace {

using TranscriptLimits::fitted;
using TranscriptLimits::kMaxLabelChars;

std::optional<QString> string(const QJsonObject& o, QLatin1String key)
{
    const QJsonValue v = o.value(key);
    return v.isString() ? std::optional<QString>(v.toString()) : std::nullopt;
}

// A speaker label, cut to what a transcript keeps of one.
std::optional<QString> label(const QJsonObject& o, QLatin1String key)
{
    const std::optional<QString> v = string(o, key);
    return v ? std::optional<QString>(fitted(*v, kMaxLabelChars)) : std::nullopt;
}

std::optional<bool> boolean(const QJsonObject& o, QLatin1String key)
{
    const QJsonValue v = o.value(key);
    return v.isBool() ? std::optional<bool>(v.toBool()) : std::nullopt;
}

// A whole number; 1.5 or "3" is not one.
std::optional<qint64> integer(const QJsonObject& o, QLatin1String key)
{
    const QJsonValue v = o.value(key);
    if (!v.isDouble())
        return std::nullopt;
    const qint64 a = v.toInteger(0);
    if (a == 0 && v.toInteger(1) == 1)
        return std::nullopt;
    return a;
}

// A list whose every element is an object; none otherwise.
std::optional<QJsonArray> objectList(const QJsonObject& o, QLatin1String key)
{
    const QJsonValue v = o.value(key);
    if (!v.isArray())
        return std::nullopt;
    QJsonArray list = v.toArray();
    for (const QJsonValue element : std::as_const(list)) {
        if (!element.isObject())
            return std::nullopt;
    }
    return list;
}

QString head(const QString& text)
{
    return text.left(200);
}

} // namespace

void LiveMessageHandler::handle(const QString& text, std::vector<LiveTranscriptEvent>& events)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        consoleLog(QStringLiteral("🌐 ⚠️ Unparseable server message: ") + head(text));
        return;
    }
    const QJsonObject object = document.object();
    if (const std::optional<QString> type = string(object, QLatin1String("type"))) {
        handleTyped(*type, object, events);
        return;
    }
    if (object.contains(QLatin1String("tokens")) || object.contains(QLatin1String("fw"))) {
        handleTokens(object, events);
        return;
    }
    if (boolean(object, QLatin1String("finished")) == true) {
        events.emplace_back(LiveEvent::Status{QStringLiteral("completed")});
        return;
    }
    consoleLog(QStringLiteral("🌐 ⚠️ Unrecognized server message: ") + head(text));
}

void LiveMessageHandler::handleTyped(const QString& type, const QJsonObject& o,
                                     std::vector<LiveTranscriptEvent>& events)
{
    if (type == QLatin1String("connected") || type == QLatin1String("session_started")) {
        const QString id = string(o, QLatin1String("transcription_id")).value_or(QString());
        consoleLog(QStringLiteral("🌐 ✅ Session started, transcription_id=") + head(id));
        events.emplace_back(LiveEvent::Connected{id});
    } else if (type == QLatin1String("segment")) {
        events.emplace_back(LiveEvent::Segment{
            label(o, QLatin1String("speaker")).value_or(QStringLiteral("unknown")),
            string(o, QLatin1String("text")).value_or(QString()),
            integer(o, QLatin1String("start_ms")).value_or(0),
            integer(o, QLatin1String("end_ms")).value_or(0),
            boolean(o, QLatin1String("is_final")).value_or(false)});
    } else if (type == QLatin1String("partial")) {
        events.emplace_back(LiveEvent::Partial{
            string(o, QLatin1String("text")).value_or(QString()),
            label(o, QLatin1String("speaker")).value_or(QStringLiteral("unknown"))});
    } else if (type == QLatin1String("speaker_names")) {
        const QJsonValue names = o.value(QLatin1String("names"));
        if (!names.isObject())
            return;
        LiveEvent::SpeakerNames event;
        const QJsonObject map = names.toObject();
        for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
            if (!it.value().isString())
                return;
            event.names.insert(fitted(it.key(), kMaxLabelChars),
                               fitted(it.value().toString(), kMaxLabelChars));
        }
        events.emplace_back(std::move(event));
    } else if (type == QLatin1String("status")) {
        const QString status = string(o, QLatin1String("status")).value_or(QString());
        consoleLog(QStringLiteral("🌐 Status: ") + head(status));
        if (!status.isEmpty())
            events.emplace_back(LiveEvent::Status{status});
    } else if (type == QLatin1String("keepalive")) {
        const QString status = string(o, QLatin1String("status")).value_or(QString());
        if (!status.isEmpty())
            events.emplace_back(LiveEvent::Status{status});
    } else if (type == QLatin1String("error")) {
        const QString message = string(o, QLatin1String("message"))
                                    .value_or(string(o, QLatin1String("detail"))
                                                  .value_or(QCoreApplication::translate(
                                                      "LiveTranscriptManager", "Unknown error")));
        consoleLog(QStringLiteral("🌐 ❌ Server error: ") + head(message));
        events.emplace_back(LiveEvent::Error{message});
    } else {
        consoleLog(QStringLiteral("🌐 ⚠️ Unknown message type: ") + head(type));
    }
}

void LiveMessageHandler::handleTokens(const QJsonObject& o,
                                      std::vector<LiveTranscriptEvent>& events)
{
    const QJsonArray tokens =
        objectList(o, QLatin1String("tokens"))
            .value_or(objectList(o, QLatin1String("fw")).value_or(QJsonArray()));

    // Finals are joined per speaker and reported after the list, in the order
    // the speakers first had one; the last final token's times win.
    struct Finals {
        QString speaker;
        QString text;
        qint64 start = 0;
        qint64 end = 0;
    };
    std::vector<Finals> finals;

    for (const QJsonValue value : tokens) {
        const QJsonObject token = value.toObject();
        const QString text = string(token, QLatin1String("text")).value_or(QString());
        if (text.isEmpty() || text == QLatin1String("<end>"))
            continue;
        const QString speaker =
            label(token, QLatin1String("speaker"))
                .value_or(label(token, QLatin1String("spk")).value_or(QStringLiteral("0")));
        const bool isFinal = boolean(token, QLatin1String("is_final"))
                                 .value_or(boolean(token, QLatin1String("f")).value_or(false));
        if (isFinal) {
            const qint64 start = integer(token, QLatin1String("start_ms"))
                                     .value_or(integer(token, QLatin1String("s")).value_or(0));
            const qint64 end = integer(token, QLatin1String("end_ms"))
                                   .value_or(integer(token, QLatin1String("e")).value_or(start));
            auto it = std::find_if(finals.begin(), finals.end(),
                                   [&speaker](const Finals& f) { return f.speaker == speaker; });
            if (it == finals.end())
                it = finals.insert(finals.end(), Finals{speaker, {}, 0, 0});
            it->text += text;
            it->start = start;
            it->end = end;
            m_partialAccBySpeaker.remove(speaker);
        } else {
            // Either the whole interim text again, or the next piece of it.
            // Past the limit it stops growing (the final text has it all),
            // and pieces that change nothing any more say nothing.
            const auto found = m_partialAccBySpeaker.constFind(speaker);
            const bool known = found != m_partialAccBySpeaker.cend();
            const QString acc = known ? *found : QString();
            const QString whole =
                text.startsWith(acc) ? text : acc + text.left(TranscriptLimits::kMaxSegmentChars);
            const QString merged = fitted(whole, TranscriptLimits::kMaxSegmentChars);
            if (known && merged.size() < whole.size() && merged == acc)
                continue;
            if (!known && m_partialAccBySpeaker.size() >= TranscriptLimits::kMaxSpeakers)
                m_partialAccBySpeaker.erase(m_partialAccBySpeaker.begin());
            m_partialAccBySpeaker.insert(speaker, merged);
            events.emplace_back(LiveEvent::Partial{merged, speaker});
        }
    }
    for (Finals& f : finals) {
        if (!f.text.isEmpty())
            events.emplace_back(
                LiveEvent::Segment{f.speaker, std::move(f.text), f.start, f.end, true});
    }
}

} // namespace sorv
