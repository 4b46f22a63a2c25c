#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QPair>
#include <QString>
#include <QUrlQuery>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace sorv::local {

using HeaderList = QList<QPair<QByteArray, QByteArray>>;
// Case-insensitive; empty when absent.
QByteArray headerValue(const HeaderList& headers, const QByteArray& name);

// One request as an ordinary endpoint sees it (the body already read whole).
struct ServiceRequest {
    QByteArray method;
    QString path; // without the query
    QUrlQuery query;
    HeaderList headers;
    QByteArray body;
    QStringList params; // the "{}" parts of the route pattern, in order

    QByteArray header(const QByteArray& name) const { return headerValue(headers, name); }
    QString bearerToken() const;
    QJsonObject jsonObject() const; // empty when the body is not a JSON object
};

struct ServiceResponse {
    int status = 200;
    HeaderList headers;
    QByteArray body;
    QByteArray contentType = "application/json";

    static ServiceResponse json(int status, const QJsonObject& object);
    static ServiceResponse json(int status, const QJsonArray& array);
    // The service's refusal form: {"detail": "..."}.
    static ServiceResponse detail(int status, const QString& message);
};

using Handler = std::function<ServiceResponse(const ServiceRequest&)>;

// For endpoints whose bodies must never be held whole (uploads): the body is
// handed over in pieces as it arrives on the socket.
class BodyReader {
public:
    virtual ~BodyReader() = default;
    // The next piece; an empty array at the end of the body. None when the
    // connection failed (the text says why).
    virtual std::optional<QByteArray> next(QString* error) = 0;
    // Reads the rest and drops it: an answer before the end of the body
    // would otherwise reach the client as a reset connection.
    void drain();
};
using StreamingHandler = std::function<ServiceResponse(const ServiceRequest&, BodyReader&)>;

// For endpoints whose answer goes on for as long as something happens (an
// event stream): the status and headers first, then the body in chunks as
// the endpoint makes them. Blocking calls on the connection's own thread.
class ResponseStream {
public:
    virtual ~ResponseStream() = default;
    // The status line and headers, with a chunked body to follow. False
    // when the connection is gone.
    virtual bool begin(int status, const HeaderList& headers) = 0;
    // One chunk of the body (nothing for no bytes). False when the
    // connection is gone.
    virtual bool write(const QByteArray& bytes) = 0;
    // The last chunk: the body ends cleanly.
    virtual void end() = 0;
    // Cuts the connection without the last chunk, as a network failure would.
    virtual void drop() = 0;
    // Waits; false when the client went away or the service stops meanwhile.
    virtual bool wait(std::chrono::milliseconds delay) = 0;
};

// Answers with an ordinary response (a refusal), or streams the answer
// itself and returns none.
using ResponseStreamHandler =
    std::function<std::optional<ServiceResponse>(const ServiceRequest&, ResponseStream&)>;

// A WebSocket connection as an endpoint sees it, after the upgrade: blocking
// calls on the connection's own thread.
class WebSocketChannel {
public:
    struct Message {
        bool binary = false;
        QByteArray data;
    };

    virtual ~WebSocketChannel() = default;
    // The next message; none once the connection is closed or broken (then
    // closeCode() says how, when the peer sent a close frame).
    virtual std::optional<Message> read() = 0;
    virtual bool sendText(const QByteArray& text) = 0;
    // The same message cut into frames of `frameBytes` (0: a single frame
    // however large), as a peer that frames its own messages sends them.
    virtual bool sendTextInFrames(const QByteArray& text, qsizetype frameBytes) = 0;
    // The close handshake with this code and reason.
    virtual void close(int code, const QByteArray& reason) = 0;
    // Ends the connection at once, without a close frame.
    virtual void drop() = 0;
    // Reads nothing more (pings included) and returns once the peer is gone
    // or the service stops.
    virtual void holdUnread() = 0;
    // The peer's close code, 0 when it sent none.
    virtual int closeCode() const = 0;

    // Called for every ping from the peer (they are answered inside read()).
    std::function<void()> onPing;
};

using WebSocketHandler = std::function<void(const ServiceRequest&, WebSocketChannel&)>;

} // namespace sorv::local
