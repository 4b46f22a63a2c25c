// The passkeys sheet's model, the service answering from a script: its rows
// and their texts, adding, removing after confirmation, and the errors.

#include "service/passkeys/passkeysmodel.h"
#include "support/cannedaccount.h"

#include <QSignalSpy>
#include <QtTest>

using namespace sorv;

namespace {

Passkey passkey(qint64 id, std::optional<QString> label = {})
{
    Passkey p;
    p.id = id;
    p.label = std::move(label);
    p.createdAt = QDateTime(QDate(2024, 3, 5), QTime(14, 7), QTimeZone::utc());
    return p;
}

struct World {
    void load(const PasskeyOperationResult<QList<Passkey>>& answer)
    {
        account.passkeys = answer;
        model.reload();
        QVERIFY(model.loading());
        account.answer();
        QVERIFY(!model.loading());
    }
    QVariant at(int row, PasskeysModel::Role role) const { return model.index(row).data(role); }

    test::CannedAccount account;
    PasskeysModel model{account};
};

} // namespace

class TestPasskeysModel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void rowsAndAdding();
    void removingTheLastShowsTheEmptyState();
    void failedRemoveKeepsTheRow();
    void loadFailuresAreTheLoadError();
};

void TestPasskeysModel::rowsAndAdding()
{
    World w;
    Passkey used = passkey(1, QStringLiteral("YubiKey"));
    used.lastUsedAt = QDateTime::currentDateTimeUtc();
    used.backupEligible = true;
    w.load(QList<Passkey>{used});
    QCOMPARE(w.at(0, PasskeysModel::TitleRole).toString(), QStringLiteral("YubiKey"));
    QVERIFY(w.at(0, PasskeysModel::LastUsedTextRole).toString().startsWith("Last used "));
    QVERIFY(w.at(0, PasskeysModel::BackupEligibleRole).toBool());
    QCOMPARE(w.model.addButtonText(), QStringLiteral("Add a passkey"));

    // A new one, without a label, goes to the top.
    QSignalSpy buttonTexts(&w.model, &PasskeysModel::registeringChanged);
    w.account.added = passkey(2);
    w.model.add();
    QCOMPARE(w.model.addButtonText(), QStringLiteral("Adding passkey…"));
    w.model.add(); // one at a time
    w.account.answer();
    QCOMPARE(buttonTexts.count(), 2);
    QCOMPARE(w.account.calls, (QStringList{"passkeys", "add passkey"}));
    QCOMPARE(w.model.count(), 2);
    QCOMPARE(w.at(0, PasskeysModel::TitleRole).toString(), QStringLiteral("Passkey"));
    QCOMPARE(w.at(0, PasskeysModel::LastUsedTextRole).toString(), QStringLiteral("Never used"));
    QVERIFY(w.at(0, PasskeysModel::AddedTextRole).toString().startsWith(QStringLiteral("Added ")));
    QCOMPARE(w.at(0, PasskeysModel::RemoveLabelRole).toString(),
             QStringLiteral("Remove passkey Passkey"));

    // Cancelled at the key: no error to show.
    w.account.added = PasskeyFailure(PasskeyError::cancelled());
    w.model.add();
    w.account.answer();
    QVERIFY(w.model.actionError().isEmpty());
    QCOMPARE(w.model.count(), 2);
}

void TestPasskeysModel::removingTheLastShowsTheEmptyState()
{
    World w;
    w.load(QList<Passkey>{passkey(7)});
    w.model.requestRemove(8); // not in the list: nothing to confirm
    QVERIFY(!w.model.confirmingRemoval());
    w.model.requestRemove(7);
    QVERIFY(w.model.confirmingRemoval());
    QCOMPARE(w.model.pendingDeleteTitle(), QStringLiteral("Passkey"));
    w.model.cancelRemove();
    QVERIFY(!w.model.confirmingRemoval());
    w.model.confirmRemove(); // nothing pending: nothing sent
    QCOMPARE(w.account.calls, QStringList{"passkeys"});

    QSignalSpy empty(&w.model, &PasskeysModel::isEmptyChanged);
    w.model.requestRemove(7);
    w.model.confirmRemove();
    QVERIFY(!w.model.confirmingRemoval());
    w.account.answer();
    QVERIFY(w.model.isEmpty());
    QCOMPARE(w.model.count(), 0);
    QCOMPARE(empty.count(), 1);
}

void TestPasskeysModel::failedRemoveKeepsTheRow()
{
    World w;
    w.load(QList<Passkey>{passkey(7)});
    w.account.deleteFailure = PasskeyAuthError::server(QStringLiteral("Passkey not found"));
    w.model.requestRemove(7);
    w.model.confirmRemove();
    w.account.answer();
    QCOMPARE(w.model.actionError(), QStringLiteral("Passkey not found"));
    QCOMPARE(w.model.count(), 1);

    // The next action starts without the old error.
    w.account.added = passkey(8);
    w.model.add();
    QVERIFY(w.model.actionError().isEmpty());
    w.account.answer();

    // Closing the sheet forgets it all; answers still on their way are dropped.
    w.model.requestRemove(7);
    w.model.confirmRemove();
    w.model.reload();
    w.model.clear();
    QVERIFY(w.model.actionError().isEmpty());
    QCOMPARE(w.model.count(), 0);
    QVERIFY(!w.model.loading());
    w.account.answer();
    QCOMPARE(w.model.count(), 0);
    QVERIFY(w.model.actionError().isEmpty());
}

void TestPasskeysModel::loadFailuresAreTheLoadError()
{
    World w;
    w.load(PasskeyFailure(PasskeyAuthError::notLoggedIn()));
    QCOMPARE(w.model.error(), QStringLiteral("You need to be signed in to manage passkeys."));
    QVERIFY(!w.model.isEmpty()); // the error, not "no passkeys yet"

    // Retry clears it; a newer load makes the older one's answer irrelevant.
    w.account.passkeys = QList<Passkey>{passkey(1)};
    w.model.reload();
    w.load(QList<Passkey>());
    QVERIFY(w.model.error().isEmpty());
    QVERIFY(w.model.isEmpty());
}

QTEST_GUILESS_MAIN(TestPasskeysModel)
#include "tst_passkeysmodel.moc"
