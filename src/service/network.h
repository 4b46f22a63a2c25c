#pragma once

#include <QByteArray>
#include <QList>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPair>
#include <QPointer>
#include <QString>

#include <functional>

class QNetworkAccessManager;
class QObject;

namespace sorv {

// How long each kind of request may take, in one place.
namespace Timeouts {
constexpr int kServiceMs = 15'000; // ordinary service calls
constexpr int kRefreshMs = 10'000; // token refresh
constexpr int kLogoutMs = 60'000;  // the sign-out told to the service in passing
constexpr int kUploadMs = 600'000; // a recording upload (large video files)
} // namespace Timeouts

// What an answer may weigh. The service's JSON answers are small; a body
// beyond this is not the service talking (or something is wrong), and is
// refused without being read whole.
constexpr qint64 kMaxJsonAnswerBytes = 4LL * 1024 * 1024;
// Redirects are followed at most this many times, and never from https to
// http nor, for a request that carries a token, to another origin.
constexpr int kMaxRedirects = 5;

// The application's one network session (created on first use, parented to
// the application object). Main thread only: every service request goes
// through it; there is no pool or retry layer of our own.
QNetworkAccessManager& sharedNetworkAccess();

// The "Authorization" header for a token: the one place that spells it.
QByteArray bearerHeaderValue(const QString& accessToken);
// Sets it on a request, or leaves the request without one for an empty token.
void setBearer(QNetworkRequest& request, const QString& accessToken);

// What came back from one request, reduced to what the service rules look at.
// Everything is copied out of the reply: the answer outlives it.
struct HttpAnswer {
    bool transportError = false; // no usable answer (refused, reset, timeout, too large…)
    QString errorText;           // the transport error's description
    bool isHttp = false;         // an HTTP status line was received
    int status = 0;
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers;

    // Case-insensitive; empty when absent.
    QByteArray header(const QByteArray& name) const;
    bool hasHeader(const QByteArray& name) const;
};

using AnswerCallback = std::function<void(const HttpAnswer&)>;

// A request under way, for callers that may have to stop it (long transfers,
// event streams). Empty once the request has ended.
class RequestHandle {
public:
    RequestHandle() = default;
    explicit RequestHandle(QNetworkReply* reply);
    // Stops the request; its callback is not called afterwards.
    void abort();
    bool isRunning() const;
    QNetworkReply* reply() const { return m_reply; }

private:
    QPointer<QNetworkReply> m_reply;
};

struct RequestOptions {
    qint64 maxAnswerBytes = kMaxJsonAnswerBytes;
};

// Sends one request and calls `done` on the main thread when it ends. When
// `context` is destroyed first, nothing is called (it is held weakly).
// Callbacks never run synchronously. A request with a body is sent from a
// device that can be read only once, so the network stack can never send it
// a second time behind our back (a POST must not create a second upload,
// bot or refresh).
RequestHandle sendRequest(const QByteArray& verb, const QNetworkRequest& request,
                          const QByteArray& body, const QObject* context, AnswerCallback done,
                          const RequestOptions& options = {});

// For callers that bring their own body device (uploads): the redirect and
// answer-size rules above, applied to a reply they started themselves.
void guardReply(QNetworkReply* reply, bool carriesToken);
// Why those rules stopped a reply (empty when they did not): its error is
// then OperationCanceledError, which says nothing.
QString refusalReason(const QNetworkReply* reply);

} // namespace sorv
