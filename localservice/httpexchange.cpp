#include "httpexchange.h"

#include <QJsonDocument>

namespace sorv::local {

QByteArray ServiceRequest::header(const QByteArray& name) const
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

bool matchRoute(const QString& pattern, const QString& path, QStringList* params)
{
    const QStringList want = pattern.split(QLatin1Char('/'));
    const QStringList have = path.split(QLatin1Char('/'));
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
    if (params)
        *params = found;
    return true;
}

} // namespace sorv::local
