// The secret store with a real Secret Service (run inside run-with-keyring.sh).

#include "core/log.h"
#include "core/secretstore.h"
#include "core/settings.h"
#include "service/authmanager.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"

#include <QProcess>
#include <QtTest>

using namespace sorv;

namespace {
// What the keyring itself holds, asked with its own tool.
QString lookup(const QString& account)
{
    QProcess tool;
    tool.start(QStringLiteral("secret-tool"),
               {QStringLiteral("lookup"), QStringLiteral("account"), account});
    tool.waitForFinished(10000);
    return QString::fromUtf8(tool.readAllStandardOutput());
}
} // namespace

class TestSecretStoreKeyring : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
            QSKIP("needs a session bus with a keyring (run through run-with-keyring.sh)");
    }

    void writesGoToTheKeyring()
    {
        test::IsolatedEnvironment env;
        {
            SecretStore store;
            QVERIFY(store.usingKeyring());
            store.write(QStringLiteral("sorvelandrix_token"), QStringLiteral("k-token"));
            store.write(QStringLiteral("sorvelandrix_device_id"), QStringLiteral("DEV"));
            store.remove(QStringLiteral("sorvelandrix_device_id"));
            store.flush(std::chrono::seconds(5));
            QVERIFY(!QFile::exists(store.filePath()));
        }
        QCOMPARE(lookup(QStringLiteral("sorvelandrix_token")), QStringLiteral("k-token"));
        QCOMPARE(lookup(QStringLiteral("sorvelandrix_device_id")), QString());
        SecretStore next;
        QCOMPARE(next.read(QStringLiteral("sorvelandrix_token")),
                 std::optional<QString>(QStringLiteral("k-token")));
    }

    void fileSecretsMoveIntoTheKeyring()
    {
        test::IsolatedEnvironment env;
        {
            SecretStore keyring;
            keyring.write(QStringLiteral("sorvelandrix_refresh"), QStringLiteral("old-refresh"));
            keyring.write(QStringLiteral("sorvelandrix_token"), QStringLiteral("old-token"));
        }
        {
            // Meanwhile the keyring was away: a sign-out and a new token went to the file.
            SecretStore file(SecretStore::Options::fileOnly());
            file.remove(QStringLiteral("sorvelandrix_refresh"));
            file.write(QStringLiteral("sorvelandrix_token"), QStringLiteral("new-token"));
            QVERIFY(QFile::exists(file.filePath()));
        }
        QStringList console;
        setLogSink([&console](const QString& line) { console << line; });
        {
            SecretStore back;
            QVERIFY(back.usingKeyring());
            QCOMPARE(back.read(QStringLiteral("sorvelandrix_token")),
                     std::optional<QString>(QStringLiteral("new-token")));
            QVERIFY(!back.read(QStringLiteral("sorvelandrix_refresh")));
            // The file goes once the keyring has read back what it held.
            QTRY_VERIFY(!QFile::exists(back.filePath()));
        }
        setLogSink({});
        QVERIFY(console.filter(QStringLiteral("⚠️")).isEmpty());
        QCOMPARE(lookup(QStringLiteral("sorvelandrix_token")), QStringLiteral("new-token"));
        QCOMPARE(lookup(QStringLiteral("sorvelandrix_refresh")), QString());
    }

    void refreshWhileTheKeyringKeepsEverything()
    {
        // Nothing has ever needed the private file: the refresh's lock file
        // still has its folder.
        test::IsolatedEnvironment env;
        test::LocalServiceFixture service;
        SecretStore store;
        QVERIFY(store.usingKeyring());
        AuthManager auth(store);
        test::signIn(auth);
        service->expireAccessTokens();
        std::optional<bool> refreshed;
        auth.refreshAccessToken(&auth, [&](bool ok) { refreshed = ok; });
        QTRY_VERIFY_WITH_TIMEOUT(refreshed.has_value(), 10000);
        QVERIFY(*refreshed);
        QVERIFY(!QFile::exists(store.filePath()));
        auth.logout(); // the keyring outlives the test
        store.flush(std::chrono::seconds(5));
    }

    void sessionFromALateKeyringIsPickedUp()
    {
        // The keyring answers only after the start-up wait (a slow login
        // keyring): the session it holds is taken up when it does, instead of
        // the user looking signed out until the next start.
        test::IsolatedEnvironment env;
        {
            SecretStore keyring;
            keyring.write(AuthManager::tokenKey, QStringLiteral("late-token"));
            keyring.flush(std::chrono::seconds(5));
        }
        Settings::setValue(AuthManager::emailKey, QStringLiteral("late@example.org"));
        SecretStore::Options impatient;
        impatient.loadWait = std::chrono::milliseconds(0);
        SecretStore store(impatient);
        AuthManager auth(store);
        QTRY_VERIFY_WITH_TIMEOUT(auth.isLoggedIn(), 10000);
        QCOMPARE(auth.userEmail(), QStringLiteral("late@example.org"));
        QCOMPARE(auth.accessToken(), QStringLiteral("late-token"));
        QVERIFY(store.usingKeyring());
    }
};

QTEST_GUILESS_MAIN(TestSecretStoreKeyring)
#include "tst_secretstore_keyring.moc"
