#pragma once

#include "localservice/httpexchange.h"
#include "localservice/livescript.h"

#include <QList>

#include <deque>
#include <mutex>
#include <optional>

namespace sorv::local {

class Router;
class ServiceState;

// /api/live/stream: the live transcript of a client's audio. The token
// comes in the query (an expired one is closed with 4001), the first text
// message carries the language hints, then 16 kHz 16-bit frames arrive and
// transcript messages go back; an empty frame ends the stream, answered
// with {"finished": true} and a close. English streams are recognised
// (pocketsphinx), others get a scripted conversation, and tests script
// each connection exactly.
class LiveEndpoint {
public:
    explicit LiveEndpoint(ServiceState& state);

    void addRoutes(Router& router);

    void queueScript(LiveScript script);
    QList<LiveSession> sessions() const;
    int framesReceived() const;

private:
    void serve(const ServiceRequest& request, WebSocketChannel& channel);
    std::optional<LiveScript> takeScript();
    qsizetype openSession(const QString& token);
    template <typename Fn> void updateSession(qsizetype index, Fn&& fn);

    ServiceState& m_state;
    mutable std::mutex m_mutex;
    std::deque<LiveScript> m_scripts;
    QList<LiveSession> m_sessions;
};

} // namespace sorv::local
