#include "transport.h"

#include "core/log.h"
#include "localservice/requestscripts.h"
#include "localservice/router.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <QCryptographicHash>
#include <QUrlQuery>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <limits>
#include <list>
#include <mutex>
#include <optional>
#include <thread>

#include <poll.h>
#include <sys/socket.h>

namespace sorv::local {

namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
namespace net = boost::asio;
using tcp = net::ip::tcp;

namespace {

constexpr std::uint64_t kWholeBodyLimit = 16ULL * 1024 * 1024;
// Out of file descriptors, accept() fails at once for as long as the
// connection waits in the listen queue: it is tried again this much later.
constexpr std::chrono::milliseconds kAcceptBackoff{100};
// Out of room (connections or file descriptors), a connection that has
// waited this long for its first request is closed for one that waits to be
// accepted. Connections that have been served are left alone: they are some
// client's, and the idle timeout ends them.
constexpr std::chrono::seconds kIdleEvictable{1};

using Clock = std::chrono::steady_clock;

QByteArray toBytes(beast::string_view v)
{
    return QByteArray(v.data(), static_cast<qsizetype>(v.size()));
}

// The socket as Beast's blocking reads see it, with a time limit on each
// read: a fixed deadline (a request head must be complete by then, however
// it trickles in), or a longest quiet time (a body that stops coming). The
// read then ends in a timeout instead of holding its connection, and
// thread, for ever.
class DeadlineReader {
public:
    DeadlineReader(tcp::socket& socket, Clock::time_point deadline)
        : m_socket(socket), m_deadline(deadline)
    {}
    DeadlineReader(tcp::socket& socket, std::chrono::milliseconds quiet)
        : m_socket(socket), m_quiet(quiet)
    {}

    template <class MutableBuffers>
    std::size_t read_some(const MutableBuffers& buffers, beast::error_code& ec)
    {
        const Clock::time_point until = m_quiet ? Clock::now() + *m_quiet : m_deadline;
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
            if (left.count() <= 0) {
                ec = beast::error::timeout;
                return 0;
            }
            pollfd fd{m_socket.native_handle(), POLLIN, 0};
            const int ready = ::poll(&fd, 1, static_cast<int>(left.count()));
            if (ready > 0)
                return m_socket.read_some(buffers, ec);
            if (ready < 0 && errno != EINTR) {
                ec.assign(errno, boost::system::system_category());
                return 0;
            }
        }
    }

    template <class MutableBuffers> std::size_t read_some(const MutableBuffers& buffers)
    {
        beast::error_code ec;
        const std::size_t n = read_some(buffers, ec);
        if (ec)
            throw boost::system::system_error(ec);
        return n;
    }

private:
    tcp::socket& m_socket;
    Clock::time_point m_deadline;
    std::optional<std::chrono::milliseconds> m_quiet;
};

// Reads a streamed body into a fixed buffer, piece by piece.
class SocketBodyReader final : public BodyReader {
public:
    // `bytesPerSecond` > 0 reads no faster than that: a slow uplink.
    SocketBodyReader(tcp::socket& socket, beast::flat_buffer& buffer,
                     http::request_parser<http::buffer_body>& parser, std::int64_t bytesPerSecond,
                     std::chrono::milliseconds quiet)
        : m_socket(socket, quiet), m_buffer(buffer), m_parser(parser),
          m_bytesPerSecond(bytesPerSecond)
    {}

    std::optional<QByteArray> next(QString* error) override
    {
        while (!m_parser.is_done()) {
            m_parser.get().body().data = m_chunk.data();
            m_parser.get().body().size = m_chunk.size();
            beast::error_code ec;
            http::read(m_socket, m_buffer, m_parser, ec);
            if (ec == http::error::need_buffer)
                ec = {};
            if (ec) {
                if (error)
                    *error = QString::fromStdString(ec.message());
                return std::nullopt;
            }
            const std::size_t filled = m_chunk.size() - m_parser.get().body().size;
            if (filled > 0) {
                pace(filled);
                return QByteArray(m_chunk.data(), static_cast<qsizetype>(filled));
            }
        }
        return QByteArray();
    }

private:
    void pace(std::size_t bytes)
    {
        if (m_bytesPerSecond <= 0)
            return;
        if (m_received == 0)
            m_started = std::chrono::steady_clock::now();
        m_received += static_cast<std::int64_t>(bytes);
        std::this_thread::sleep_until(
            m_started + std::chrono::microseconds(m_received * 1'000'000 / m_bytesPerSecond));
    }

    DeadlineReader m_socket;
    beast::flat_buffer& m_buffer;
    http::request_parser<http::buffer_body>& m_parser;
    std::int64_t m_bytesPerSecond = 0;
    std::int64_t m_received = 0;
    std::chrono::steady_clock::time_point m_started;
    std::array<char, std::size_t{64} * 1024> m_chunk{};
};

// Passes pieces through while keeping the body's size and digest for the log.
class HashingBodyReader final : public BodyReader {
public:
    explicit HashingBodyReader(BodyReader& inner) : m_inner(inner) {}

    std::optional<QByteArray> next(QString* error) override
    {
        std::optional<QByteArray> piece = m_inner.next(error);
        if (piece) {
            m_hash.addData(*piece);
            m_size += piece->size();
        }
        return piece;
    }

    qint64 size() const { return m_size; }
    QByteArray sha256() const { return m_hash.result().toHex(); }

private:
    BodyReader& m_inner;
    QCryptographicHash m_hash{QCryptographicHash::Sha256};
    qint64 m_size = 0;
};

// A WebSocket connection after the upgrade, for the endpoint's handler.
class BeastWebSocketChannel final : public WebSocketChannel {
public:
    explicit BeastWebSocketChannel(websocket::stream<tcp::socket&>& ws) : m_ws(ws)
    {
        m_ws.control_callback([this](websocket::frame_type kind, beast::string_view) {
            if (kind == websocket::frame_type::ping && onPing)
                onPing();
        });
    }

    std::optional<Message> read() override
    {
        beast::flat_buffer buffer;
        beast::error_code ec;
        m_ws.read(buffer, ec);
        if (ec) {
            if (ec == websocket::error::closed)
                m_closeCode = m_ws.reason().code;
            return std::nullopt;
        }
        Message m;
        m.binary = m_ws.got_binary();
        m.data = QByteArray::fromStdString(beast::buffers_to_string(buffer.data()));
        return m;
    }

    bool sendText(const QByteArray& text) override
    {
        beast::error_code ec;
        m_ws.text(true);
        m_ws.write(net::buffer(text.constData(), std::size_t(text.size())), ec);
        return !ec;
    }

    bool sendTextInFrames(const QByteArray& text, qsizetype frameBytes) override
    {
        beast::error_code ec;
        m_ws.text(true);
        m_ws.auto_fragment(false);
        if (frameBytes <= 0) {
            m_ws.write(net::buffer(text.constData(), std::size_t(text.size())), ec);
        } else {
            for (qsizetype at = 0; at < text.size() && !ec; at += frameBytes) {
                const qsizetype n = std::min(frameBytes, text.size() - at);
                m_ws.write_some(at + n >= text.size(),
                                net::buffer(text.constData() + at, std::size_t(n)), ec);
            }
        }
        m_ws.auto_fragment(true);
        return !ec;
    }

    void close(int code, const QByteArray& reason) override
    {
        beast::error_code ec;
        m_ws.close(websocket::close_reason(
                       static_cast<websocket::close_code>(code),
                       beast::string_view(reason.constData(), std::size_t(reason.size()))),
                   ec);
    }

    void drop() override { ::shutdown(m_ws.next_layer().native_handle(), SHUT_RDWR); }

    void holdUnread() override
    {
        const int fd = m_ws.next_layer().native_handle();
        // A small window, so that the client's own buffers fill soon.
        const int small = 4096;
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        // Waits for the peer's end or reset (or the service's shutdown of the
        // socket), never for data, which stays unread.
        pollfd p{fd, POLLRDHUP, 0};
        while (::poll(&p, 1, -1) < 0 && errno == EINTR) {
        }
    }

    int closeCode() const override { return m_closeCode; }

private:
    websocket::stream<tcp::socket&>& m_ws;
    int m_closeCode = 0;
};

// An answer whose body is written in chunks as the endpoint makes it.
class SocketResponseStream final : public ResponseStream {
public:
    SocketResponseStream(tcp::socket& socket, unsigned version, const std::atomic<bool>& stopping)
        : m_socket(socket), m_version(version), m_stopping(stopping)
    {}

    bool begin(int status, const HeaderList& headers) override
    {
        http::response<http::empty_body> res;
        res.version(m_version);
        res.result(static_cast<unsigned>(status));
        res.set(http::field::server, "sorvelandrix-local-service");
        for (const auto& [name, value] : headers)
            res.set(name.toStdString(), value.toStdString());
        res.chunked(true);
        // The connection ends with the stream.
        res.keep_alive(false);
        beast::error_code ec;
        // Each event goes out as it is written, not when the next one follows.
        m_socket.set_option(tcp::no_delay(true), ec);
        http::response_serializer<http::empty_body> serializer(res);
        http::write_header(m_socket, serializer, ec);
        m_begun = !ec;
        return m_begun;
    }

    bool write(const QByteArray& bytes) override
    {
        // An empty chunk would be the last one.
        if (bytes.isEmpty())
            return m_begun;
        beast::error_code ec;
        net::write(
            m_socket,
            http::make_chunk(net::const_buffer(bytes.constData(), std::size_t(bytes.size()))), ec);
        return !ec;
    }

    void end() override
    {
        beast::error_code ec;
        net::write(m_socket, http::make_chunk_last(), ec);
    }

    void drop() override { ::shutdown(m_socket.native_handle(), SHUT_RDWR); }

    bool wait(std::chrono::milliseconds delay) override
    {
        const Clock::time_point until = Clock::now() + delay;
        // In slices, so that a stopping service is noticed soon.
        while (!m_stopping) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
            if (left.count() <= 0)
                return true;
            // The client sends nothing more on a stream: anything readable
            // is its end (or the service shutting the socket down).
            pollfd fd{m_socket.native_handle(), POLLIN | POLLRDHUP, 0};
            const int ready =
                ::poll(&fd, 1, static_cast<int>(std::min<long long>(left.count(), 100)));
            if (ready > 0)
                return false;
            if (ready < 0 && errno != EINTR)
                return false;
        }
        return false;
    }

private:
    tcp::socket& m_socket;
    unsigned m_version;
    const std::atomic<bool>& m_stopping;
    bool m_begun = false;
};

} // namespace

struct Transport::Impl {
    struct Connection {
        explicit Connection(tcp::socket s) : socket(std::move(s)) {}
        tcp::socket socket;
        Clock::time_point accepted = Clock::now();
        std::thread thread;
        std::atomic<bool> done{false};
        // Since when it has waited for its first request head (steady clock
        // ticks); 0 once that has come.
        std::atomic<Clock::rep> awaitingSince{accepted.time_since_epoch().count()};
    };

    Impl(const ServiceOptions& o, const Router& r, RequestScripts& s)
        : options(o), router(r), scripts(s)
    {}

    const ServiceOptions& options;
    const Router& router;
    RequestScripts& scripts;

    net::io_context io;
    std::unique_ptr<tcp::acceptor> acceptor;
    std::thread acceptThread;
    std::uint16_t port = 0;

    std::atomic<bool> stopping{false};
    std::mutex stopMutex;
    std::condition_variable stopWake;

    std::mutex connectionsMutex;
    std::list<std::unique_ptr<Connection>> connections;
    int openConnections = 0;                 // those not done yet
    std::condition_variable connectionEnded; // with connectionsMutex

    void acceptLoop();
    void serve(Connection& connection);
    // False when the connection must end. `headDeadline`: when the request
    // head must be complete; none: idleTimeout for its first byte, then
    // headerTimeout.
    bool serveOne(Connection& connection, beast::flat_buffer& buffer,
                  std::optional<Clock::time_point> headDeadline);
    // Out of room: closes the connection that has waited longest for its
    // first request, when one has waited kIdleEvictable. With
    // connectionsMutex held.
    bool evictIdle();
    bool serveWebSocket(tcp::socket& socket, http::request<http::empty_body>& upgrade,
                        ServiceRequest& request, const QString& target,
                        const WebSocketHandler& handler);
    bool sleepUnlessStopping(std::chrono::milliseconds delay);
    bool write(tcp::socket& socket, const ServiceResponse& response, unsigned version,
               bool keepAlive);
    void reapFinished();
};

void Transport::Impl::acceptLoop()
{
    // Each condition is reported once, when it begins.
    bool full = false;
    bool starved = false;
    while (!stopping) {
        reapFinished();
        {
            std::unique_lock lock(connectionsMutex);
            if (openConnections >= options.maxConnections) {
                if (!full)
                    consoleLog(QStringLiteral("⚠️ %1 connections open: new ones wait, and "
                                              "those without a request for %2 s make room")
                                   .arg(QString::number(openConnections),
                                        QString::number(kIdleEvictable.count())));
                full = true;
                evictIdle();
                // Until one ends (or another may be closed).
                connectionEnded.wait_for(lock, kAcceptBackoff, [this] {
                    return stopping || openConnections < options.maxConnections;
                });
                continue; // reap what has ended first
            }
        }
        full = false;
        tcp::socket socket(io);
        beast::error_code ec;
        acceptor->accept(socket, ec);
        if (stopping)
            break;
        if (ec == net::error::connection_aborted)
            continue;
        if (ec) {
            // Usually out of file descriptors: existing connections go on
            // (their threads do not need this one), and a closing one makes
            // room for the connection that waits.
            std::unique_lock lock(connectionsMutex);
            if (!starved)
                consoleLog(QStringLiteral("⚠️ Cannot accept connections (%1) with %2 open: "
                                          "trying again every %3 ms, and those without a "
                                          "request for %4 s make room")
                               .arg(QString::fromStdString(ec.message()),
                                    QString::number(openConnections),
                                    QString::number(kAcceptBackoff.count()),
                                    QString::number(kIdleEvictable.count())));
            starved = true;
            const int open = openConnections;
            if (evictIdle())
                connectionEnded.wait_for(lock, kAcceptBackoff,
                                         [&] { return stopping || openConnections < open; });
            else
                connectionEnded.wait_for(lock, kAcceptBackoff, [this] { return stopping.load(); });
            continue;
        }
        starved = false;
        std::lock_guard lock(connectionsMutex);
        auto connection = std::make_unique<Connection>(std::move(socket));
        Connection* raw = connection.get();
        raw->thread = std::thread([this, raw] { serve(*raw); });
        connections.push_back(std::move(connection));
        ++openConnections;
    }
}

bool Transport::Impl::evictIdle()
{
    const Clock::rep latest = (Clock::now() - kIdleEvictable).time_since_epoch().count();
    Connection* oldest = nullptr;
    Clock::rep oldestSince = latest;
    for (const auto& connection : connections) {
        const Clock::rep since = connection->awaitingSince;
        if (!connection->done && since != 0 && since <= oldestSince) {
            oldest = connection.get();
            oldestSince = since;
        }
    }
    // Not if its request has just come.
    if (!oldest || !oldest->awaitingSince.compare_exchange_strong(oldestSince, 0))
        return false;
    ::shutdown(oldest->socket.native_handle(), SHUT_RDWR);
    return true;
}

void Transport::Impl::reapFinished()
{
    std::lock_guard lock(connectionsMutex);
    for (auto it = connections.begin(); it != connections.end();) {
        if ((*it)->done) {
            (*it)->thread.join();
            it = connections.erase(it);
        } else {
            ++it;
        }
    }
}

void Transport::Impl::serve(Connection& connection)
{
    beast::flat_buffer buffer;
    // The first request's head is due a fixed time after the connection
    // opened, however it trickles in.
    std::optional<Clock::time_point> headDeadline = connection.accepted + options.headerTimeout;
    while (!stopping && serveOne(connection, buffer, headDeadline))
        headDeadline.reset();
    {
        std::lock_guard lock(connectionsMutex);
        beast::error_code ec;
        connection.socket.shutdown(tcp::socket::shutdown_both, ec);
        connection.socket.close(ec);
        connection.done = true;
        --openConnections;
    }
    connectionEnded.notify_all();
}

bool Transport::Impl::sleepUnlessStopping(std::chrono::milliseconds delay)
{
    std::unique_lock lock(stopMutex);
    return !stopWake.wait_for(lock, delay, [this] { return stopping.load(); });
}

bool Transport::Impl::write(tcp::socket& socket, const ServiceResponse& response, unsigned version,
                            bool keepAlive)
{
    http::response<http::string_body> res;
    res.version(version);
    res.result(static_cast<unsigned>(response.status));
    res.set(http::field::server, "sorvelandrix-local-service");
    if (!response.contentType.isEmpty())
        res.set(http::field::content_type, response.contentType.toStdString());
    for (const auto& [name, value] : response.headers)
        res.set(name.toStdString(), value.toStdString());
    res.body() = response.body.toStdString();
    res.keep_alive(keepAlive);
    res.prepare_payload();
    beast::error_code ec;
    http::write(socket, res, ec);
    return !ec && keepAlive;
}

// Waits for the next request on a kept-alive connection; false when the
// client stays quiet longer than the idle timeout (or the wait fails).
bool waitForRequest(tcp::socket& socket, const beast::flat_buffer& buffer,
                    std::chrono::milliseconds timeout)
{
    if (buffer.size() > 0)
        return true;
    pollfd fd{socket.native_handle(), POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&fd, 1, static_cast<int>(timeout.count()));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

// A request the parser could not make sense of gets an answer, not a
// silently dropped connection.
bool isMalformedRequest(const beast::error_code& ec)
{
    return ec.category() == http::make_error_code(http::error::bad_target).category() &&
           ec != http::error::end_of_stream && ec != http::error::partial_message;
}

bool Transport::Impl::serveOne(Connection& connection, beast::flat_buffer& buffer,
                               std::optional<Clock::time_point> headDeadline)
{
    tcp::socket& socket = connection.socket;
    beast::error_code ec;
    const std::chrono::milliseconds quiet =
        headDeadline
            ? std::min(options.idleTimeout,
                       std::chrono::ceil<std::chrono::milliseconds>(*headDeadline - Clock::now()))
            : options.idleTimeout;
    if (!waitForRequest(socket, buffer, quiet))
        return false;
    if (!headDeadline)
        headDeadline = Clock::now() + options.headerTimeout;
    http::request_parser<http::empty_body> headerParser;
    // The default limit (1 MiB) is checked against Content-Length as soon as
    // the header is parsed; uploads stream far more. Whole bodies get their
    // own limit below. (Not boost::none: Boost 1.74 compares the length with
    // the empty optional and refuses every body.)
    headerParser.body_limit(std::numeric_limits<std::uint64_t>::max());
    DeadlineReader headReader(socket, *headDeadline);
    http::read_header(headReader, buffer, headerParser, ec);
    if (ec) {
        if (isMalformedRequest(ec))
            write(socket,
                  ServiceResponse::detail(400, QStringLiteral("Malformed request: %1")
                                                   .arg(QString::fromStdString(ec.message()))),
                  11, false);
        return false;
    }
    connection.awaitingSince = 0;

    const auto& header = headerParser.get();
    ServiceRequest request;
    request.method = toBytes(header.method_string());
    const QString target = QString::fromUtf8(toBytes(header.target()));
    const qsizetype question = target.indexOf(QLatin1Char('?'));
    request.path = question < 0 ? target : target.left(question);
    if (question >= 0)
        request.query = QUrlQuery(target.mid(question + 1));
    for (const auto& field : header)
        request.headers.append({toBytes(field.name_string()), toBytes(field.value())});
    const unsigned version = header.version();
    bool keepAlive = header.keep_alive();

    if (websocket::is_upgrade(header)) {
        if (const WebSocketHandler* handler = router.findWebSocket(request))
            return serveWebSocket(socket, headerParser.get(), request, target, *handler);
    }

    bool pathKnown = false;
    const Router::Route* route = router.find(request, &pathKnown);

    // Streamed bodies are never held whole, so they are not in the log.
    std::optional<http::request_parser<http::buffer_body>> streamParser;
    if (route && route->streaming) {
        streamParser.emplace(std::move(headerParser));
        streamParser->body_limit(std::numeric_limits<std::uint64_t>::max());
    } else {
        http::request_parser<http::string_body> bodyParser(std::move(headerParser));
        bodyParser.body_limit(kWholeBodyLimit);
        DeadlineReader bodyReader(socket, options.idleTimeout);
        http::read(bodyReader, buffer, bodyParser, ec);
        if (ec == http::error::body_limit) {
            write(socket, ServiceResponse::detail(413, QStringLiteral("Request body too large")),
                  version, false);
            return false;
        }
        if (ec) {
            if (isMalformedRequest(ec))
                write(socket, ServiceResponse::detail(400, QStringLiteral("Malformed request")),
                      version, false);
            return false;
        }
        request.body = QByteArray::fromStdString(bodyParser.get().body());
    }

    const qsizetype logEntry =
        scripts.log({request.method, request.path, target, request.headers, request.body, 0, {}});
    std::optional<SocketBodyReader> socketReader;
    std::optional<HashingBodyReader> streamReader;
    if (streamParser) {
        socketReader.emplace(socket, buffer, *streamParser, options.uploadBytesPerSecond,
                             options.idleTimeout);
        streamReader.emplace(*socketReader);
    }
    const auto noteStreamedBody = [&] {
        if (streamReader)
            scripts.noteStreamedBody(logEntry, streamReader->size(), streamReader->sha256());
    };
    const auto note = [&](const QString& outcome) {
        if (options.logRequests)
            consoleLog(QStringLiteral("🌐 %1 %2 → %3")
                           .arg(QString::fromUtf8(request.method), request.path, outcome));
    };

    ServiceResponse response;
    if (std::optional<ScriptedAnswer> script = scripts.take(request.method, request.path)) {
        if (script->delay.count() > 0 && !sleepUnlessStopping(script->delay))
            return false;
        if (script->dropConnection) {
            ::shutdown(socket.native_handle(), SHUT_RDWR);
            return false;
        }
        if (script->status) {
            response.status = *script->status;
            response.headers = script->headers;
            response.body = script->body;
            response.contentType.clear();
            // Read the body first, as a real server answering after the
            // upload would: closing on unread data resets the connection and
            // the client would never see the scripted answer.
            if (streamReader) {
                streamReader->drain();
                noteStreamedBody();
            }
            if (streamParser && !streamParser->is_done())
                keepAlive = false;
            note(QStringLiteral("%1 (scripted)").arg(response.status));
            return write(socket, response, version, keepAlive);
        }
    }

    if (const ResponseStreamHandler* streamHandler = router.findResponseStream(request)) {
        SocketResponseStream stream(socket, version, stopping);
        if (std::optional<ServiceResponse> refusal = (*streamHandler)(request, stream)) {
            note(QString::number(refusal->status));
            return write(socket, *refusal, version, keepAlive);
        }
        note(QStringLiteral("stream ended"));
        return false;
    }

    if (!route) {
        response = pathKnown ? ServiceResponse::detail(405, QStringLiteral("Method Not Allowed"))
                             : ServiceResponse::detail(404, QStringLiteral("Not Found"));
    } else if (streamReader) {
        response = route->streaming(request, *streamReader);
        noteStreamedBody();
        // An answer before the end of the body leaves the connection unusable.
        if (!streamParser->is_done())
            keepAlive = false;
    } else {
        response = route->handler(request);
    }
    note(QString::number(response.status));
    return write(socket, response, version, keepAlive);
}

// The connection becomes the endpoint's until it ends.
bool Transport::Impl::serveWebSocket(tcp::socket& socket, http::request<http::empty_body>& upgrade,
                                     ServiceRequest& request, const QString& target,
                                     const WebSocketHandler& handler)
{
    scripts.log({request.method, request.path, target, request.headers, {}, 0, {}});
    websocket::stream<tcp::socket&> ws(socket);
    ws.set_option(websocket::stream_base::decorator([](websocket::response_type& res) {
        res.set(http::field::server, "sorvelandrix-local-service");
    }));
    ws.read_message_max(std::size_t{1024} * 1024);
    beast::error_code ec;
    ws.accept(upgrade, ec);
    if (options.logRequests)
        consoleLog(QStringLiteral("🌐 %1 %2 → %3 (WebSocket)")
                       .arg(QString::fromUtf8(request.method), request.path,
                            QString::number(ec ? 400 : 101)));
    if (ec)
        return false;
    BeastWebSocketChannel channel(ws);
    handler(request, channel);
    return false;
}

Transport::Transport(const ServiceOptions& options, const Router& router, RequestScripts& scripts)
    : d(std::make_unique<Impl>(options, router, scripts))
{}

Transport::~Transport()
{
    stop();
}

bool Transport::isListening() const
{
    return d->acceptor != nullptr;
}

std::uint16_t Transport::port() const
{
    return d->port;
}

bool Transport::start(std::uint16_t port, QString* error)
{
    try {
        auto acceptor = std::make_unique<tcp::acceptor>(d->io);
        const tcp::endpoint endpoint(net::ip::make_address_v4("127.0.0.1"), port);
        acceptor->open(endpoint.protocol());
        acceptor->set_option(net::socket_base::reuse_address(true));
        acceptor->bind(endpoint);
        acceptor->listen();
        d->port = acceptor->local_endpoint().port();
        d->acceptor = std::move(acceptor);
    } catch (const boost::system::system_error& e) {
        if (error)
            *error = QString::fromStdString(e.what());
        return false;
    }
    d->stopping = false;
    d->acceptThread = std::thread([this] { d->acceptLoop(); });
    return true;
}

void Transport::stop()
{
    if (!d->acceptor)
        return;
    {
        std::lock_guard lock(d->stopMutex);
        d->stopping = true;
    }
    d->stopWake.notify_all();
    {
        // An accept loop waiting for a free slot checks `stopping` under this lock.
        std::lock_guard lock(d->connectionsMutex);
    }
    d->connectionEnded.notify_all();
    // shutdown() on a listening socket wakes a blocked accept().
    ::shutdown(d->acceptor->native_handle(), SHUT_RDWR);
    d->acceptThread.join();
    beast::error_code ec;
    d->acceptor->close(ec);
    d->acceptor.reset();
    {
        std::lock_guard lock(d->connectionsMutex);
        for (const auto& connection : d->connections) {
            if (connection->socket.is_open())
                ::shutdown(connection->socket.native_handle(), SHUT_RDWR);
        }
    }
    for (const auto& connection : d->connections)
        connection->thread.join();
    d->connections.clear();
}

} // namespace sorv::local
