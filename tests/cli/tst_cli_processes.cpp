// The session commands of the sorvelandrix executable against the local
// service (with the e-mailed code), one process per command as a user runs them.

#include "localservicefixture.h"

#include "support/isolatedenvironment.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

using namespace sorv;
using namespace sorv::local;

namespace {

struct Run {
    int exitCode = -1;
    QString out;
    QString err;
};

class Cli {
public:
    explicit Cli(QString origin) : m_origin(std::move(origin)) {}

    void start(QProcess& process, const QStringList& args) const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("SORVELANDRIX_SERVER"), m_origin);
        // Keep the test away from any desktop keyring on this machine.
        env.insert(QStringLiteral("SORVELANDRIX_SECRETS"), QStringLiteral("file"));
        // Under ASan, Qt 6.4's network manager sometimes leaves its HTTP
        // thread's objects behind when a process exits right after a reply.
        // The same code is leak-checked in-process by tst_authmanager.
        env.insert(QStringLiteral("LSAN_OPTIONS"),
                   env.value(QStringLiteral("LSAN_OPTIONS")) + QStringLiteral(":detect_leaks=0"));
        process.setProcessEnvironment(env);
        process.start(test::buildDirectory() + QStringLiteral("/src/cli/sorvelandrix"), args);
        QVERIFY(process.waitForStarted());
    }

    static Run finish(QProcess& process)
    {
        process.closeWriteChannel();
        if (!process.waitForFinished(20000))
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

private:
    QString m_origin;
};

} // namespace

class TestCliSession : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void signInUseTheBotAndSignOut()
    {
        test::IsolatedEnvironment env;
        LocalService::Options options;
        options.mfa = true;
        test::LocalServiceFixture service(options);
        const Cli cli(service.origin());

        QCOMPARE(cli.run({"whoami"}).exitCode, 1);

        // Password, then the code once the service has "e-mailed" it.
        QProcess login;
        cli.start(login, {"login", "--email", LocalService::kDemoEmail, "--password-stdin"});
        login.write("demo\n");
        QTRY_VERIFY_WITH_TIMEOUT(!service->lastMfaCode().isEmpty(), 10000);
        login.write(service->lastMfaCode().toUtf8() + "\n");
        const Run signedIn = Cli::finish(login);
        QCOMPARE(signedIn.exitCode, 0);
        QVERIFY2(signedIn.out.contains("A sign-in code was sent to d***@sorvelandrix.local."),
                 qPrintable(signedIn.out));
        QVERIFY(signedIn.out.contains("Signed in as Demo User <demo@sorvelandrix.local>"));

        // Each command is a new process: the session comes from the secrets.
        const Run me = cli.run({"whoami"});
        QCOMPARE(me.exitCode, 0);
        QCOMPARE(me.out.trimmed(), QStringLiteral("Demo User <demo@sorvelandrix.local>"));

        const Run recordings = cli.run({"recordings"});
        QCOMPARE(recordings.exitCode, 0);
        QVERIFY2(recordings.out.contains(QRegularExpression(
                     R"(^\d{1,2} \w{3} +1:35  Welcome to Sorvelandrix +completed$)",
                     QRegularExpression::MultilineOption)),
                 qPrintable(recordings.out));

        const Run joined = cli.run({"--json", "join", "https://meet.google.com/abc-defg-hij"});
        QCOMPARE(joined.exitCode, 0);
        const QJsonObject meeting = QJsonDocument::fromJson(joined.out.toUtf8()).object();
        const QString id = meeting.value("id").toString();
        QVERIFY(!id.isEmpty());
        QCOMPARE(meeting.value("status").toString(), QStringLiteral("joining"));
        const QJsonObject sent =
            QJsonDocument::fromJson(service->requestLog().last().body).object();
        QCOMPARE(sent.value("bot_name").toString(), QStringLiteral("Sorvelandrix Recorder"));

        const Run meetings = cli.run({"meetings"});
        QCOMPARE(meetings.exitCode, 0);
        QVERIFY(meetings.out.contains(id));

        const Run refused = cli.run({"join", "https://example.com/party"});
        QCOMPARE(refused.exitCode, 1);
        QCOMPARE(refused.err.trimmed(),
                 QStringLiteral(
                     "This is not a Google Meet, Zoom, Microsoft Teams or Webex meeting link."));

        QCOMPARE(cli.run({"stop-bot", id}).out.trimmed(), QStringLiteral("Bot stopped."));
        const Run unknown = cli.run({"stop-bot", "no-such-meeting"});
        QCOMPARE(unknown.exitCode, 1);
        QCOMPARE(unknown.err.trimmed(), QStringLiteral("No response from server"));

        const Run out = cli.run({"logout"});
        QCOMPARE(out.exitCode, 0);
        QCOMPARE(out.out.trimmed(), QStringLiteral("Signed out."));
        QCOMPARE(service->requestCount("POST", "/api/auth/logout"), 1);
        QCOMPARE(cli.run({"whoami"}).err.trimmed(), QStringLiteral("Not signed in."));
    }

    void wrongPasswordAndOfflineSignOut()
    {
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service;
        const Cli cli(service.origin());

        QProcess wrong;
        cli.start(wrong, {"login", "--email", LocalService::kDemoEmail, "--password-stdin"});
        wrong.write("not-it\n");
        const Run refused = Cli::finish(wrong);
        QCOMPARE(refused.exitCode, 1);
        QCOMPARE(refused.err.trimmed(), QStringLiteral("Invalid email or password"));

        QProcess login;
        cli.start(login, {"login", "--email", LocalService::kDemoEmail, "--password-stdin"});
        login.write("demo\n");
        QCOMPARE(Cli::finish(login).exitCode, 0);

        // An unreachable service does not end the stored session ...
        service.stop();
        const Run offline = cli.run({"whoami"});
        QCOMPARE(offline.exitCode, 1);
        service.restart();
        QCOMPARE(cli.run({"whoami"}).exitCode, 0);

        // ... and sign-out happens locally, promptly, with the service gone.
        service.stop();
        QElapsedTimer timer;
        timer.start();
        const Run out = cli.run({"logout"});
        QCOMPARE(out.exitCode, 0);
        QVERIFY(timer.elapsed() < 4000);
        QCOMPARE(cli.run({"whoami"}).exitCode, 1);
    }

    void unusableOrigin()
    {
        test::IsolatedEnvironment env;
        const Cli cli(QStringLiteral("not a server"));
        QProcess login;
        cli.start(login, {"login", "--email", "a@b.c", "--password-stdin"});
        login.write("pw\n");
        const Run refused = Cli::finish(login);
        QCOMPARE(refused.exitCode, 1);
        QCOMPARE(refused.err.trimmed(), QStringLiteral("Invalid server URL"));
    }
};

QTEST_GUILESS_MAIN(TestCliSession)
#include "tst_cli_session.moc"
