// The secret store without any keyring: the private file fallback.

#include "core/log.h"
#include "core/secretstore.h"
#include "support/isolatedenvironment.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>

using namespace sorv;

namespace {
mode_t modeOf(const QString& path)
{
    struct stat st {};
    ::stat(QFile::encodeName(path).constData(), &st);
    return st.st_mode & 0777;
}
} // namespace

class TestSecretStore : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // No session bus at all, and nothing D-Bus could autolaunch one with.
        qunsetenv("DBUS_SESSION_BUS_ADDRESS");
        qunsetenv("DISPLAY");
        qunsetenv("SORVELANDRIX_SECRETS");
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
    }

    void fallsBackToAPrivateFile()
    {
        test::IsolatedEnvironment env;
        QStringList console;
        setLogSink([&console](const QString& line) { console << line; });
        QElapsedTimer timer;
        timer.start();
        {
            SecretStore store;
            QVERIFY(timer.elapsed() < 10000); // the bounded wait, not D-Bus's 25 s
            QVERIFY(!store.usingKeyring());
            store.write(QStringLiteral("sorvelandrix_token"), QStringLiteral("t1"));
            store.write(QStringLiteral("sorvelandrix_refresh"), QStringLiteral("r1"));
            store.write(QStringLiteral("sorvelandrix_token"), QStringLiteral("t2"));
            QCOMPARE(store.read(QStringLiteral("sorvelandrix_token")),
                     std::optional<QString>(QStringLiteral("t2")));

            QCOMPARE(modeOf(store.filePath()), mode_t(0600));
            QCOMPARE(modeOf(QFileInfo(store.filePath()).absolutePath()), mode_t(0700));
            QCOMPARE(QFileInfo(store.filePath()).absolutePath(),
                     env.path(QStringLiteral("data/sorvelandrix")));
        }
        const QStringList warnings = console.filter(QStringLiteral("⚠️"));
        QCOMPARE(warnings.size(), 1);
        QVERIFY(warnings.at(0).contains(QStringLiteral("private file")));

        // The next start reads what the last one wrote.
        SecretStore again;
        QCOMPARE(again.read(QStringLiteral("sorvelandrix_token")),
                 std::optional<QString>(QStringLiteral("t2")));
        QCOMPARE(again.read(QStringLiteral("sorvelandrix_refresh")),
                 std::optional<QString>(QStringLiteral("r1")));
        again.remove(QStringLiteral("sorvelandrix_refresh"));
        QVERIFY(!again.read(QStringLiteral("sorvelandrix_refresh")));
        setLogSink({});

        // A removal is remembered in the file so the keyring's copy goes too later.
        QFile file(again.filePath());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QJsonObject stored = QJsonDocument::fromJson(file.readAll()).object();
        QVERIFY(stored.value("sorvelandrix_refresh").isNull());
        QVERIFY(stored.contains("sorvelandrix_refresh"));
        QCOMPARE(SecretStore().read(QStringLiteral("sorvelandrix_refresh")), std::nullopt);
    }

    void writesChangeOnlyTheirOwnEntries()
    {
        // Two programs over one file: what the other one wrote after this
        // one read the file survives this one's writes and removals.
        test::IsolatedEnvironment env;
        SecretStore first(SecretStore::Options::fileOnly());
        first.write(QStringLiteral("sorvelandrix_refresh"), QStringLiteral("r1"));
        SecretStore second(SecretStore::Options::fileOnly());
        second.write(QStringLiteral("sorvelandrix_refresh"), QStringLiteral("r2"));
        second.write(QStringLiteral("sorvelandrix_token"), QStringLiteral("t2"));
        first.write(QStringLiteral("sorvelandrix_device_id"), QStringLiteral("D"));
        first.remove(QStringLiteral("sorvelandrix_name"));
        const SecretStore next(SecretStore::Options::fileOnly());
        QCOMPARE(next.read(QStringLiteral("sorvelandrix_refresh")),
                 std::optional<QString>(QStringLiteral("r2")));
        QCOMPARE(next.read(QStringLiteral("sorvelandrix_token")),
                 std::optional<QString>(QStringLiteral("t2")));
        QCOMPARE(next.read(QStringLiteral("sorvelandrix_device_id")),
                 std::optional<QString>(QStringLiteral("D")));
    }

private:
    QTemporaryDir m_runtime;
};

QTEST_GUILESS_MAIN(TestSecretStore)
#include "tst_secretstore.moc"
