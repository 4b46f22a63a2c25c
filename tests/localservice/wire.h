#pragma once

#include "localservice/localservice.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

namespace sorv::test {

struct Answer {
    int status = 0; // 0: no HTTP answer
    QJsonDocument json;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QByteArray retryAfter;
    QString detail() const { return json.object().value("detail").toString(); }
};

// Requests to the local service built by hand, not through the client, so
// that a misreading the two share cannot hide.
class Wire {
public:
    explicit Wire(QString origin) : m_origin(std::move(origin)) {}

    Answer call(const QByteArray& method, const QString& path, const QJsonObject& body = {},
                const QString& token = {})
    {
        QNetworkRequest request(QUrl(m_origin + path));
        request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
        if (!token.isEmpty())
            request.setRawHeader("Authorization", "Bearer " + token.toUtf8());
        const QByteArray payload = method == "GET" ? QByteArray() : QJsonDocument(body).toJson();
        QNetworkReply* reply = method == "GET" ? m_nam.get(request)
                                               : m_nam.sendCustomRequest(request, method, payload);
        QEventLoop loop;
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        QTimer::singleShot(std::chrono::seconds(10), &loop, &QEventLoop::quit);
        loop.exec();
        Answer a;
        a.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        a.json = QJsonDocument::fromJson(reply->readAll());
        a.error = reply->error();
        a.retryAfter = reply->rawHeader("Retry-After");
        reply->deleteLater();
        return a;
    }

    // The sign-in's whole answer; its "token" is the access token.
    QJsonObject signIn(const QString& password = local::LocalService::kDemoPassword,
                       const QString& email = local::LocalService::kDemoEmail)
    {
        return call("POST", QStringLiteral("/api/auth/login"),
                    {{"email", email}, {"password", password}})
            .json.object();
    }
    QString token() { return signIn().value("token").toString(); }

private:
    QString m_origin;
    QNetworkAccessManager m_nam;
};

} // namespace sorv::test
