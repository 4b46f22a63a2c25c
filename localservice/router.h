#pragma once

#include "localservice/httpexchange.h"

#include <utility>
#include <vector>

namespace sorv::local {

// Where the endpoint groups register their routes, before the service
// starts, and where the transport looks them up (read-only from then on).
// In a pattern "{}" matches one path segment; those segments become the
// request's params, in order.
class Router {
public:
    struct Route {
        QByteArray method;
        QString pattern;
        Handler handler;            // the body read whole first, up to a limit; or
        StreamingHandler streaming; // the body in pieces as it arrives (uploads)
    };

    void add(const QByteArray& method, const QString& pattern, Handler handler);
    void addStreaming(const QByteArray& method, const QString& pattern, StreamingHandler handler);
    void addResponseStream(const QByteArray& method, const QString& pattern,
                           ResponseStreamHandler handler);
    void addWebSocket(const QString& pattern, WebSocketHandler handler);

    // The request's route, its params filled in. None when no route of the
    // request's method has its path; `pathKnown` then says whether one of
    // another method has (405 rather than 404).
    const Route* find(ServiceRequest& request, bool* pathKnown) const;
    const ResponseStreamHandler* findResponseStream(ServiceRequest& request) const;
    const WebSocketHandler* findWebSocket(ServiceRequest& request) const;

private:
    std::vector<Route> m_routes;
    std::vector<std::pair<Route, ResponseStreamHandler>> m_responseStreams;
    std::vector<std::pair<QString, WebSocketHandler>> m_webSockets;
};

} // namespace sorv::local
