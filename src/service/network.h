#pragma once

#include <QByteArray>
#include <QNetworkRequest>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;
class QObject;

namespace sorv {

// The application's one network session (created on first use on the main
// thread, parented to the application object). Every service request goes
// through it; there is no pool or retry layer of our own.
QNetworkAccessManager& sharedNetworkAccess();

// What came back from one request, reduced to what the service rules look at.
struct HttpAnswer {
    bool transportError = false; // no answer at all (refused, reset, timeout…)
    QString errorText;           // the transport error's description
    bool isHttp = false;         // an HTTP status line was received
    int status = 0;
    QByteArray body;
    QByteArray header(const QByteArray& name) const;

    QNetworkReply* reply = nullptr; // valid only during the callback
};

using AnswerCallback = std::function<void(const HttpAnswer&)>;

// Sends one request and calls `done` on the context's thread when it ends.
// When `context` is destroyed first, nothing is called (it is held weakly).
// The reply is deleted after the callback; callbacks never run synchronously.
QNetworkReply* sendRequest(const QByteArray& verb, const QNetworkRequest& request,
                           const QByteArray& body, const QObject* context, AnswerCallback done);

} // namespace sorv
