// SparkleUpdater: whether a build may update, and checks against the
// appcast of the local service over loopback: nothing is offered before its
// download has been checked.

#include "localservicefixture.h"

#include "core/log.h"
#include "core/paths.h"
#include "support/isolatedenvironment.h"
#include "update/appcast.h"
#include "update/sparkleupdater.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QtTest>

#include <mutex>

using namespace sorv;
using namespace sorv::local;

namespace {

const QString kDisabledText = QStringLiteral(
    "In-app updates only work in the signed release from sorvelandrix.com.\n\nThis copy was "
    "built for local testing. To get automatic updates, install the release build once it is "
    "published.");

// The console, as the updater writes it.
class LogCapture {
public:
    LogCapture()
    {
        setLogSink([this](const QString& line) {
            std::lock_guard lock(m_mutex);
            m_lines.append(line);
        });
    }
    ~LogCapture() { setLogSink({}); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QStringList lines() const
    {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }
    QStringList linesStartingWith(const QString& prefix) const
    {
        return lines().filter(
            QRegularExpression(QStringLiteral("^") + QRegularExpression::escape(prefix)));
    }

private:
    mutable std::mutex m_mutex;
    QStringList m_lines;
};

LocalService::Options appcastOffering(const QString& version)
{
    LocalService::Options options;
    options.appcastVersion = version;
    return options;
}

// A build signed with the local service's key, reading its appcast.
SparkleUpdaterConfig releaseBuild(test::LocalServiceFixture& service, const QString& running)
{
    SparkleUpdaterConfig config;
    config.publicKey = service->appcastPublicKey();
    config.automaticChecks = true;
    config.feedUrl = QUrl(service->appcastUrl());
    config.currentVersion = running;
    return config;
}

// Runs one check to its end; the alert it published.
UpdateAlert checkOnce(SparkleUpdater& updater)
{
    QSignalSpy requested(&updater, &SparkleUpdater::alertRequested);
    updater.checkForUpdates();
    if (requested.isEmpty() && !requested.wait(10000))
        qFatal("the update check did not finish");
    return requested.at(0).at(0).value<UpdateAlert>();
}

QByteArray fetch(const QUrl& url)
{
    QNetworkAccessManager network;
    std::unique_ptr<QNetworkReply> reply(network.get(QNetworkRequest(url)));
    QSignalSpy finished(reply.get(), &QNetworkReply::finished);
    if (!finished.wait(10000) || reply->error() != QNetworkReply::NoError)
        qFatal("cannot fetch %s", qPrintable(url.toString()));
    return reply->readAll();
}

QByteArray feedWithItems(const QString& items)
{
    return (QStringLiteral(R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
<channel><title>Sorvelandrix Recorder</title>%1</channel></rss>)")
                .arg(items))
        .toUtf8();
}

// The enclosure the service offers, as its own appcast describes it.
struct Enclosure {
    QUrl url;
    qint64 length = 0;
    QString signature;
    QByteArray bytes;
};

Enclosure servedEnclosure(test::LocalServiceFixture& service)
{
    QString error;
    const auto items =
        parseAppcast(fetch(QUrl(service->appcastUrl())), QUrl(service->appcastUrl()), &error);
    if (!items || items->size() != 1)
        qFatal("the service's appcast: %s", qPrintable(error));
    const AppcastItem& item = items->at(0);
    return {item.enclosureUrl, item.enclosureLength, item.edSignature, fetch(item.enclosureUrl)};
}

// An appcast item; the length and the signature are left out when negative or empty.
QString item(const QString& version, const QUrl& url, qint64 length, const QString& signature)
{
    QString enclosure = QStringLiteral("<enclosure url=\"%1\"").arg(url.toString());
    if (length >= 0)
        enclosure += QStringLiteral(" length=\"%1\"").arg(length);
    if (!signature.isEmpty())
        enclosure += QStringLiteral(" sparkle:edSignature=\"%1\"").arg(signature);
    return QStringLiteral("<item><title>%1</title><sparkle:version>%1</sparkle:version>%2/></item>")
        .arg(version, enclosure);
}

// Every file in the updater's download directory, hidden ones too.
QStringList downloadedFiles()
{
    return QDir(recordingsDirectory() + QStringLiteral("/updates"))
        .entryList(QDir::Files | QDir::Hidden);
}

} // namespace

class TestSparkleUpdater : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void runtimeEnabledByKey_data()
    {
        QTest::addColumn<QVariant>("key");
        QTest::addColumn<bool>("enabled");
        QTest::newRow("absent") << QVariant() << false;
        QTest::newRow("not a string: bytes")
            << QVariant(QByteArray("11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo=")) << false;
        QTest::newRow("empty") << QVariant(QString()) << false;
        QTest::newRow("white space and line breaks")
            << QVariant(QStringLiteral(" \t\n\r\n ")) << false;
        QTest::newRow("placeholder")
            << QVariant(QStringLiteral("REPLACE_WITH_PUBLIC_KEY")) << false;
        QTest::newRow("REPLACE inside") << QVariant(QStringLiteral("abcREPLACEdef")) << false;
        QTest::newRow("replace in lower case") << QVariant(QStringLiteral("replace-me")) << true;
        QTest::newRow("a key between spaces")
            << QVariant(QStringLiteral("\n 11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo= \n"))
            << true;
    }

    void runtimeEnabledByKey()
    {
        QFETCH(QVariant, key);
        QFETCH(bool, enabled);
        QCOMPARE(SparkleUpdater::isRuntimeEnabled(key), enabled);
        SparkleUpdaterConfig config;
        config.publicKey = key;
        QCOMPARE(SparkleUpdater(config).sparkleRuntimeEnabled(), enabled);
    }

    void automaticChecksOnlyForTheBoolTrue_data()
    {
        QTest::addColumn<QVariant>("key");
        QTest::addColumn<QVariant>("flag");
        QTest::addColumn<bool>("on");
        const QVariant key(QStringLiteral("11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo="));
        const QVariant placeholder(QStringLiteral("REPLACE_ME"));
        QTest::newRow("bool true") << key << QVariant(true) << true;
        QTest::newRow("bool false") << key << QVariant(false) << false;
        QTest::newRow("string \"true\"") << key << QVariant(QStringLiteral("true")) << false;
        QTest::newRow("number 1") << key << QVariant(1) << false;
        QTest::newRow("absent") << key << QVariant() << false;
        QTest::newRow("disabled build, bool true") << placeholder << QVariant(true) << false;
    }

    void automaticChecksOnlyForTheBoolTrue()
    {
        QFETCH(QVariant, key);
        QFETCH(QVariant, flag);
        QFETCH(bool, on);
        SparkleUpdaterConfig config;
        config.publicKey = key;
        config.automaticChecks = flag;
        QCOMPARE(SparkleUpdater(config).automaticChecksEnabled(), on);
    }

    void disabledBuildExplainsAndSendsNothing()
    {
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service;
        SparkleUpdaterConfig config = releaseBuild(service, QStringLiteral("0.1.0"));
        config.publicKey = QStringLiteral("REPLACE_WITH_RELEASE_ED25519_PUBLIC_KEY");
        SparkleUpdater updater(config);
        int opened = 0;
        updater.setUrlOpener([&opened](const QUrl&) {
            ++opened;
            return true;
        });
        QSignalSpy requested(&updater, &SparkleUpdater::alertRequested);
        QSignalSpy changed(&updater, &SparkleUpdater::alertChanged);

        updater.checkForUpdates();
        updater.checkForUpdates();

        // Shown again on every check, at once and without the network.
        QCOMPARE(requested.size(), 2);
        QCOMPARE(changed.size(), 1);
        QVERIFY(!updater.checking());
        const UpdateAlert alert = updater.alert();
        QCOMPARE(alert.kind(), UpdateAlert::Kind::Disabled);
        QCOMPARE(alert.title(), QStringLiteral("Updates not available in this build"));
        QCOMPARE(alert.text(), kDisabledText);
        QCOMPARE(alert.buttons(), QStringList{QStringLiteral("OK")});
        QCOMPARE(requested.at(1).at(0).value<UpdateAlert>(), alert);
        QCOMPARE(service->requestCount("GET", QStringLiteral("/updates/appcast.xml")), 0);

        updater.answerAlert(0);
        QCOMPARE(updater.alert().kind(), UpdateAlert::Kind::None);
        QCOMPARE(opened, 0);
    }

    void comparesTheFeedWithTheRunningVersion_data()
    {
        QTest::addColumn<QString>("offered");
        QTest::addColumn<QString>("running");
        QTest::addColumn<UpdateAlert::Kind>("kind");
        QTest::newRow("newer") << QStringLiteral("0.2.0") << "0.1.9"
                               << UpdateAlert::Kind::Available;
        QTest::newRow("older") << QStringLiteral("0.1.0") << "0.2.0-beta"
                               << UpdateAlert::Kind::UpToDate;
    }

    void comparesTheFeedWithTheRunningVersion()
    {
        QFETCH(QString, offered);
        QFETCH(QString, running);
        QFETCH(UpdateAlert::Kind, kind);
        test::IsolatedEnvironment env;
        LogCapture log;
        test::LocalServiceFixture service(appcastOffering(offered));
        SparkleUpdater updater(releaseBuild(service, running));
        QVERIFY(updater.sparkleRuntimeEnabled());
        QVERIFY(updater.automaticChecksEnabled());
        QSignalSpy checking(&updater, &SparkleUpdater::checkingChanged);

        const UpdateAlert alert = checkOnce(updater);

        QCOMPARE(checking.size(), 2);
        QVERIFY(!updater.checking());
        QCOMPARE(updater.alert(), alert);
        QCOMPARE(alert.kind(), kind);
        if (kind == UpdateAlert::Kind::UpToDate) {
            QCOMPARE(alert.title(), QStringLiteral("You're up to date"));
            QCOMPARE(alert.text(), QStringLiteral("Sorvelandrix Recorder %1 is currently the "
                                                  "newest version available.")
                                       .arg(running));
            QCOMPARE(alert.buttons(), QStringList{QStringLiteral("OK")});
        } else {
            QCOMPARE(alert.version(), offered);
            QCOMPARE(alert.title(),
                     QStringLiteral("A new version of Sorvelandrix Recorder is available!"));
            QVERIFY2(alert.text().contains(offered) && alert.text().contains(running),
                     qPrintable(alert.text()));
            QCOMPARE(alert.buttons(), (QStringList{"Open", "Later"}));
            QCOMPARE(alert.filePath(),
                     recordingsDirectory() +
                         QStringLiteral("/updates/sorvelandrix-recorder-%1.txt").arg(offered));
        }
        QVERIFY(log.linesStartingWith(QStringLiteral("❌")).isEmpty());
        const LoggedRequest request = service->requestLog().constLast();
        QCOMPARE(request.header("user-agent"),
                 QStringLiteral("SorvelandrixRecorder/%1 (Linux)").arg(running).toUtf8());
    }

    void openOpensTheVerifiedDownload()
    {
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service(appcastOffering(QStringLiteral("3.0.1")));
        SparkleUpdater updater(releaseBuild(service, QStringLiteral("3.0")));
        QList<QUrl> opened;
        updater.setUrlOpener([&opened](const QUrl& url) {
            opened.append(url);
            return true;
        });
        QStringList activities;
        QList<double> progress;
        connect(&updater, &SparkleUpdater::activityChanged, this,
                [&] { activities.append(updater.activity()); });
        connect(&updater, &SparkleUpdater::progressChanged, this,
                [&] { progress.append(updater.progress()); });

        const UpdateAlert alert = checkOnce(updater);

        QCOMPARE(alert.kind(), UpdateAlert::Kind::Available);
        QCOMPARE(activities, (QStringList{"Checking for updates…", "Downloading 3.0.1…",
                                          "Checking the signature of 3.0.1…", ""}));
        QVERIFY(progress.contains(1.0));
        QCOMPARE(progress.constLast(), -1.0);
        // The file the service signed, in the cache directory, and nothing else there.
        QCOMPARE(downloadedFiles(), QStringList{"sorvelandrix-recorder-3.0.1.txt"});
        QFile file(alert.filePath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), servedEnclosure(service).bytes);

        QSignalSpy changed(&updater, &SparkleUpdater::alertChanged);
        updater.answerAlert(0);
        QCOMPARE(opened, QList<QUrl>{QUrl::fromLocalFile(alert.filePath())});
        QCOMPARE(updater.alert().kind(), UpdateAlert::Kind::None);
        QCOMPARE(changed.size(), 1);
        updater.answerAlert(0); // nothing left to answer
        QCOMPARE(opened.size(), 1);

        // "Later" opens nothing; a second check replaces the file.
        checkOnce(updater);
        updater.answerAlert(1);
        QCOMPARE(opened.size(), 1);
        QCOMPARE(downloadedFiles(), QStringList{"sorvelandrix-recorder-3.0.1.txt"});
    }

    // Whatever is wrong with the download, the check ends in its error,
    // nothing is offered, nothing can be opened and nothing is kept.
    void onlyAVerifiedDownloadIsOffered_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("description"); // {n}: the file's real length
        const QString badSignature = QStringLiteral(
            "The downloaded update is not signed with this build's key: it was discarded.");
        QTest::newRow("another file in its place") << QStringLiteral("swapped") << badSignature;
        QTest::newRow("signed with another key") << QStringLiteral("another key") << badSignature;
        QTest::newRow("a truncated file")
            << QStringLiteral("truncated")
            << "The downloaded update is {n-7} bytes long, but the update feed gives {n} bytes: "
               "it was discarded.";
        QTest::newRow("the feed gives a smaller length")
            << QStringLiteral("length-1")
            << "The downloaded update is {n} bytes long, but the update feed gives {n-1} bytes: "
               "it was discarded.";
        QTest::newRow("the file is missing")
            << QStringLiteral("404") << "The update could not be downloaded (HTTP status 404).";
        QTest::newRow("redirected off this computer")
            << QStringLiteral("redirect")
            << "The update server redirected to “http://updates.example/r.txt”, which is not an "
               "HTTPS address.";
    }

    void onlyAVerifiedDownloadIsOffered()
    {
        QFETCH(QString, fault);
        QFETCH(QString, description);
        test::IsolatedEnvironment env;
        LogCapture log;
        test::LocalServiceFixture service(appcastOffering(QStringLiteral("9.9.9")));
        SparkleUpdaterConfig config = releaseBuild(service, QStringLiteral("1.0"));
        const Enclosure real = servedEnclosure(service);
        service->clearRequestLog();
        const qint64 n = real.length;
        const QString path = real.url.path();
        qint64 length = n;
        if (fault == QLatin1String("swapped")) {
            service->script("GET", path, ScriptedAnswer::reply(200, QByteArray(n, 'x')));
        } else if (fault == QLatin1String("another key")) {
            test::LocalServiceFixture other;
            config.publicKey = other->appcastPublicKey();
        } else if (fault == QLatin1String("truncated")) {
            service->script("GET", path, ScriptedAnswer::reply(200, real.bytes.chopped(7)));
        } else if (fault == QLatin1String("length-1")) {
            length = n - 1;
        } else if (fault == QLatin1String("404")) {
            service->script("GET", path, ScriptedAnswer::reply(404, "{}"));
        } else if (fault == QLatin1String("redirect")) {
            service->script(
                "GET", path,
                ScriptedAnswer::reply(302, {}, {{"Location", "http://updates.example/r.txt"}}));
        }
        service->script("GET", QStringLiteral("/updates/appcast.xml"),
                        ScriptedAnswer::reply(
                            200, feedWithItems(item("9.9.9", real.url, length, real.signature))));
        SparkleUpdater updater(config);
        int opened = 0;
        updater.setUrlOpener([&opened](const QUrl&) {
            ++opened;
            return true;
        });

        const UpdateAlert alert = checkOnce(updater);
        updater.answerAlert(0);

        QVERIFY(!updater.checking());
        QCOMPARE(service->requestCount("GET", path), 1);
        description.replace(QLatin1String("{n-7}"), QString::number(n - 7))
            .replace(QLatin1String("{n-1}"), QString::number(n - 1))
            .replace(QLatin1String("{n}"), QString::number(n));
        QCOMPARE(alert.kind(), UpdateAlert::Kind::Failed);
        QCOMPARE(alert.text(), description);
        QCOMPARE(log.linesStartingWith(QStringLiteral("❌")),
                 QStringList{QStringLiteral("❌ Sparkle update check aborted: ") + description});
        QCOMPARE(opened, 0);
        QCOMPARE(downloadedFiles(), QStringList());
    }

    void failedCheckIsLoggedAndShown_data()
    {
        QTest::addColumn<QString>("failure");
        QTest::addColumn<QString>("description");
        QTest::newRow("HTTP 500") << QStringLiteral("500")
                                  << "The update server answered with HTTP status 500.";
        QTest::newRow("a web page instead of a feed")
            << QStringLiteral("html")
            << "The update feed could not be read: it is not an RSS feed.";
        QTest::newRow("broken XML")
            << QStringLiteral("broken") << "The update feed could not be read: ";
        QTest::newRow("service down")
            << QStringLiteral("down")
            << "The update server could not be reached (Connection refused).";
        QTest::newRow("redirected off this computer")
            << QStringLiteral("redirect")
            << "The update server redirected to “http://updates.example/appcast.xml”, which is "
               "not an HTTPS address.";
        QTest::newRow("plain http to another host")
            << QStringLiteral("insecure")
            << "The update feed address “http://updates.example/appcast.xml” is not an HTTPS "
               "address.";
    }

    void failedCheckIsLoggedAndShown()
    {
        QFETCH(QString, failure);
        QFETCH(QString, description);
        test::IsolatedEnvironment env;
        LogCapture log;
        test::LocalServiceFixture service;
        SparkleUpdaterConfig config = releaseBuild(service, QStringLiteral("0.1.0"));
        const QString path = QStringLiteral("/updates/appcast.xml");
        if (failure == QLatin1String("500"))
            service->script("GET", path, ScriptedAnswer::reply(500, "{}"));
        else if (failure == QLatin1String("html"))
            service->script("GET", path, ScriptedAnswer::reply(200, "<html><p>Moved</p></html>"));
        else if (failure == QLatin1String("broken"))
            service->script("GET", path, ScriptedAnswer::reply(200, "<rss><channel><item>"));
        else if (failure == QLatin1String("down"))
            service.stop();
        else if (failure == QLatin1String("redirect"))
            service->script("GET", path,
                            ScriptedAnswer::reply(
                                302, {}, {{"Location", "http://updates.example/appcast.xml"}}));
        else if (failure == QLatin1String("insecure"))
            config.feedUrl = QUrl(QStringLiteral("http://updates.example/appcast.xml"));
        SparkleUpdater updater(config);

        const UpdateAlert alert = checkOnce(updater);

        QCOMPARE(alert.kind(), UpdateAlert::Kind::Failed);
        QCOMPARE(alert.title(), QStringLiteral("Update check failed"));
        QVERIFY2(alert.text().startsWith(description), qPrintable(alert.text()));
        QCOMPARE(alert.buttons(), QStringList{QStringLiteral("OK")});
        QCOMPARE(log.linesStartingWith(QStringLiteral("❌")),
                 QStringList{QStringLiteral("❌ Sparkle update check aborted: ") + alert.text()});
        QVERIFY(!updater.checking());
    }

    void aCheckWhileCheckingIsAnsweredByIt()
    {
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service(appcastOffering(QStringLiteral("0.1.0")));
        SparkleUpdater updater(releaseBuild(service, QStringLiteral("0.1.0")));
        QSignalSpy requested(&updater, &SparkleUpdater::alertRequested);
        updater.checkForUpdates();
        QVERIFY(updater.checking());
        updater.checkForUpdates();
        QVERIFY(requested.wait(10000));
        QCOMPARE(requested.size(), 1);
        QCOMPARE(service->requestCount("GET", QStringLiteral("/updates/appcast.xml")), 1);

        // An updater that goes away mid-check is not called back.
        {
            SparkleUpdater gone(releaseBuild(service, QStringLiteral("0.1.0")));
            gone.checkForUpdates();
        }
        QCoreApplication::processEvents();
    }
};

QTEST_GUILESS_MAIN(TestSparkleUpdater)
#include "tst_sparkleupdater.moc"
