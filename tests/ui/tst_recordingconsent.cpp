// The consent sheet: when it is due, what it stores and in which order, and
// that nothing but a ticked acknowledgement lets the recording start.

#include "core/settings.h"
#include "support/isolatedenvironment.h"
#include "ui/recordingconsent.h"

#include <QSignalSpy>
#include <QTest>

using namespace sorv;

class TestRecordingConsent : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_env = std::make_unique<test::IsolatedEnvironment>(); }
    void cleanup()
    {
        Settings::setServerOverride({});
        m_env.reset();
    }

    void ruleFromStoredSettings_data()
    {
        QTest::addColumn<QVariant>("acknowledged");
        QTest::addColumn<QVariant>("remind");
        QTest::addColumn<bool>("due");
        // An invalid QVariant: the key is not stored at all.
        QTest::newRow("fresh installation") << QVariant() << QVariant() << true;
        QTest::newRow("agreed once") << QVariant(true) << QVariant() << false;
        QTest::newRow("agreed, remind on") << QVariant(true) << QVariant(true) << true;
        QTest::newRow("acknowledgement stored false") << QVariant(false) << QVariant(false) << true;
    }

    void ruleFromStoredSettings()
    {
        QFETCH(QVariant, acknowledged);
        QFETCH(QVariant, remind);
        QFETCH(bool, due);
        if (acknowledged.isValid())
            Settings::setValue(RecordingConsent::kAcknowledgedKey, acknowledged);
        if (remind.isValid())
            Settings::setValue(RecordingConsent::kRemindKey, remind);
        QCOMPARE(RecordingConsent::isDue(), due);
    }

    void remindIsStoredEvenWhenCancelled()
    {
        RecordingConsent sheet;
        QSignalSpy cancelled(&sheet, &RecordingConsent::cancelled);
        sheet.setRemindEachRecording(true);
        sheet.cancel();
        QCOMPARE(cancelled.count(), 1);
        QCOMPARE(Settings::value(RecordingConsent::kRemindKey).toBool(), true);
        QVERIFY(!Settings::contains(RecordingConsent::kAcknowledgedKey));
        // A sheet presented later shows the stored choice, nothing ticked.
        RecordingConsent later;
        later.setAcknowledged(true);
        later.reset();
        QVERIFY(later.remindEachRecording());
        QVERIFY(!later.acknowledged());
    }

    void agreeNeedsTheAcknowledgement()
    {
        RecordingConsent sheet;
        QSignalSpy agreed(&sheet, &RecordingConsent::agreed);
        QVERIFY(!sheet.canAgree());
        sheet.agree(); // Return, or a click on the disabled button
        QCOMPARE(agreed.count(), 0);
        QVERIFY(RecordingConsent::isDue());

        sheet.setAcknowledged(true);
        QVERIFY(sheet.canAgree());
        sheet.agree();
        QCOMPARE(agreed.count(), 1);
        QVERIFY(!RecordingConsent::isDue());
    }

    void acknowledgementIsStoredBeforeAgreed()
    {
        RecordingConsent sheet;
        bool storedWhenAgreed = false;
        connect(&sheet, &RecordingConsent::agreed, this,
                [&] { storedWhenAgreed = !RecordingConsent::isDue(); });
        sheet.setAcknowledged(true);
        sheet.agree();
        QVERIFY(storedWhenAgreed);
    }

    void videoBulletOnlyForVideo()
    {
        RecordingConsent sheet;
        QCOMPARE(sheet.obligations().size(), 4);
        sheet.setRecordsVideo(true);
        QCOMPARE(sheet.obligations().size(), 5);
        QVERIFY(sheet.obligations().last().startsWith(
            QStringLiteral("I understand that the screen video will record everything visible")));
    }

    void termsOnTheServiceOrigin()
    {
        Settings::setServerOverride(QStringLiteral("http://127.0.0.1:8123/"));
        RecordingConsent sheet;
        QCOMPARE(sheet.termsUrl(),
                 QUrl(QStringLiteral("http://127.0.0.1:8123/terms#recording-consent")));
        QList<QUrl> opened;
        sheet.setDesktopHooks({[&](const QUrl& url) {
                                   opened << url;
                                   return true;
                               },
                               {}});
        sheet.openTerms();
        QCOMPARE(opened, QList<QUrl>{sheet.termsUrl()});
    }

private:
    std::unique_ptr<test::IsolatedEnvironment> m_env;
};

QTEST_GUILESS_MAIN(TestRecordingConsent)
#include "tst_recordingconsent.moc"
