// /updates/*: the appcast that the application's update checker reads. It
// is written from the service's side (OpenSSL directly, its own XML), so a
// misreading of the feed format cannot hide on both sides of a test.

#include "localservice/updateendpoints.h"

#include "localservice/router.h"
#include "localservice/servicestate.h"

#include "core/appinfo.h"

#include <QDateTime>
#include <QFile>
#include <QSaveFile>
#include <QXmlStreamWriter>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <array>

namespace sorv::local {

namespace {

const QString kSparkleNamespace =
    QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");
const QString kFilesPrefix = QStringLiteral("/updates/files/");

struct SslFree {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
    void operator()(EVP_PKEY_CTX* p) const { EVP_PKEY_CTX_free(p); }
    void operator()(EVP_MD_CTX* p) const { EVP_MD_CTX_free(p); }
    void operator()(BIO* p) const { BIO_free(p); }
};
template <typename T> using Owned = std::unique_ptr<T, SslFree>;

QString sslError(const QString& what)
{
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    std::array<char, 256> text{};
    if (code != 0)
        ERR_error_string_n(code, text.data(), text.size());
    return code != 0 ? QStringLiteral("%1: %2").arg(what, QString::fromLatin1(text.data())) : what;
}

Owned<EVP_PKEY> readPrivateKey(const QByteArray& pem)
{
    const Owned<BIO> bio(BIO_new_mem_buf(pem.constData(), static_cast<int>(pem.size())));
    Owned<EVP_PKEY> key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr)
                            : nullptr);
    if (key && !EVP_PKEY_is_a(key.get(), "ED25519"))
        key.reset();
    return key;
}

Owned<EVP_PKEY> generateKey()
{
    const Owned<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_id(EVP_PKEY_ED25519, nullptr));
    EVP_PKEY* key = nullptr;
    if (!ctx || EVP_PKEY_keygen_init(ctx.get()) != 1 || EVP_PKEY_keygen(ctx.get(), &key) != 1)
        return nullptr;
    return Owned<EVP_PKEY>(key);
}

QByteArray privateKeyPem(EVP_PKEY* key)
{
    const Owned<BIO> bio(BIO_new(BIO_s_mem()));
    if (!bio ||
        PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return {};
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return QByteArray(data, static_cast<qsizetype>(size));
}

QByteArray rawPublicKey(EVP_PKEY* key)
{
    std::array<unsigned char, 32> raw{};
    size_t size = raw.size();
    if (EVP_PKEY_get_raw_public_key(key, raw.data(), &size) != 1 || size != raw.size())
        return {};
    return QByteArray(reinterpret_cast<const char*>(raw.data()), static_cast<qsizetype>(size));
}

QByteArray sign(EVP_PKEY* key, const QByteArray& data)
{
    const Owned<EVP_MD_CTX> ctx(EVP_MD_CTX_new());
    std::array<unsigned char, 64> signature{};
    size_t size = signature.size();
    if (!ctx || EVP_DigestSignInit(ctx.get(), nullptr, nullptr, nullptr, key) != 1 ||
        EVP_DigestSign(ctx.get(), signature.data(), &size,
                       reinterpret_cast<const unsigned char*>(data.constData()),
                       static_cast<size_t>(data.size())) != 1)
        return {};
    return QByteArray(reinterpret_cast<const char*>(signature.data()),
                      static_cast<qsizetype>(size));
}

} // namespace

struct UpdateEndpoints::Impl {
    explicit Impl(ServiceState& s) : state(s) {}

    ServiceState& state;
    // Fixed by open(), before the first connection; read-only afterwards.
    QString version;
    QString publicKey;
    QString fileName; // as it appears in the path (percent-encoded)
    QByteArray enclosure;
    QString signature;
    QDateTime published;
};

UpdateEndpoints::UpdateEndpoints(ServiceState& state) : d(std::make_unique<Impl>(state)) {}

UpdateEndpoints::~UpdateEndpoints() = default;

void UpdateEndpoints::addRoutes(Router& router)
{
    router.add("GET", kAppcastPath,
               [this](const ServiceRequest& request) { return appcast(request); });
    router.add("GET", kFilesPrefix + QStringLiteral("{}"),
               [this](const ServiceRequest& request) { return enclosure(request); });
}

bool UpdateEndpoints::open(QString* error)
{
    const auto failed = [error](const QString& why) {
        if (error)
            *error = why;
        return false;
    };
    const ServiceOptions& options = d->state.options();
    const bool given = !options.appcastKeyFile.isEmpty();
    const QString keyPath = given
                                ? options.appcastKeyFile
                                : d->state.dataDirectory() + QStringLiteral("/appcast-ed25519.pem");

    Owned<EVP_PKEY> key;
    if (QFile file(keyPath); file.open(QIODevice::ReadOnly)) {
        key = readPrivateKey(file.readAll());
        if (!key)
            return failed(sslError(
                QStringLiteral("%1 is not an Ed25519 private key in PEM form").arg(keyPath)));
    } else if (given) {
        return failed(QStringLiteral("cannot read %1: %2").arg(keyPath, file.errorString()));
    } else {
        key = generateKey();
        const QByteArray pem = key ? privateKeyPem(key.get()) : QByteArray();
        if (pem.isEmpty())
            return failed(sslError(QStringLiteral("cannot make an Ed25519 key")));
        QSaveFile out(keyPath);
        if (!out.open(QIODevice::WriteOnly) ||
            !out.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
            out.write(pem) != pem.size() || !out.commit())
            return failed(QStringLiteral("cannot write %1: %2").arg(keyPath, out.errorString()));
    }

    d->version = options.appcastVersion.isEmpty() ? AppInfo::version() : options.appcastVersion;
    d->publicKey = QString::fromLatin1(rawPublicKey(key.get()).toBase64());
    d->fileName = QString::fromLatin1(
        QUrl::toPercentEncoding(QStringLiteral("sorvelandrix-recorder-%1.txt").arg(d->version)));
    d->enclosure = QStringLiteral("Sorvelandrix Recorder %1\n\nThis file stands in for a release: "
                                  "sorvelandrix-local-service offers it to try the application's "
                                  "update checker.\n")
                       .arg(d->version)
                       .toUtf8();
    const QByteArray signature = sign(key.get(), d->enclosure);
    if (d->publicKey.isEmpty() || signature.isEmpty())
        return failed(sslError(QStringLiteral("cannot sign the appcast's enclosure")));
    d->signature = QString::fromLatin1(signature.toBase64());
    d->published = QDateTime::currentDateTimeUtc();
    return true;
}

QString UpdateEndpoints::publicKeyBase64() const
{
    return d->publicKey;
}

QString UpdateEndpoints::version() const
{
    return d->version;
}

ServiceResponse UpdateEndpoints::appcast(const ServiceRequest& request) const
{
    // Absolute addresses on the host the client asked for; a relative one
    // when it named none.
    const QByteArray host = request.header("host");
    const QString base =
        host.isEmpty() ? QString() : QStringLiteral("http://") + QString::fromLatin1(host);
    QByteArray body;
    QXmlStreamWriter xml(&body);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeNamespace(kSparkleNamespace, QStringLiteral("sparkle"));
    xml.writeStartElement(QStringLiteral("rss"));
    xml.writeAttribute(QStringLiteral("version"), QStringLiteral("2.0"));
    xml.writeStartElement(QStringLiteral("channel"));
    xml.writeTextElement(QStringLiteral("title"), QStringLiteral("Sorvelandrix Recorder"));
    xml.writeTextElement(QStringLiteral("link"), base + kAppcastPath);
    xml.writeTextElement(QStringLiteral("description"),
                         QStringLiteral("Releases offered by sorvelandrix-local-service"));
    xml.writeTextElement(QStringLiteral("language"), QStringLiteral("en"));
    xml.writeStartElement(QStringLiteral("item"));
    xml.writeTextElement(QStringLiteral("title"), QStringLiteral("Version ") + d->version);
    xml.writeTextElement(QStringLiteral("pubDate"), d->published.toString(Qt::RFC2822Date));
    xml.writeTextElement(kSparkleNamespace, QStringLiteral("version"), d->version);
    xml.writeTextElement(kSparkleNamespace, QStringLiteral("shortVersionString"), d->version);
    xml.writeEmptyElement(QStringLiteral("enclosure"));
    xml.writeAttribute(QStringLiteral("url"), base + kFilesPrefix + d->fileName);
    xml.writeAttribute(QStringLiteral("length"), QString::number(d->enclosure.size()));
    xml.writeAttribute(QStringLiteral("type"), QStringLiteral("text/plain"));
    xml.writeAttribute(kSparkleNamespace, QStringLiteral("os"), QStringLiteral("linux"));
    xml.writeAttribute(kSparkleNamespace, QStringLiteral("edSignature"), d->signature);
    xml.writeEndElement(); // item
    xml.writeEndElement(); // channel
    xml.writeEndElement(); // rss
    xml.writeEndDocument();

    ServiceResponse response;
    response.body = body;
    response.contentType = "application/rss+xml; charset=utf-8";
    return response;
}

ServiceResponse UpdateEndpoints::enclosure(const ServiceRequest& request) const
{
    if (request.params.value(0) != d->fileName)
        return ServiceResponse::detail(404, QStringLiteral("Not Found"));
    ServiceResponse response;
    response.body = d->enclosure;
    response.contentType = "text/plain; charset=utf-8";
    response.headers.append(
        {"Content-Disposition",
         QStringLiteral("attachment; filename=\"%1\"")
             .arg(QUrl::fromPercentEncoding(d->fileName.toLatin1()).remove(QLatin1Char('"')))
             .toUtf8()});
    return response;
}

} // namespace sorv::local
