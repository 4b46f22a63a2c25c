// What only separate processes show: signing in with the e-mailed code typed
// on standard input, and several programs sharing one session that all find
// the access token expired at once.

#include "core/secretstore.h"
#include "localservicefixture.h"
#include "service/authmanager.h"
#include "support/isolatedenvironment.h"

#include <QProcess>
#include <QtTest>

#include <memory>
#include <vector>

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
        // The same code is leak-checked in-process by the other tests.
        env.insert(QStringLiteral("LSAN_OPTIONS"),
                   env.value(QStringLiteral("LSAN_OPTIONS")) + QStringLiteral(":detect_leaks=0"));
        process.setProcessEnvironment(env);
        process.start(test::buildDirectory() + QStringLiteral("/src/cli/sorvelandrix"), args);
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

private:
    QString m_origin;
};

} // namespace

class TestCliProcesses : public QObject {
    Q_OBJECT

private Q_SLOTS:
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

    void programsRefreshingAtOnceKeepTheSession()
    {
        // The refresh token rotates: of several programs that present the
        // same one at once, only the first could succeed. They take turns
        // and the later ones use what the first one got, so nobody is
        // signed out and the service sees one refresh.
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service;
        qputenv("SORVELANDRIX_SECRETS", "file");
        {
            SecretStore secrets;
            AuthManager auth(secrets);
            auth.login(LocalService::kDemoEmail, LocalService::kDemoPassword);
            QTRY_VERIFY_WITH_TIMEOUT(auth.isLoggedIn(), 20000);
        }
        qunsetenv("SORVELANDRIX_SECRETS");
        const Cli cli(service.origin());
        for (int round = 0; round < 3; ++round) {
            service->expireAccessTokens();
            service->clearRequestLog();
            std::vector<std::unique_ptr<QProcess>> programs;
            for (int i = 0; i < 4; ++i) {
                programs.push_back(std::make_unique<QProcess>());
                cli.start(*programs.back(), {"whoami"});
            }
            for (auto& p : programs) {
                const Run r = Cli::finish(*p);
                QVERIFY2(r.exitCode == 0, qPrintable(r.err));
            }
            QCOMPARE(service->requestCount("POST", "/api/auth/refresh"), 1);
        }
        QCOMPARE(cli.run({"whoami"}).exitCode, 0);
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

QTEST_GUILESS_MAIN(TestCliProcesses)
#include "tst_cli_processes.moc"
