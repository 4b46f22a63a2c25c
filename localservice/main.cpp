// sorvelandrix-local-service: the service's API on 127.0.0.1, for trying the
// recorder without an account and for integration tests.

#include "core/appinfo.h"
#include "core/log.h"
#include "core/signalnotifier.h"
#include "localservice/localservice.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>

#include <cmath>
#include <csignal>
#include <optional>

using namespace sorv;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvelandrix-local-service"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A local implementation of the Sorvelandrix service API."));
    parser.addHelpOption();
    const QCommandLineOption portOption(
        QStringLiteral("port"), QStringLiteral("Port on 127.0.0.1 (default 8765; 0 picks one)."),
        QStringLiteral("N"), QStringLiteral("8765"));
    const QCommandLineOption dataOption(QStringLiteral("data"),
                                        QStringLiteral("Directory for the service's state."),
                                        QStringLiteral("DIR"));
    const QCommandLineOption mfaOption(
        QStringLiteral("mfa"),
        QStringLiteral("Ask for an e-mailed code at sign-in (printed here)."));
    const QCommandLineOption lifetimeOption(
        QStringLiteral("token-lifetime"),
        QStringLiteral("Access token lifetime in seconds (default 900)."),
        QStringLiteral("SECONDS"), QStringLiteral("900"));
    const QCommandLineOption appcastVersionOption(
        QStringLiteral("appcast-version"),
        QStringLiteral("Version the update appcast offers (default: this build's, %1).")
            .arg(AppInfo::version()),
        QStringLiteral("V"));
    const QCommandLineOption appcastKeyOption(
        QStringLiteral("appcast-key"),
        QStringLiteral("Ed25519 private key (PEM) the appcast is signed with (default: one kept "
                       "in the data directory)."),
        QStringLiteral("FILE"));
    const QCommandLineOption uploadRateOption(
        QStringLiteral("upload-rate"),
        QStringLiteral("Read request bodies no faster than this many KiB per second, as over a "
                       "slow uplink (default: as fast as they come)."),
        QStringLiteral("KIB"), QStringLiteral("0"));
    const QCommandLineOption idleTimeoutOption(
        QStringLiteral("idle-timeout"),
        QStringLiteral("Close a connection that sends nothing for this long (default 30)."),
        QStringLiteral("SECONDS"), QStringLiteral("30"));
    const QCommandLineOption headerTimeoutOption(
        QStringLiteral("header-timeout"),
        QStringLiteral("Close a connection whose request head is not complete this long after it "
                       "opened or began (default 30)."),
        QStringLiteral("SECONDS"), QStringLiteral("30"));
    const QCommandLineOption maxConnectionsOption(
        QStringLiteral("max-connections"),
        QStringLiteral("Connections served at once; more wait until one closes (default 512)."),
        QStringLiteral("N"), QStringLiteral("512"));
    parser.addOptions({portOption, dataOption, mfaOption, lifetimeOption, appcastVersionOption,
                       appcastKeyOption, uploadRateOption, idleTimeoutOption, headerTimeoutOption,
                       maxConnectionsOption});
    parser.process(app);

    bool portOk = false;
    const uint port = parser.value(portOption).toUInt(&portOk);
    bool lifetimeOk = false;
    const int lifetime = parser.value(lifetimeOption).toInt(&lifetimeOk);
    bool rateOk = false;
    const qint64 uploadRate = parser.value(uploadRateOption).toLongLong(&rateOk);
    if (!portOk || port > 65535 || !lifetimeOk || lifetime < 1 || !rateOk || uploadRate < 0) {
        std::fputs("sorvelandrix-local-service: bad --port, --token-lifetime or --upload-rate\n",
                   stderr);
        return 2;
    }
    // Fractions of a second too, so that tests need not wait whole ones.
    const auto milliseconds = [&parser](const QCommandLineOption& option) {
        bool ok = false;
        const double seconds = parser.value(option).toDouble(&ok);
        return ok && seconds > 0 && seconds < 86400
                   ? std::optional(std::chrono::milliseconds(std::llround(seconds * 1000)))
                   : std::nullopt;
    };
    const std::optional<std::chrono::milliseconds> idleTimeout = milliseconds(idleTimeoutOption);
    const std::optional<std::chrono::milliseconds> headerTimeout =
        milliseconds(headerTimeoutOption);
    bool maxOk = false;
    const int maxConnections = parser.value(maxConnectionsOption).toInt(&maxOk);
    if (!idleTimeout || !headerTimeout || !maxOk || maxConnections < 1) {
        std::fputs("sorvelandrix-local-service: bad --idle-timeout, --header-timeout or "
                   "--max-connections\n",
                   stderr);
        return 2;
    }

    local::LocalService::Options options;
    options.dataDirectory =
        parser.isSet(dataOption)
            ? parser.value(dataOption)
            : QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                  QStringLiteral("/sorvelandrix-local-service");
    options.dataDirectory = QDir(options.dataDirectory).absolutePath();
    options.mfa = parser.isSet(mfaOption);
    options.accessTokenLifetime = std::chrono::seconds(lifetime);
    options.logRequests = true;
    options.appcastVersion = parser.value(appcastVersionOption);
    options.appcastKeyFile = parser.value(appcastKeyOption);
    options.uploadBytesPerSecond = uploadRate * 1024;
    options.idleTimeout = *idleTimeout;
    options.headerTimeout = *headerTimeout;
    options.maxConnections = maxConnections;

    local::LocalService service(options);
    QString error;
    if (!service.start(static_cast<std::uint16_t>(port), &error)) {
        std::fprintf(stderr, "sorvelandrix-local-service: %s\n", qPrintable(error));
        return 1;
    }
    consoleLog(QStringLiteral("✅ Listening on %1 (data in %2)")
                   .arg(service.origin(), options.dataDirectory));
    consoleLog(
        QStringLiteral("🔑 Demo account: %1 / %2%3")
            .arg(local::LocalService::kDemoEmail, local::LocalService::kDemoPassword,
                 options.mfa ? QStringLiteral(" (a sign-in code is printed here)") : QString()));
    // The application checks this feed only when built with its key.
    consoleLog(
        QStringLiteral("🔑 Update appcast: %1 offers %2, signed with Ed25519 public key %3")
            .arg(service.appcastUrl(), service.appcastVersion(), service.appcastPublicKey()));
    consoleLog(QStringLiteral("🔑 To try updates, configure the application with "
                              "-DSORV_UPDATE_PUBLIC_KEY=%1 -DSORV_UPDATE_FEED_URL=%2")
                   .arg(service.appcastPublicKey(), service.appcastUrl()));

    // Ctrl-C and SIGTERM end the event loop; the service closes cleanly after it.
    SignalNotifier signals({SIGINT, SIGTERM});
    QObject::connect(&signals, &SignalNotifier::received, &app, &QCoreApplication::quit);
    const int rc = QCoreApplication::exec();
    service.stop();
    return rc;
}
