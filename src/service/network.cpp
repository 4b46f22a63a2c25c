#include "network.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>

namespace sorv {

QNetworkAccessManager& sharedNetworkAccess()
{
    static QPointer<QNetworkAccessManager> manager;
    if (!manager) {
        manager = new QNetworkAccessManager(QCoreApplication::instance());
        // The service answers each request once; no redirects are expected,
        // and following one silently would resend credentials elsewhere.
        manager->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    }
    return *manager;
}

QByteArray HttpAnswer::header(const QByteArray& name) const
{
    return reply ? reply->rawHeader(name) : QByteArray();
}

QNetworkReply* sendRequest(const QByteArray& verb, const QNetworkRequest& request,
                           const QByteArray& body, const QObject* context, AnswerCallback done)
{
    QNetworkReply* reply = body.isNull() && verb == "GET"
                               ? sharedNetworkAccess().get(request)
                               : sharedNetworkAccess().sendCustomRequest(request, verb, body);
    QObject::connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
    if (!context)
        return reply;
    QObject::connect(reply, &QNetworkReply::finished, context, [reply, done = std::move(done)] {
        HttpAnswer answer;
        answer.reply = reply;
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (status.isValid()) {
            answer.isHttp = true;
            answer.status = status.toInt();
            answer.body = reply->readAll();
        } else if (reply->error() != QNetworkReply::NoError) {
            answer.transportError = true;
            answer.errorText = reply->errorString();
        } else {
            answer.body = reply->readAll();
        }
        done(answer);
    });
    return reply;
}

} // namespace sorv
