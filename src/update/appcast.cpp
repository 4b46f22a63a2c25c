#include "appcast.h"

#include "update/edsignature.h"
#include "update/versioncompare.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QXmlStreamReader>

namespace sorv {

namespace {

const QString kSparkleNamespace =
    QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

bool isPlain(const QXmlStreamReader& xml, QLatin1String name)
{
    return xml.namespaceUri().isEmpty() && xml.name() == name;
}

bool isSparkle(const QXmlStreamReader& xml, QLatin1String name)
{
    return xml.namespaceUri() == kSparkleNamespace && xml.name() == name;
}

QString sparkleAttribute(const QXmlStreamAttributes& attributes, QLatin1String name)
{
    return attributes.value(kSparkleNamespace, name).toString().trimmed();
}

bool isForLinux(const QString& os)
{
    return os.isEmpty() || os == QLatin1String("linux");
}

// Reads the <item> the reader stands on, up to and including its end tag.
AppcastItem readItem(QXmlStreamReader& xml, const QUrl& feedUrl)
{
    AppcastItem item;
    bool haveEnclosure = false;
    QString enclosureVersion;
    QString enclosureShortVersion;
    while (xml.readNextStartElement()) {
        if (isPlain(xml, QLatin1String("title"))) {
            item.title = xml.readElementText(QXmlStreamReader::IncludeChildElements).trimmed();
        } else if (isSparkle(xml, QLatin1String("version"))) {
            item.version = xml.readElementText().trimmed();
        } else if (isSparkle(xml, QLatin1String("shortVersionString"))) {
            item.shortVersionString = xml.readElementText().trimmed();
        } else if (isSparkle(xml, QLatin1String("channel"))) {
            item.channel = xml.readElementText().trimmed();
        } else if (isPlain(xml, QLatin1String("enclosure"))) {
            const QXmlStreamAttributes a = xml.attributes();
            const QString os = sparkleAttribute(a, QLatin1String("os"));
            // The first enclosure for this system; another system's only when
            // there is none (then the item is passed over for it).
            if (!haveEnclosure || (!isForLinux(item.os) && isForLinux(os))) {
                haveEnclosure = true;
                const QString url = a.value(QLatin1String("url")).toString().trimmed();
                item.enclosureUrl = url.isEmpty() ? QUrl() : feedUrl.resolved(QUrl(url));
                bool ok = false;
                const qint64 length = a.value(QLatin1String("length")).toLongLong(&ok);
                item.enclosureLength = ok && length >= 0 ? length : -1;
                item.edSignature = sparkleAttribute(a, QLatin1String("edSignature"));
                item.os = os;
                enclosureVersion = sparkleAttribute(a, QLatin1String("version"));
                enclosureShortVersion = sparkleAttribute(a, QLatin1String("shortVersionString"));
            }
            xml.skipCurrentElement();
        } else {
            xml.skipCurrentElement();
        }
    }
    if (item.version.isEmpty())
        item.version = enclosureVersion;
    if (item.shortVersionString.isEmpty())
        item.shortVersionString = enclosureShortVersion;
    return item;
}

} // namespace

std::optional<QList<AppcastItem>> parseAppcast(const QByteArray& xmlText, const QUrl& feedUrl,
                                               QString* error)
{
    QXmlStreamReader xml(xmlText);
    QList<AppcastItem> items;
    if (!xml.readNextStartElement() || !isPlain(xml, QLatin1String("rss"))) {
        if (error)
            *error = xml.hasError()
                         ? xml.errorString()
                         : QCoreApplication::translate("UpdateCheckError", "it is not an RSS feed");
        return std::nullopt;
    }
    while (xml.readNextStartElement()) {
        if (!isPlain(xml, QLatin1String("channel"))) {
            xml.skipCurrentElement();
            continue;
        }
        while (xml.readNextStartElement()) {
            if (isPlain(xml, QLatin1String("item")))
                items.append(readItem(xml, feedUrl));
            else
                xml.skipCurrentElement();
        }
    }
    if (xml.hasError()) {
        QString message = xml.errorString();
        if (message.endsWith(QLatin1Char('.')))
            message.chop(1);
        if (error)
            *error = QStringLiteral("%1 (line %2)").arg(message, QString::number(xml.lineNumber()));
        return std::nullopt;
    }
    return items;
}

bool isTrustedUpdateUrl(const QUrl& url)
{
    if (!url.isValid() || url.host().isEmpty())
        return false;
    if (url.scheme() == QLatin1String("https"))
        return true;
    if (url.scheme() != QLatin1String("http"))
        return false;
    if (url.host() == QLatin1String("localhost"))
        return true;
    const QHostAddress address(url.host());
    return !address.isNull() && address.isLoopback();
}

QString appcastItemProblem(const AppcastItem& item)
{
    if (item.version.isEmpty())
        return QCoreApplication::translate("UpdateCheckError", "it has no version");
    if (!item.channel.isEmpty())
        return QStringLiteral("it is in the \"%1\" channel").arg(item.channel);
    if (!isForLinux(item.os))
        return QCoreApplication::translate("UpdateCheckError", "it is for %1").arg(item.os);
    if (item.enclosureUrl.isEmpty())
        return QCoreApplication::translate("UpdateCheckError", "it has no enclosure");
    if (!isTrustedUpdateUrl(item.enclosureUrl))
        return QCoreApplication::translate("UpdateCheckError",
                                           "its enclosure is not an HTTPS address");
    // Only signed updates are offered. One without a well-formed signature
    // could never pass the check against this build's key, so it is not
    // even fetched.
    if (!isWellFormedEdSignature(item.edSignature))
        return QCoreApplication::translate("UpdateCheckError",
                                           "its EdDSA signature is missing or malformed");
    // The download is held to this length: without one, a server could feed
    // us for ever.
    if (item.enclosureLength <= 0)
        return QCoreApplication::translate("UpdateCheckError", "its enclosure has no length");
    if (item.enclosureLength > kMaxUpdateBytes)
        return QCoreApplication::translate("UpdateCheckError",
                                           "its enclosure is larger than %1 MiB")
            .arg(kMaxUpdateBytes / (qint64{1024} * 1024));
    return {};
}

std::optional<AppcastItem> newestAppcastItem(const QList<AppcastItem>& items, QStringList* skipped)
{
    std::optional<AppcastItem> newest;
    for (const AppcastItem& item : items) {
        if (const QString problem = appcastItemProblem(item); !problem.isEmpty()) {
            if (skipped) {
                const QString name = item.version.isEmpty() ? item.title : item.version;
                skipped->append(QStringLiteral("%1: %2").arg(name, problem));
            }
            continue;
        }
        if (!newest || compareVersions(item.version, newest->version) > 0)
            newest = item;
    }
    return newest;
}

} // namespace sorv
