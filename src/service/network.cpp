#include "network.h"

#include "service/onceonlybody.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QThread>

namespace sorv {

namespace {

const char* const kRefusedProperty = "_sorv_refused";
const char* const kAbandonedProperty = "_sorv_abandoned";

void assertMainThread()
{
    Q_ASSERT_X(QCoreApplication::instance() &&
                   QThread::currentThread() == QCoreApplication::instance()->thread(),
               "sharedNetworkAccess", "the network session is used from the main thread only");
}

bool sameOrigin(const QUrl& a, const QUrl& b)
{
    return a.scheme() == b.scheme() && a.host() == b.host() &&
           a.port(a.scheme() == QLatin1String("https") ? 443 : 80) ==
               b.port(b.scheme() == QLatin1String("https") ? 443 : 80);
}

// Refuses the reply with our own reason; finished() then reports it.
void refuse(QNetworkReply* reply, const QString& reason)
{
    reply->setProperty(kRefusedProperty, reason);
    reply->abort();
}

} // namespace

QNetworkAccessManager& sharedNetworkAccess()
{
    assertMainThread();
    static QPointer<QNetworkAccessManager> manager;
    if (!manager)
        manager = new QNetworkAccessManager(QCoreApplication::instance());
    return *manager;
}

QByteArray bearerHeaderValue(const QString& accessToken)
{
    return "Bearer " + accessToken.toUtf8();
}

void setBearer(QNetworkRequest& request, const QString& accessToken)
{
    if (!accessToken.isEmpty())
        request.setRawHeader("Authorization", bearerHeaderValue(accessToken));
}

QByteArray HttpAnswer::header(const QByteArray& name) const
{
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

bool HttpAnswer::hasHeader(const QByteArray& name) const
{
    for (const auto& pair : headers) {
        if (pair.first.compare(name, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

RequestHandle::RequestHandle(QNetworkReply* reply) : m_reply(reply) {}

void RequestHandle::abort()
{
    if (!m_reply)
        return;
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    // Nobody hears of it any more; it deletes itself once finished.
    reply->setProperty(kAbandonedProperty, true);
    reply->abort();
}

bool RequestHandle::isRunning() const
{
    return m_reply && !m_reply->isFinished();
}

QString refusalReason(const QNetworkReply* reply)
{
    return reply->property(kRefusedProperty).toString();
}

void guardReply(QNetworkReply* reply, bool carriesToken)
{
    const QUrl original = reply->request().url();
    auto hops = std::make_shared<int>(0);
    QObject::connect(
        reply, &QNetworkReply::redirected, reply,
        [reply, original, carriesToken, hops](const QUrl& target) {
            const QUrl from = reply->url();
            if (++*hops > kMaxRedirects) {
                refuse(reply, QCoreApplication::translate("Network", "Too many redirects"));
                return;
            }
            if (from.scheme() == QLatin1String("https") &&
                target.scheme() != QLatin1String("https")) {
                refuse(reply,
                       QCoreApplication::translate("Network", "Refused a redirect from https to %1")
                           .arg(target.toDisplayString()));
                return;
            }
            // The token belongs to the service: it is not sent elsewhere.
            if (carriesToken && !sameOrigin(original, target)) {
                refuse(reply, QCoreApplication::translate("Network", "Refused a redirect to %1")
                                  .arg(target.host()));
                return;
            }
            Q_EMIT reply->redirectAllowed();
        });
}

RequestHandle sendRequest(const QByteArray& verb, const QNetworkRequest& request,
                          const QByteArray& body, const QObject* context, AnswerCallback done,
                          const RequestOptions& options)
{
    QNetworkRequest r(request);
    r.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                   QNetworkRequest::UserVerifiedRedirectPolicy);
    r.setMaximumRedirectsAllowed(kMaxRedirects);

    QNetworkReply* reply = nullptr;
    if (verb == "GET" || verb == "HEAD") {
        reply = sharedNetworkAccess().sendCustomRequest(r, verb);
    } else {
        auto* device = new OnceOnlyBody(body);
        r.setHeader(QNetworkRequest::ContentLengthHeader, body.size());
        r.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
        reply = sharedNetworkAccess().sendCustomRequest(r, verb, device);
        device->setParent(reply);
    }
    guardReply(reply, r.hasRawHeader("Authorization"));

    // The body is collected as it arrives, so an answer that is too large
    // is refused before it fills memory.
    auto received = std::make_shared<QByteArray>();
    const qint64 limit = options.maxAnswerBytes;
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, limit] {
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && length.toLongLong() > limit)
            refuse(reply, QCoreApplication::translate("Network",
                                                      "The server's answer is too large (%1 bytes)")
                              .arg(length.toLongLong()));
    });
    QObject::connect(reply, &QNetworkReply::readyRead, reply, [reply, received, limit] {
        *received += reply->readAll();
        if (received->size() > limit)
            refuse(reply, QCoreApplication::translate(
                              "Network", "The server's answer is too large (over %1 bytes)")
                              .arg(limit));
    });
    QObject::connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
    if (!context)
        return RequestHandle(reply);
    QObject::connect(
        reply, &QNetworkReply::finished, context, [reply, received, done = std::move(done)] {
            if (reply->property(kAbandonedProperty).toBool())
                return;
            HttpAnswer answer;
            const QVariant refused = reply->property(kRefusedProperty);
            const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
            if (refused.isValid()) {
                answer.transportError = true;
                answer.errorText = refused.toString();
            } else if (status.isValid()) {
                answer.isHttp = true;
                answer.status = status.toInt();
                *received += reply->readAll();
                answer.body = *received;
                for (const auto& pair : reply->rawHeaderPairs())
                    answer.headers.append(pair);
            } else if (reply->error() != QNetworkReply::NoError) {
                answer.transportError = true;
                answer.errorText = reply->errorString();
            } else {
                *received += reply->readAll();
                answer.body = *received;
            }
            done(answer);
        });
    return RequestHandle(reply);
}

} // namespace sorv
