#include "httpexchange.h"

#include <QJsonDocument>

namespace sorv::local {

QByteArray headerValue(const HeaderList& headers, const QByteArray& name)
{
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

QString ServiceRequest::bearerToken() const
{
    const QByteArray value = header("Authorization");
    if (!value.startsWith("Bearer "))
        return {};
    return QString::fromUtf8(value.mid(7)).trimmed();
}

QJsonObject ServiceRequest::jsonObject() const
{
    return QJsonDocument::fromJson(body).object();
}

ServiceResponse ServiceResponse::json(int status, const QJsonObject& object)
{
    ServiceResponse r;
    r.status = status;
    r.body = QJsonDocument(object).toJson(QJsonDocument::Compact);
    return r;
}

ServiceResponse ServiceResponse::json(int status, const QJsonArray& array)
{
    ServiceResponse r;
    r.status = status;
    r.body = QJsonDocument(array).toJson(QJsonDocument::Compact);
    return r;
}

ServiceResponse ServiceResponse::detail(int status, const QString& message)
{
    return json(status, QJsonObject{{QStringLiteral("detail"), message}});
}

void BodyReader::drain()
{
    QString error;
    for (;;) {
        const std::optional<QByteArray> piece = next(&error);
        if (!piece || piece->isEmpty())
            return;
    }
}

} // namespace sorv::local
