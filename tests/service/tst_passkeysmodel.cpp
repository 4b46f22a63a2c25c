// The passkeys sheet's model against the local service, with the software
// authenticator in memory standing in for the security key.

#include "signedin.h"

#include "core/secretstore.h"
#include "service/authmanager.h"
#include "service/passkeys/passkeymanager.h"
#include "service/passkeys/passkeyoperations.h"
#include "service/passkeys/passkeysmodel.h"
#include "service/passkeys/softwareauthenticator.h"
#include "support/isolatedenvironment.h"

#include <QSignalSpy>
#include <QtTest>

using namespace sorv;
using namespace sorv::local;

namespace {

struct World {
    void signIn() { test::signIn(auth); }
    void load()
    {
        model.reload();
        QVERIFY(model.loading());
        QTRY_VERIFY_WITH_TIMEOUT(!model.loading(), 20000);
    }
    void add()
    {
        model.add();
        QVERIFY(model.registering());
        QTRY_VERIFY_WITH_TIMEOUT(!model.registering(), 20000);
    }
    QVariant at(int row, PasskeysModel::Role role) const { return model.index(row).data(role); }

    test::IsolatedEnvironment env;
    test::LocalServiceFixture service;
    SecretStore secrets{SecretStore::Options::fileOnly()};
    AuthManager auth{secrets};
    std::shared_ptr<SoftwareAuthenticator> authenticator =
        std::make_shared<SoftwareAuthenticator>();
    PasskeyManager passkeys{authenticator};
    PasskeyOperations operations{auth, passkeys};
    PasskeysModel model{operations};
};

} // namespace

class TestPasskeysModel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void addedPasskeyShowsItsRowAndThenItsUse();
    void removingTheLastShowsTheEmptyState();
    void failedRemoveKeepsTheRow();
    void loadFailuresAreTheLoadError();
};

void TestPasskeysModel::addedPasskeyShowsItsRowAndThenItsUse()
{
    World w;
    w.signIn();
    w.load();
    QVERIFY(w.model.isEmpty());
    QCOMPARE(w.model.addButtonText(), QStringLiteral("Add a passkey"));

    QSignalSpy buttonTexts(&w.model, &PasskeysModel::registeringChanged);
    w.add();
    QCOMPARE(buttonTexts.count(), 2); // "Adding passkey…" and back
    QVERIFY2(w.model.actionError().isEmpty(), qPrintable(w.model.actionError()));
    QCOMPARE(w.model.count(), 1);
    QVERIFY(!w.model.isEmpty());
    QCOMPARE(w.at(0, PasskeysModel::TitleRole).toString(), QStringLiteral("Passkey"));
    QCOMPARE(w.at(0, PasskeysModel::LastUsedTextRole).toString(), QStringLiteral("Never used"));
    QVERIFY(w.at(0, PasskeysModel::AddedTextRole).toString().startsWith(QStringLiteral("Added ")));
    QCOMPARE(w.at(0, PasskeysModel::RemoveLabelRole).toString(),
             QStringLiteral("Remove passkey Passkey"));
    QCOMPARE(w.at(0, PasskeysModel::BackupEligibleRole).toBool(), false);

    // A second one goes to the top; after a sign-in with the key, its use shows.
    w.add();
    QCOMPARE(w.model.count(), 2);
    const qint64 newest = w.at(0, PasskeysModel::IdRole).toLongLong();
    QVERIFY(newest != w.at(1, PasskeysModel::IdRole).toLongLong());
    w.operations.loginWithPasskey(LocalService::kDemoEmail);
    QTRY_VERIFY_WITH_TIMEOUT(!w.auth.isLoggingIn(), 20000);
    QVERIFY2(w.auth.loginError().isEmpty(), qPrintable(w.auth.loginError()));
    w.load();
    QCOMPARE(w.model.count(), 2);
    int used = 0;
    for (int row = 0; row < w.model.count(); ++row)
        used += w.at(row, PasskeysModel::LastUsedTextRole)
                    .toString()
                    .startsWith(QStringLiteral("Last used "));
    QCOMPARE(used, 1);
}

void TestPasskeysModel::removingTheLastShowsTheEmptyState()
{
    World w;
    w.signIn();
    w.load();
    w.add();
    const qint64 id = w.at(0, PasskeysModel::IdRole).toLongLong();

    w.model.requestRemove(id + 1000); // not in the list: nothing to confirm
    QVERIFY(!w.model.confirmingRemoval());
    w.model.requestRemove(id);
    QVERIFY(w.model.confirmingRemoval());
    QCOMPARE(w.model.pendingDeleteTitle(), QStringLiteral("Passkey"));
    w.model.cancelRemove();
    QVERIFY(!w.model.confirmingRemoval());
    w.model.confirmRemove(); // nothing pending: nothing sent
    QCOMPARE(w.model.count(), 1);

    QSignalSpy empty(&w.model, &PasskeysModel::isEmptyChanged);
    w.model.requestRemove(id);
    w.model.confirmRemove();
    QVERIFY(!w.model.confirmingRemoval());
    QTRY_VERIFY(w.model.isEmpty());
    QCOMPARE(w.model.count(), 0);
    QCOMPARE(empty.count(), 1);
    QVERIFY(w.model.actionError().isEmpty());
    w.load();
    QVERIFY(w.model.isEmpty());
}

void TestPasskeysModel::failedRemoveKeepsTheRow()
{
    World w;
    w.signIn();
    w.load();
    w.add();
    const qint64 id = w.at(0, PasskeysModel::IdRole).toLongLong();
    // Removed elsewhere (another computer) since the list was loaded.
    std::optional<std::optional<PasskeyFailure>> removed;
    w.operations.deletePasskey(id, &w.model, [&](auto failure) { removed = std::move(failure); });
    QTRY_VERIFY(removed.has_value());
    QVERIFY(!removed->has_value());

    QSignalSpy errors(&w.model, &PasskeysModel::actionErrorChanged);
    w.model.requestRemove(id);
    w.model.confirmRemove();
    QTRY_COMPARE(errors.count(), 1);
    QCOMPARE(w.model.actionError(), QStringLiteral("Passkey not found"));
    QCOMPARE(w.model.count(), 1);
    QCOMPARE(w.at(0, PasskeysModel::IdRole).toLongLong(), id);

    // The next action starts without the old error.
    w.add();
    QVERIFY(w.model.actionError().isEmpty());
    QCOMPARE(w.model.count(), 2);

    // Closing the sheet forgets it all; a load still on its way is dropped.
    w.model.requestRemove(id);
    w.model.confirmRemove();
    QTRY_VERIFY(!w.model.actionError().isEmpty());
    w.model.reload();
    w.model.clear();
    QVERIFY(w.model.actionError().isEmpty());
    QCOMPARE(w.model.count(), 0);
    QVERIFY(!w.model.loading());
    QTest::qWait(500);
    QCOMPARE(w.model.count(), 0);
}

void TestPasskeysModel::loadFailuresAreTheLoadError()
{
    World w;
    // Signed out: refused without a request.
    w.load();
    QCOMPARE(w.model.error(), QStringLiteral("You need to be signed in to manage passkeys."));
    QVERIFY(!w.model.isEmpty());
    QCOMPARE(w.service->requestCount("GET", QStringLiteral("/api/auth/passkey/list")), 0);

    // Retry after signing in clears it.
    w.signIn();
    w.load();
    QVERIFY(w.model.error().isEmpty());
    QVERIFY(w.model.isEmpty());

    // The session ended on the service: the token and its refresh are refused.
    w.service->expireAccessTokens();
    w.service->script("POST", QStringLiteral("/api/auth/refresh"),
                      ScriptedAnswer::json(401, {{QStringLiteral("detail"), QStringLiteral("x")}}));
    w.load();
    QCOMPARE(w.model.error(), QStringLiteral("Your session expired — please sign in again."));
    QVERIFY(!w.model.isEmpty());
}

QTEST_GUILESS_MAIN(TestPasskeysModel)
#include "tst_passkeysmodel.moc"
