#pragma once

#include "transcript/livetranscriptevent.h"

#include <QMap>
#include <QString>

#include <vector>

class QJsonObject;

namespace sorv {

// Turns the live service's text messages into events. The service speaks
// two dialects: typed messages ({"type": "partial", …}) and token messages
// ({"tokens": […]} or, with short keys, {"fw": […]}), whose interim tokens
// are accumulated per speaker here. Lives on the streamer's queue.
class LiveMessageHandler {
public:
    // The events of one message, in the order they are to be delivered:
    // within a token message every partial precedes every final segment.
    // Messages that say nothing known are logged and yield nothing.
    void handle(const QString& text, std::vector<LiveTranscriptEvent>& events);

    // Forgets the interim text of every speaker (a new stream).
    void reset() { m_partialAccBySpeaker.clear(); }

    const QMap<QString, QString>& partialAccBySpeaker() const { return m_partialAccBySpeaker; }

private:
    void handleTyped(const QString& type, const QJsonObject& object,
                     std::vector<LiveTranscriptEvent>& events);
    void handleTokens(const QJsonObject& object, std::vector<LiveTranscriptEvent>& events);

    QMap<QString, QString> m_partialAccBySpeaker;
};

} // namespace sorv
