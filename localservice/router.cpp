#include "router.h"

namespace sorv::local {

namespace {

bool matchRoute(const QString& pattern, ServiceRequest& request)
{
    const QStringList want = pattern.split(QLatin1Char('/'));
    const QStringList have = request.path.split(QLatin1Char('/'));
    if (want.size() != have.size())
        return false;
    QStringList found;
    for (qsizetype i = 0; i < want.size(); ++i) {
        if (want.at(i) == QLatin1String("{}")) {
            if (have.at(i).isEmpty())
                return false;
            found << have.at(i);
        } else if (want.at(i) != have.at(i)) {
            return false;
        }
    }
    request.params = found;
    return true;
}

} // namespace

void Router::add(const QByteArray& method, const QString& pattern, Handler handler)
{
    m_routes.push_back({method, pattern, std::move(handler), {}});
}

void Router::addStreaming(const QByteArray& method, const QString& pattern,
                          StreamingHandler handler)
{
    m_routes.push_back({method, pattern, {}, std::move(handler)});
}

void Router::addResponseStream(const QByteArray& method, const QString& pattern,
                               ResponseStreamHandler handler)
{
    m_responseStreams.emplace_back(Route{method, pattern, {}, {}}, std::move(handler));
}

void Router::addWebSocket(const QString& pattern, WebSocketHandler handler)
{
    m_webSockets.emplace_back(pattern, std::move(handler));
}

const Router::Route* Router::find(ServiceRequest& request, bool* pathKnown) const
{
    *pathKnown = false;
    for (const Route& route : m_routes) {
        if (!matchRoute(route.pattern, request))
            continue;
        *pathKnown = true;
        if (route.method == request.method)
            return &route;
    }
    return nullptr;
}

const ResponseStreamHandler* Router::findResponseStream(ServiceRequest& request) const
{
    for (const auto& [route, handler] : m_responseStreams) {
        if (route.method == request.method && matchRoute(route.pattern, request))
            return &handler;
    }
    return nullptr;
}

const WebSocketHandler* Router::findWebSocket(ServiceRequest& request) const
{
    for (const auto& [pattern, handler] : m_webSockets) {
        if (matchRoute(pattern, request))
            return &handler;
    }
    return nullptr;
}

} // namespace sorv::local
