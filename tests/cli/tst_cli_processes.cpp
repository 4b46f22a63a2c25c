// What only separate processes show: signing in with the e-mailed code typed
// on standard input, several programs sharing one session that all find the
// access token expired at once, a session that stays with the service that
// issued it, and where the secrets go when no keyring can keep them.

#include "signedin.h"
#include "support/isolatedenvironment.h"
#include "support/keyringbus.h"

#include <QDataStream>
#include <QProcess>
#include <QtTest>

#include <memory>
#include <vector>

using namespace sorv;
using namespace sorv::local;
using namespace std::chrono_literals;

namespace {

struct Run {
    int exitCode = -1;
    QString out;
    QString err;
};

class Cli {
public:
    explicit Cli(const QString& origin) : env(QProcessEnvironment::systemEnvironment())
    {
        env.insert(QStringLiteral("SORVELANDRIX_SERVER"), origin);
        // Keep the test away from any desktop keyring on this machine.
        env.insert(QStringLiteral("SORVELANDRIX_SECRETS"), QStringLiteral("file"));
        // Under ASan, Qt 6.4's network manager sometimes leaves its HTTP
        // thread's objects behind when a process exits right after a reply.
        // The same code is leak-checked in-process by the other tests.
        env.insert(QStringLiteral("LSAN_OPTIONS"),
                   env.value(QStringLiteral("LSAN_OPTIONS")) + QStringLiteral(":detect_leaks=0"));
    }

    static QString program()
    {
        return test::buildDirectory() + QStringLiteral("/src/cli/sorvelandrix");
    }

    // The secrets where the program itself puts them, on this bus.
    void useKeyring(const test::KeyringBus& bus)
    {
        env.remove(QStringLiteral("SORVELANDRIX_SECRETS"));
        bus.addTo(env);
    }

    void start(QProcess& process, const QStringList& args) const
    {
        process.setProcessEnvironment(env);
        process.start(program(), args);
        QVERIFY(process.waitForStarted());
    }

    static Run finish(QProcess& process)
    {
        process.closeWriteChannel();
        if (!process.waitForFinished(30000))
            process.kill();
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    Run run(const QStringList& args) const
    {
        QProcess process;
        start(process, args);
        return finish(process);
    }

    Run signIn(const QStringList& global = {}, const QByteArray& password = "demo\n") const
    {
        QProcess login;
        start(login, global + QStringList{"login", "--email", LocalService::kDemoEmail,
                                          "--password-stdin"});
        login.write(password);
        return finish(login);
    }

    QProcessEnvironment env;
};

// A short silent WAV (16-bit mono, 48 kHz).
bool writeSilentWav(const QString& path)
{
    constexpr quint32 kDataBytes = 48000 * 2 / 10;
    QByteArray wav;
    QDataStream out(&wav, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out.writeRawData("RIFF", 4);
    out << quint32(36 + kDataBytes);
    out.writeRawData("WAVEfmt ", 8);
    out << quint32(16) << quint16(1) << quint16(1) << quint32(48000) << quint32(48000 * 2)
        << quint16(2) << quint16(16);
    out.writeRawData("data", 4);
    out << kDataBytes;
    wav.append(QByteArray(kDataBytes, '\0'));
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(wav) == wav.size();
}

} // namespace

class TestCliProcesses : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void commandsThatDoNotRecordLeaveTheCaptureStackAlone_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::newRow("--version") << QStringList{"--version"};
        QTest::newRow("recordings") << QStringList{"recordings"};
        QTest::newRow("passkeys list") << QStringList{"passkeys", "list"};
        QTest::newRow("upload") << QStringList{"upload", "FILE"};
    }

    void commandsThatDoNotRecordLeaveTheCaptureStackAlone()
    {
        // No sound server and no display, as on a server: the commands that
        // do not record work all the same, and none of them loads the
        // capture stack (or libfido2), let alone reaches for those servers.
        QFETCH(QStringList, args);
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service;
        Cli cli(service.origin());
        QCOMPARE(cli.signIn().exitCode, 0);
        const QString wav = env.path(QStringLiteral("kept.wav"));
        QVERIFY(writeSilentWav(wav));
        args.replaceInStrings(QStringLiteral("FILE"), wav);
        cli.env.insert(QStringLiteral("PULSE_SERVER"),
                       QStringLiteral("unix:") + env.path(QStringLiteral("no-pulse/native")));
        cli.env.remove(QStringLiteral("DISPLAY"));
        cli.env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        cli.env.insert(QStringLiteral("LD_DEBUG"), QStringLiteral("files"));
        cli.env.insert(QStringLiteral("LD_DEBUG_OUTPUT"), env.path(QStringLiteral("ld")));

        QProcess process;
        cli.start(process, args);
        const qint64 pid = process.processId();
        const Run r = Cli::finish(process);
        QVERIFY2(r.exitCode == 0, qPrintable(r.err));

        QFile log(env.path(QStringLiteral("ld.%1").arg(pid)));
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QString loaded = QString::fromUtf8(log.readAll());
        for (const char* library : {"libpulse", "libavcodec", "libavformat", "libx264", "libxcb",
                                    "libpocketsphinx", "libfido2", "libsndfile"})
            QVERIFY2(!loaded.contains(QStringLiteral("file=") + QLatin1String(library)), library);
    }

    void signInWithTheEmailedCode()
    {
        test::IsolatedEnvironment env;
        LocalService::Options options;
        options.mfa = true;
        test::LocalServiceFixture service(options);
        const Cli cli(service.origin());

        // Password, then the code once the service has "e-mailed" it; a wrong
        // code may be typed again.
        QProcess login;
        cli.start(login, {"login", "--email", LocalService::kDemoEmail, "--password-stdin"});
        login.write("demo\n");
        QTRY_VERIFY_WITH_TIMEOUT(!service->lastMfaCode().isEmpty(), 10000);
        login.write("000000\n" + service->lastMfaCode().toUtf8() + "\n");
        const Run signedIn = Cli::finish(login);
        QCOMPARE(signedIn.exitCode, 0);
        QVERIFY2(signedIn.out.contains("A sign-in code was sent to d***@sorvelandrix.local."),
                 qPrintable(signedIn.out));
        QVERIFY(signedIn.err.contains("Invalid code"));
        QVERIFY(signedIn.out.contains("Signed in as Demo User <demo@sorvelandrix.local>"));
        QCOMPARE(cli.run({"whoami"}).exitCode, 0);

        QProcess wrong;
        cli.start(wrong, {"login", "--email", LocalService::kDemoEmail, "--password-stdin"});
        wrong.write("not-it\n");
        const Run refused = Cli::finish(wrong);
        QCOMPARE(refused.exitCode, 1);
        QCOMPARE(refused.err.trimmed(), QStringLiteral("Invalid email or password"));
    }

    void programsWithoutAKeyringShareTheSession()
    {
        // No session bus: the secrets are in the private file, and every
        // program changes only what it changed, on what the file holds then.
        // Shell loops side by side, the token expiring every second, so
        // refreshes and starts interleave all the time: nobody may ever put
        // a spent refresh token back. Nor may anything launch a bus through
        // X11 on the way (a dbus-launch that notes being run is first on
        // PATH, and DISPLAY is set).
        test::IsolatedEnvironment env;
        LocalService::Options options;
        options.accessTokenLifetime = 1s;
        test::LocalServiceFixture service(options);
        Cli cli(service.origin());
        const QString launched = env.path(QStringLiteral("dbus-launch-ran"));
        QFile fake(env.path(QStringLiteral("dbus-launch")));
        QVERIFY(fake.open(QIODevice::WriteOnly));
        fake.write("#!/bin/sh\ntouch " + QFile::encodeName(launched) + "\nexit 1\n");
        fake.close();
        fake.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        for (const char* name : {"SORVELANDRIX_SECRETS", "DBUS_SESSION_BUS_ADDRESS"})
            cli.env.remove(QString::fromLatin1(name));
        cli.env.insert(QStringLiteral("XDG_RUNTIME_DIR"), env.path(QStringLiteral("runtime")));
        cli.env.insert(QStringLiteral("DISPLAY"), QStringLiteral(":97"));
        cli.env.insert(QStringLiteral("PATH"),
                       env.root() + QLatin1Char(':') + cli.env.value(QStringLiteral("PATH")));
        QCOMPARE(cli.signIn().exitCode, 0);

        std::vector<std::unique_ptr<QProcess>> loops;
        for (int i = 0; i < 3; ++i) {
            loops.push_back(std::make_unique<QProcess>());
            loops.back()->setProcessEnvironment(cli.env);
            loops.back()->start(
                QStringLiteral("sh"),
                {QStringLiteral("-c"),
                 // Each loop spans at least two token lifetimes, however
                 // quickly the program starts.
                 QStringLiteral("for i in $(seq 20); do \"$0\" whoami >/dev/null; sleep 0.1; done"),
                 Cli::program()});
        }
        for (auto& loop : loops) {
            QVERIFY(loop->waitForFinished(120000));
            const QString err = QString::fromUtf8(loop->readAllStandardError());
            QVERIFY2(!err.contains(QStringLiteral("Not signed in")) &&
                         !err.contains(QStringLiteral("expired")),
                     qPrintable(err));
        }
        QCOMPARE(cli.run({"whoami"}).exitCode, 0);
        QVERIFY(service->requestCount("POST", "/api/auth/refresh") > 0);
        QVERIFY(!QFile::exists(launched));
    }

    void sessionStaysWithTheServiceThatIssuedIt()
    {
        test::IsolatedEnvironment env;
        test::LocalServiceFixture issuer;
        test::LocalServiceFixture other;
        const Cli cli(issuer.origin());
        QCOMPARE(cli.signIn().exitCode, 0);
        const QStringList there{"--server", other.origin()};

        // Another service gets neither token, and its answers cannot end the session.
        const Run elsewhere = cli.run(there + QStringList{"whoami"});
        QCOMPARE(elsewhere.exitCode, 1);
        QVERIFY2(elsewhere.err.startsWith(QStringLiteral("Not signed in to %1 (the saved sign-in "
                                                         "is for %2). Sign in with: sorvelandrix "
                                                         "--server %1 login")
                                              .arg(other.origin(), issuer.origin())),
                 qPrintable(elsewhere.err));
        QCOMPARE(cli.run(there + QStringList{"logout"}).exitCode, 0);
        QVERIFY(other->requestLog().isEmpty());
        QCOMPARE(cli.run({"whoami"}).exitCode, 0);

        // Signing in there replaces the session, as anywhere.
        QCOMPARE(cli.signIn(there).exitCode, 0);
        QCOMPARE(cli.run(there + QStringList{"whoami"}).exitCode, 0);
        const Run back = cli.run({"whoami"});
        QCOMPARE(back.exitCode, 1);
        QVERIFY2(back.err.startsWith(QStringLiteral("Not signed in to ") + issuer.origin()),
                 qPrintable(back.err));
    }

    void secretsLocationThatCannotBeWritten()
    {
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service;
        QFile blocker(env.path(QStringLiteral("not-a-folder")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        Cli cli(service.origin());
        cli.env.insert(QStringLiteral("XDG_DATA_HOME"), blocker.fileName());
        const Run login = cli.signIn();
        QCOMPARE(login.exitCode, 1);
        QVERIFY(!login.out.contains(QStringLiteral("Signed in")));
        QVERIFY2(login.err.contains(blocker.fileName() + QStringLiteral("/sorvelandrix/secrets")),
                 qPrintable(login.err));
    }

    void keyringThatCannotKeepTheSession()
    {
        // gnome-keyring is there but has no login keyring: every store asks
        // for a new keyring's password, and the prompt is cancelled. Each
        // program asks once at most, then keeps the session in the file.
        if (!test::KeyringBus::toolsAvailable())
            QSKIP("needs dbus-daemon and gnome-keyring-daemon");
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service;
        const test::KeyringBus bus(test::KeyringBus::Prompter::Cancels);
        QVERIFY2(bus.isRunning(), qPrintable(bus.errorString()));
        Cli cli(service.origin());
        cli.useKeyring(bus);

        const Run login = cli.signIn();
        QCOMPARE(login.exitCode, 0);
        QCOMPARE(login.err.count(QStringLiteral("private file")), 1);
        QCOMPARE(bus.prompts(), 1);
        const Run me = cli.run({"whoami"});
        QVERIFY2(me.exitCode == 0, qPrintable(me.err));
        QCOMPARE(bus.prompts(), 2);
        const Run refused = cli.signIn({}, "not-it\n");
        QCOMPARE(refused.exitCode, 1);
        QCOMPARE(bus.prompts(), 3);
        QCOMPARE(cli.run({"whoami"}).exitCode, 0);
    }

    void keyringPromptNobodyAnswers()
    {
        // The keyring's prompt never comes back: the session in the file
        // stays there, and nothing waits for the keyring without bound, not
        // even a refresh that has to read the secrets again.
        if (!test::KeyringBus::toolsAvailable())
            QSKIP("needs dbus-daemon and gnome-keyring-daemon");
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service;
        const test::KeyringBus bus(test::KeyringBus::Prompter::NeverAnswers);
        QVERIFY2(bus.isRunning(), qPrintable(bus.errorString()));
        const Cli fileOnly(service.origin());
        QCOMPARE(fileOnly.signIn().exitCode, 0);
        Cli cli(service.origin());
        cli.useKeyring(bus);

        const Run me = cli.run({"whoami"});
        QVERIFY2(me.exitCode == 0, qPrintable(me.err));
        QVERIFY2(!me.err.contains(QStringLiteral("moved")), qPrintable(me.err));
        QVERIFY(QFile::exists(env.path(QStringLiteral("data/sorvelandrix/secrets"))));
        service->expireAccessTokens();
        const Run refreshed = cli.run({"recordings"});
        QVERIFY2(refreshed.exitCode == 0, qPrintable(refreshed.err));
        QCOMPARE(fileOnly.run({"whoami"}).exitCode, 0);
    }
};

QTEST_GUILESS_MAIN(TestCliProcesses)
#include "tst_cli_processes.moc"
