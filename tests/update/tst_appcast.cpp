// The update checker's pure parts: version order, appcast reading, which
// items may be offered, and Ed25519 verification.

#include "update/appcast.h"
#include "update/edsignature.h"
#include "update/versioncompare.h"

#include <QtTest>

#include <openssl/evp.h>

#include <array>
#include <memory>

Q_DECLARE_METATYPE(sorv::AppcastItem)

using namespace sorv;

namespace {

struct KeyFree {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;

Key newKey()
{
    EVP_PKEY* key = nullptr;
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(
        EVP_PKEY_CTX_new_id(EVP_PKEY_ED25519, nullptr), EVP_PKEY_CTX_free);
    if (!ctx || EVP_PKEY_keygen_init(ctx.get()) != 1 || EVP_PKEY_keygen(ctx.get(), &key) != 1)
        qFatal("no Ed25519 key");
    return Key(key);
}

QString publicKeyOf(EVP_PKEY* key)
{
    std::array<unsigned char, 32> raw{};
    size_t size = raw.size();
    EVP_PKEY_get_raw_public_key(key, raw.data(), &size);
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char*>(raw.data()), qsizetype(size)).toBase64());
}

QString signWith(EVP_PKEY* key, const QByteArray& data)
{
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    std::array<unsigned char, 64> sig{};
    size_t size = sig.size();
    EVP_DigestSignInit(ctx.get(), nullptr, nullptr, nullptr, key);
    EVP_DigestSign(ctx.get(), sig.data(), &size,
                   reinterpret_cast<const unsigned char*>(data.constData()), size_t(data.size()));
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char*>(sig.data()), qsizetype(size)).toBase64());
}

// Any 64 bytes: the form of a signature, for items that are only read.
const QString kSignatureForm = QString::fromLatin1(QByteArray(64, 'S').toBase64());

AppcastItem offerable(const QString& version)
{
    AppcastItem item;
    item.version = version;
    item.enclosureUrl = QUrl(QStringLiteral("https://sorvelandrix.com/r/%1.tar.gz").arg(version));
    item.edSignature = kSignatureForm;
    item.enclosureLength = 1234;
    return item;
}

} // namespace

class TestAppcast : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void versionOrder_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("expected");
        QTest::newRow("1.10 > 1.9 (numbers, not text)") << QStringLiteral("1.10") << "1.9" << 1;
        QTest::newRow("1.0 == 1.0.0") << QStringLiteral("1.0") << "1.0.0" << 0;
        QTest::newRow("leading zeros") << QStringLiteral("01.2") << "1.2" << 0;
        QTest::newRow("beyond 64 bits")
            << QStringLiteral("1.100000000000000000000") << "1.99999999999999999999" << 1;
        QTest::newRow("release after its rc") << QStringLiteral("1.0") << "1.0-rc1" << 1;
        QTest::newRow("patch after the previous release's beta")
            << QStringLiteral("1.0.1-beta") << "1.0" << 1;
        QTest::newRow("b10 after b3") << QStringLiteral("1.0b10") << "1.0b3" << 1;
        QTest::newRow("beta after alpha") << QStringLiteral("1.0-beta") << "1.0-alpha.7" << 1;
        QTest::newRow("rc after beta") << QStringLiteral("1.0-rc.1") << "1.0-beta.2" << 1;
        QTest::newRow("alpha after dev") << QStringLiteral("2.0a1") << "2.0-dev" << 1;
        QTest::newRow("same pre-release") << QStringLiteral("1.0-RC2") << "1.0rc.2" << 0;
        QTest::newRow("leading v") << QStringLiteral("v1.2") << "1.2" << 0;
        QTest::newRow("build metadata") << QStringLiteral("1.2+20250101") << "1.2" << 0;
        QTest::newRow("empty is 0") << QStringLiteral("") << "0.0" << 0;
    }

    void versionOrder()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, expected);
        const auto sign = [](int v) { return (v > 0) - (v < 0); };
        QCOMPARE(sign(compareVersions(a, b)), expected);
        QCOMPARE(sign(compareVersions(b, a)), -expected);
    }

    void readsSparkleItems()
    {
        // Sparkle 2 puts the versions on the item, older feeds on the enclosure.
        const QByteArray feed =
            "<?xml version='1.0' encoding='utf-8'?>\n"
            "<rss version='2.0' "
            "xmlns:sparkle='http://www.andymatuschak.org/xml-namespaces/sparkle'\n"
            "     xmlns:dc='http://purl.org/dc/elements/1.1/'>\n"
            "  <channel>\n"
            "    <title>Sorvelandrix Recorder</title>\n"
            "    <item>\n"
            "      <title>Version 1.4 <b>beta</b></title>\n"
            "      <sparkle:version>1.4.0</sparkle:version>\n"
            "      <sparkle:shortVersionString>1.4</sparkle:shortVersionString>\n"
            "      <description><![CDATA[<p>notes</p>]]></description>\n"
            "      <enclosure url='https://sorvelandrix.com/r/1.4.dmg' sparkle:os='macos' "
            "length='9'\n"
            "                 sparkle:edSignature='mac'/>\n"
            "      <enclosure url='files/1.4.tar.gz' sparkle:os='linux' length='1234'\n"
            "                 sparkle:edSignature=' SIG== ' type='application/octet-stream'/>\n"
            "    </item>\n"
            "    <item>\n"
            "      <title>Version 1.3</title>\n"
            "      <enclosure url='https://sorvelandrix.com/r/1.3.tar.gz' length='x'\n"
            "                 sparkle:version='1.3.0' sparkle:shortVersionString='1.3'\n"
            "                 sparkle:edSignature='SIG2'/>\n"
            "      <sparkle:channel>beta</sparkle:channel>\n"
            "    </item>\n"
            "  </channel>\n"
            "</rss>\n";
        QString error;
        const auto items = parseAppcast(
            feed, QUrl(QStringLiteral("https://sorvelandrix.com/updates/a.xml")), &error);
        QVERIFY2(items, qPrintable(error));
        QCOMPARE(items->size(), 2);
        const AppcastItem& first = items->at(0);
        QCOMPARE(first.title, QStringLiteral("Version 1.4 beta"));
        QCOMPARE(first.version, QStringLiteral("1.4.0"));
        QCOMPARE(first.displayVersion(), QStringLiteral("1.4"));
        QCOMPARE(first.os, QStringLiteral("linux"));
        QCOMPARE(first.enclosureUrl,
                 QUrl(QStringLiteral("https://sorvelandrix.com/updates/files/1.4.tar.gz")));
        QCOMPARE(first.enclosureLength, 1234);
        QCOMPARE(first.edSignature, QStringLiteral("SIG=="));
        const AppcastItem& second = items->at(1);
        QCOMPARE(second.version, QStringLiteral("1.3.0"));
        QCOMPARE(second.displayVersion(), QStringLiteral("1.3"));
        QCOMPARE(second.enclosureLength, -1);
        QCOMPARE(second.channel, QStringLiteral("beta"));
    }

    void rejectsWhatIsNotAnAppcast_data()
    {
        QTest::addColumn<QByteArray>("document");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("a web page") << QByteArray("<html><body>Not here</body></html>");
        QTest::newRow("cut short") << QByteArray("<rss><channel><item><title>1.0</title>");
        QTest::newRow("undeclared prefix")
            << QByteArray("<rss><channel><item><sparkle:version>2</sparkle:version></item>"
                          "</channel></rss>");
    }

    void rejectsWhatIsNotAnAppcast()
    {
        QFETCH(QByteArray, document);
        QString error;
        QVERIFY(!parseAppcast(document, QUrl(QStringLiteral("https://x.example/a.xml")), &error));
        QVERIFY(!error.isEmpty());
    }

    void offersOnlySignedItemsForThisSystem_data()
    {
        QTest::addColumn<AppcastItem>("item");
        QTest::addColumn<QString>("problem");
        QTest::newRow("fine") << offerable("2.0") << QString();
        AppcastItem i = offerable("2.0");
        i.edSignature.clear();
        QTest::newRow("no signature") << i << "its EdDSA signature is missing or malformed";
        i.edSignature = QString::fromLatin1(QByteArray(32, 'S').toBase64());
        QTest::newRow("32-byte signature") << i << "its EdDSA signature is missing or malformed";
        i.edSignature = kSignatureForm.left(40) + QStringLiteral("!!") + kSignatureForm.mid(42);
        QTest::newRow("not base64") << i << "its EdDSA signature is missing or malformed";
        i = offerable("2.0");
        i.enclosureUrl = QUrl(QStringLiteral("http://downloads.example/r.tar.gz"));
        QTest::newRow("plain http") << i << "its enclosure is not an HTTPS address";
        i.enclosureUrl = QUrl(QStringLiteral("http://127.0.0.1:8765/updates/files/r.txt"));
        QTest::newRow("http to this computer") << i << QString();
        i = offerable("2.0");
        i.os = QStringLiteral("windows");
        QTest::newRow("another system") << i << "it is for windows";
        i = offerable("2.0");
        i.channel = QStringLiteral("beta");
        QTest::newRow("another channel") << i << "it is in the \"beta\" channel";
        i = offerable(QString());
        QTest::newRow("no version") << i << "it has no version";
        i = offerable("2.0");
        i.enclosureLength = -1;
        QTest::newRow("no length") << i << "its enclosure has no length";
        i.enclosureLength = 0;
        QTest::newRow("empty") << i << "its enclosure has no length";
        i.enclosureLength = kMaxUpdateBytes;
        QTest::newRow("512 MiB") << i << QString();
        i.enclosureLength = kMaxUpdateBytes + 1;
        QTest::newRow("over 512 MiB") << i << "its enclosure is larger than 512 MiB";
    }

    void offersOnlySignedItemsForThisSystem()
    {
        QFETCH(AppcastItem, item);
        QFETCH(QString, problem);
        QCOMPARE(appcastItemProblem(item), problem);
    }

    void newestOfferableItemWins()
    {
        AppcastItem unsignedNewest = offerable("9.0");
        unsignedNewest.edSignature.clear();
        const QList<AppcastItem> items{offerable("1.9"), unsignedNewest, offerable("1.10"),
                                       offerable("1.10.0-rc1")};
        QStringList skipped;
        const std::optional<AppcastItem> newest = newestAppcastItem(items, &skipped);
        QVERIFY(newest);
        QCOMPARE(newest->version, QStringLiteral("1.10"));
        QCOMPARE(skipped, QStringList{"9.0: its EdDSA signature is missing or malformed"});
        QVERIFY(!newestAppcastItem({unsignedNewest}));
    }

    void trustedAddresses_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("trusted");
        QTest::newRow("https") << QStringLiteral("https://sorvelandrix.com/updates/appcast.xml")
                               << true;
        QTest::newRow("loopback http")
            << QStringLiteral("http://127.0.0.1:8765/updates/appcast.xml") << true;
        QTest::newRow("IPv6 loopback") << QStringLiteral("http://[::1]:8765/a.xml") << true;
        QTest::newRow("remote http")
            << QStringLiteral("http://sorvelandrix.com/updates/appcast.xml") << false;
        QTest::newRow("file") << QStringLiteral("file:///tmp/appcast.xml") << false;
        QTest::newRow("no host") << QStringLiteral("https:///appcast.xml") << false;
        QTest::newRow("empty") << QStringLiteral("") << false;
    }

    void trustedAddresses()
    {
        QFETCH(QString, url);
        QFETCH(bool, trusted);
        QCOMPARE(isTrustedUpdateUrl(QUrl(url)), trusted);
    }

    void verifiesEd25519Signatures()
    {
        const Key key = newKey();
        const Key other = newKey();
        const QString publicKey = publicKeyOf(key.get());
        const QByteArray data("Sorvelandrix Recorder 1.4 for Linux");
        const QString signature = signWith(key.get(), data);
        QVERIFY(isWellFormedEdSignature(signature));

        QVERIFY(verifyEdSignature(publicKey, data, signature));
        QVERIFY(verifyEdSignature(QStringLiteral(" ") + publicKey + QStringLiteral("\n"), data,
                                  signature));
        QByteArray changed = data;
        changed[3] = char(changed[3] ^ 1);
        QVERIFY(!verifyEdSignature(publicKey, changed, signature));
        QVERIFY(!verifyEdSignature(publicKeyOf(other.get()), data, signature));
        QVERIFY(!verifyEdSignature(publicKey, data, signWith(other.get(), data)));
        QVERIFY(!verifyEdSignature(publicKey, data, signature.left(40)));
        QVERIFY(!verifyEdSignature(publicKey.left(20), data, signature));
        QVERIFY(!verifyEdSignature(QStringLiteral("REPLACE_WITH_KEY"), data, signature));
        QVERIFY(!verifyEdSignature(publicKey, data, QString()));
    }
};

QTEST_GUILESS_MAIN(TestAppcast)
#include "tst_appcast.moc"
