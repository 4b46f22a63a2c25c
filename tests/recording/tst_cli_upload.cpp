// `sorvelandrix upload FILE` as a user runs it against the local service:
// JSON Lines progress and the result, the recording gone from the recordings
// directory afterwards, and a refused upload that keeps it and says how to
// retry.

#include "audio/wavwriter.h"
#include "core/paths.h"
#include "core/secretstore.h"
#include "localservicefixture.h"
#include "service/authmanager.h"
#include "support/isolatedenvironment.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

using namespace sorv;
using local::LocalService;
using local::ScriptedAnswer;

namespace {

struct Run {
    int exitCode = -1;
    QList<QJsonObject> events;
    QString err;
};

class TestCliUpload : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_env = std::make_unique<test::IsolatedEnvironment>();
        m_service = std::make_unique<test::LocalServiceFixture>();
        SecretStore secrets{SecretStore::Options::fileOnly()};
        AuthManager auth(secrets);
        auth.login(LocalService::kDemoEmail, LocalService::kDemoPassword);
        QTRY_VERIFY_WITH_TIMEOUT(auth.isLoggedIn(), 20000);
    }
    void cleanup()
    {
        m_service.reset();
        m_env.reset();
    }

    void uploadsWithProgressAndDeletesOurRecording();
    void refusedUploadKeepsTheFileAndSaysHowToRetry();

private:
    QString recording(int seconds)
    {
        const QString path = recordingsDirectory() + QStringLiteral("/sorvelandrix_42.wav");
        WavWriter w;
        if (!w.open(path))
            return {};
        w.write(std::vector<float>(size_t(48000 * seconds), 0.25f));
        return path;
    }

    Run run(const QStringList& args)
    {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("SORVELANDRIX_SERVER"), m_service->origin());
        env.insert(QStringLiteral("SORVELANDRIX_SECRETS"), QStringLiteral("file"));
        env.insert(QStringLiteral("LSAN_OPTIONS"),
                   env.value(QStringLiteral("LSAN_OPTIONS")) + QStringLiteral(":detect_leaks=0"));
        p.setProcessEnvironment(env);
        p.start(test::buildDirectory() + QStringLiteral("/src/cli/sorvelandrix"), args);
        if (!p.waitForFinished(60000))
            p.kill();
        Run r;
        r.exitCode = p.exitCode();
        r.err = QString::fromUtf8(p.readAllStandardError());
        for (const QByteArray& line : p.readAllStandardOutput().split('\n')) {
            if (!line.trimmed().isEmpty())
                r.events << QJsonDocument::fromJson(line).object();
        }
        return r;
    }

    std::unique_ptr<test::IsolatedEnvironment> m_env;
    std::unique_ptr<test::LocalServiceFixture> m_service;
};

void TestCliUpload::uploadsWithProgressAndDeletesOurRecording()
{
    const QString path = recording(30); // ≈ 5.5 MB: several progress reports
    QVERIFY(!path.isEmpty());
    const Run r = run({QStringLiteral("--json"), QStringLiteral("upload"), path});
    QVERIFY2(r.exitCode == 0, qPrintable(r.err));
    QVERIFY(!r.events.isEmpty());
    const QJsonObject last = r.events.last();
    QCOMPARE(last.value(QStringLiteral("event")).toString(), QStringLiteral("uploaded"));
    const QString id = last.value(QStringLiteral("id")).toString();
    QVERIFY(!id.isEmpty());
    QCOMPARE(last.value(QStringLiteral("url")).toString(),
             m_service->origin() + QStringLiteral("/recording/") + id);
    double previous = -1;
    int progress = 0;
    for (const QJsonObject& e : r.events) {
        if (e.value(QStringLiteral("event")).toString() != QStringLiteral("progress"))
            continue;
        ++progress;
        const double f = e.value(QStringLiteral("fraction")).toDouble();
        QVERIFY(f >= previous && f <= 1.0);
        previous = f;
    }
    QVERIFY(progress >= 1);
    QVERIFY(!QFile::exists(path));
}

void TestCliUpload::refusedUploadKeepsTheFileAndSaysHowToRetry()
{
    const QString path = recording(1);
    m_service->service().script("POST", QStringLiteral("/api/upload"),
                                ScriptedAnswer::json(500, {{"detail", "Storage is offline"}}));
    const Run r = run({QStringLiteral("upload"), path});
    QCOMPARE(r.exitCode, 1);
    QVERIFY2(r.err.contains(QStringLiteral("Upload failed (HTTP 500): Storage is offline")),
             qPrintable(r.err));
    QVERIFY(r.err.contains(QStringLiteral("sorvelandrix upload ") + path));
    QVERIFY(QFile::exists(path));

    const Run missing = run({QStringLiteral("upload"), path + QStringLiteral(".nope")});
    QCOMPARE(missing.exitCode, 1);
    QVERIFY(missing.err.contains(QStringLiteral("no such file")));
}

} // namespace

QTEST_GUILESS_MAIN(TestCliUpload)
#include "tst_cli_upload.moc"
