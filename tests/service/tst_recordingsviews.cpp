// What the "Recordings" and "Join Meeting" tabs bind to: the texts of the
// formatting helpers at their edges, batches gathered into groups and the
// address each row opens, the active bots with their ages and their "Stop",
// the tab's states through loading, failing and retrying, an account switch,
// and the join form's way from a link to the switch of tabs 1.5 s later (on
// a clock the test moves). The service answers from a script.

#include "core/format.h"
#include "core/settings.h"
#include "service/meetingsmodel.h"
#include "service/recordingformat.h"
#include "service/recordingslistcontroller.h"
#include "service/recordingsmodel.h"
#include "service/requestrules.h"
#include "support/cannedaccount.h"
#include "support/isolatedenvironment.h"
#include "support/manualdelays.h"
#include "ui/joinmeetingcontroller.h"

#include <QAbstractItemModelTester>

#include <QSignalSpy>
#include <QtTest>
#include <ctime>

using namespace sorv;
using namespace std::chrono_literals;
using State = RecordingsListController::State;

namespace {

Recording recording(const char* id, std::optional<QString> batch = {},
                    std::optional<qint64> index = {})
{
    Recording r;
    r.id = QString::fromLatin1(id);
    r.original_filename = r.id + QStringLiteral(".wav");
    r.status = QStringLiteral("completed");
    r.batch_id = std::move(batch);
    r.batch_index = index;
    return r;
}

Meeting bot(const char* id, const char* status = "in_meeting")
{
    Meeting m;
    m.id = QString::fromLatin1(id);
    m.status = QString::fromLatin1(status);
    m.created_at = QStringLiteral("2024-03-05T14:07:00");
    return m;
}

} // namespace

class TestRecordingsViews : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void dates_data();
    void dates();
    void ages_data();
    void ages();
    void batchesStandTogether();
    void openingAddress();
    void recordingRowsShowTheirGroup();
    void activeBotsAgeAndStop();
    void tabStatesThroughFailureAndRetry();
    void theNextAccountSeesNothingOfThePrevious();
    void joinFromALinkToTheRecordingsTab();
};

void TestRecordingsViews::dates_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QString>("createdAt");
    QTest::addColumn<QString>("shown");
    QTest::newRow("UTC") << QByteArray("UTC") << "2024-03-05T14:07:00"
                         << "5 Mar";
    QTest::newRow("with a zone") << QByteArray("UTC") << "2024-03-05T14:07:00Z"
                                 << "5 Mar";
    // The service's times are UTC: the day is the user's.
    QTest::newRow("Auckland") << QByteArray("Pacific/Auckland") << "2024-03-05T20:00:00"
                              << "6 Mar";
    QTest::newRow("Auckland, offset")
        << QByteArray("Pacific/Auckland") << "2024-03-05T20:00:00+02:00"
        << "6 Mar";
    QTest::newRow("Los Angeles") << QByteArray("America/Los_Angeles") << "2024-03-05T03:00:00"
                                 << "4 Mar";
    QTest::newRow("fractions") << QByteArray("UTC") << "2024-03-05T14:07:00.123456"
                               << "2024-03-05";
    QTest::newRow("no date") << QByteArray("UTC") << "March the fifth"
                             << "March the ";
}

void TestRecordingsViews::dates()
{
    QFETCH(QByteArray, zone);
    QFETCH(QString, createdAt);
    QFETCH(QString, shown);
    const QByteArray before = qgetenv("TZ");
    qputenv("TZ", zone);
    tzset();
    const QString actual = formatRecordingDate(createdAt);
    qputenv("TZ", before);
    tzset();
    QCOMPARE(actual, shown);
    QCOMPARE(formatRecordingDate(std::nullopt), QStringLiteral("--"));
}

void TestRecordingsViews::ages_data()
{
    QTest::addColumn<QString>("createdAt");
    QTest::addColumn<qint64>("secondsLater");
    QTest::addColumn<QString>("age");
    const QString t = QStringLiteral("2024-03-05T14:07:00");
    QTest::newRow("30 s") << t << qint64(30) << "Just now";
    QTest::newRow("59 min") << t << qint64(59 * 60) << "59m ago";
    QTest::newRow("60 min") << t << qint64(60 * 60) << "1h ago";
    QTest::newRow("119 min") << t << qint64(119 * 60) << "1h ago";
    QTest::newRow("1 440 min") << t << qint64(1440 * 60) << "1d ago";
    QTest::newRow("just under 7 days") << t << qint64(10079 * 60) << "6d ago";
    QTest::newRow("7 days") << t << qint64(7 * 86400) << "";
    QTest::newRow("in the future") << t << qint64(-600) << "Just now";
    QTest::newRow("not that form") << "2024-03-05T14:07:00.123" << qint64(30) << "";
    QTest::newRow("not a date") << "yesterday, 9:00 am" << qint64(30) << "";
}

void TestRecordingsViews::ages()
{
    QFETCH(QString, createdAt);
    QFETCH(qint64, secondsLater);
    QFETCH(QString, age);
    // The service writes UTC without a zone.
    const QDateTime now =
        QDateTime(QDate(2024, 3, 5), QTime(14, 7), QTimeZone::utc()).addSecs(secondsLater);
    QCOMPARE(formatRelativeAge(createdAt, now), age);
    QCOMPARE(formatRelativeAge(std::nullopt, now), QString());
}

void TestRecordingsViews::batchesStandTogether()
{
    const QString b1 = QStringLiteral("b1");
    const QString b2 = QStringLiteral("b2");
    const QList<Recording> list{recording("a", b1, 2), recording("c"),
                                recording("b", b1, 0), recording("d", b2),
                                recording("e", b1, 1), recording("f", b2, 0)};
    QStringList order;
    for (const RecordingPlace& p : arrangeRecordings(list))
        order << QStringLiteral("%1 %2/%3")
                     .arg(list.at(p.source).id)
                     .arg(p.groupPosition)
                     .arg(p.inBatch ? p.groupSize : 0);
    // Where the batch's first recording stood; no index counts as 0 and a
    // tie keeps the service's order.
    QCOMPARE(order, (QStringList{"b 0/3", "e 1/3", "a 2/3", "c 0/0", "d 0/2", "f 1/2"}));
    QVERIFY(arrangeRecordings({}).isEmpty());
}

void TestRecordingsViews::openingAddress()
{
    test::IsolatedEnvironment env;
    Settings::setServerOverride(QStringLiteral("https://service.example/"));
    QCOMPARE(recordingWebAddress(recording("r1", QStringLiteral("b1"), 3)),
             QStringLiteral("https://service.example/recording/b1?type=batch"));
    QCOMPARE(recordingWebAddress(recording("r1")),
             QStringLiteral("https://service.example/recording/r1"));
    Settings::setServerOverride({});
}

void TestRecordingsViews::recordingRowsShowTheirGroup()
{
    test::CannedAccount account;
    RecordingsModel model(account);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    Recording p2 = recording("p2", QStringLiteral("B"), 1);
    p2.created_at = QStringLiteral("2024-03-05T14:07:00");
    p2.duration_ms = 59999;
    p2.speaker_list = QList<RecordingSpeaker>{{QStringLiteral("A"), QStringLiteral("#fff")}};
    account.recordings.recordings = {recording("x"), p2, recording("p1", QStringLiteral("B"), 0)};
    model.refresh();
    QVERIFY(model.loading());
    account.answer();
    QVERIFY(!model.loading());
    QCOMPARE(model.count(), 3);
    const auto at = [&](int row, RecordingsModel::Role role) {
        return model.data(model.index(row), role);
    };
    QStringList rows;
    for (int row = 0; row < 3; ++row)
        rows << QStringLiteral("%1 %2/%3")
                    .arg(at(row, RecordingsModel::IdRole).toString(),
                         at(row, RecordingsModel::GroupPositionRole).toString(),
                         at(row, RecordingsModel::GroupSizeRole).toString());
    QCOMPARE(rows, (QStringList{"x 0/1", "p1 0/2", "p2 1/2"}));
    QCOMPARE(at(0, RecordingsModel::InBatchRole).toBool(), false);
    QCOMPARE(at(1, RecordingsModel::IsGroupStartRole).toBool(), true);
    QCOMPARE(at(2, RecordingsModel::IsGroupEndRole).toBool(), true);
    QCOMPARE(at(2, RecordingsModel::DateTextRole).toString(), QStringLiteral("5 Mar"));
    QCOMPARE(at(2, RecordingsModel::DurationTextRole).toString(), QStringLiteral("0:59"));
    QCOMPARE(at(2, RecordingsModel::SpeakerCountRole).toInt(), 1);
    QCOMPARE(at(2, RecordingsModel::StatusKindRole).toString(), QStringLiteral("completed"));
    QCOMPARE(recordingStatusKind(QStringLiteral("complete")), QStringLiteral("completed"));
    QCOMPARE(recordingStatusKind(QStringLiteral("error")), QStringLiteral("error"));
    QCOMPARE(recordingStatusKind(QStringLiteral("transcribing")), QStringLiteral("processing"));
    QVERIFY(model.roleNames().values().contains("isGroupStart"));
}

void TestRecordingsViews::activeBotsAgeAndStop()
{
    test::CannedAccount account;
    MeetingsModel model(account);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    model.setClock([] { return QDateTime(QDate(2024, 3, 5), QTime(14, 9, 5), QTimeZone::utc()); });
    account.meetings = QList<Meeting>{bot("live")};
    model.refresh();
    account.answer();
    QCOMPARE(model.count(), 1);
    QCOMPARE(model.data(model.index(0), MeetingsModel::AgeTextRole).toString(),
             QStringLiteral("2m ago"));

    // Stop: the row says so until the service answered.
    QSignalSpy finished(&model, &MeetingsModel::stopFinished);
    model.stop(QStringLiteral("live"));
    QVERIFY(model.data(model.index(0), MeetingsModel::IsStoppingRole).toBool());
    model.stop(QStringLiteral("another")); // one at a time
    QCOMPARE(model.stoppingId(), QStringLiteral("live"));
    account.answer();
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.at(0).at(1).toString(), QString());
    QVERIFY(!model.data(model.index(0), MeetingsModel::IsStoppingRole).toBool());
    // A stopped bot is no longer among the active ones.
    account.meetings = QList<Meeting>{bot("live", "completed")};
    model.refresh();
    account.answer();
    model.setActiveOnly(true);
    QCOMPARE(model.count(), 0);
    QVERIFY(!model.hasActive());

    // A stop the service refuses says so.
    account.stopError = APIError::noResponse();
    model.stop(QStringLiteral("live"));
    account.answer();
    QCOMPARE(model.stopError(), QStringLiteral("No response from server"));
    QCOMPARE(account.calls, (QStringList{"meetings", "stop live", "meetings", "stop live"}));
}

void TestRecordingsViews::tabStatesThroughFailureAndRetry()
{
    test::CannedAccount account;
    RecordingsListController tab(account);
    const auto load = [&](RecordingsFetchResult recordings, ApiResult<QList<Meeting>> meetings) {
        account.recordings = std::move(recordings);
        account.meetings = std::move(meetings);
        tab.refresh();
        QVERIFY(tab.refreshing());
        account.answer();
    };
    QCOMPARE(tab.state(), State::Loading);
    load({{recording("r1")}, {}}, QList<Meeting>{bot("m1")});
    QVERIFY(!tab.refreshing());
    QCOMPARE(tab.state(), State::Loaded);
    QVERIFY(tab.hasActiveBots());
    QCOMPARE(tab.recordings()->count(), 1);

    // The recordings fail: the error state, with the service's words.
    load({{}, QStringLiteral("Server returned HTTP 503")}, QList<Meeting>());
    QCOMPARE(tab.state(), State::Error);
    QCOMPARE(tab.loadError(), QStringLiteral("Server returned HTTP 503"));

    // Retry shows the spinner again; no recordings and no bots is "empty".
    // The meetings failing only leaves the bots out.
    QSignalSpy states(&tab, &RecordingsListController::stateChanged);
    load({}, APIError::http(500));
    QCOMPARE(states.count(), 2); // Loading, then Empty
    QCOMPARE(tab.state(), State::Empty);
    QVERIFY(!tab.hasActiveBots());
    QVERIFY(tab.loadError().isEmpty());

    // "Live" on a listed bot only; "Stop" fetches both lists again.
    load({}, QList<Meeting>{bot("m1")});
    QSignalSpy live(&tab, &RecordingsListController::liveTranscriptRequested);
    tab.showLiveTranscript(QStringLiteral("m1"));
    tab.showLiveTranscript(QStringLiteral("not-listed"));
    QCOMPARE(live.count(), 1);
    QCOMPARE(live.at(0).at(2).toString(), account.accessToken());
    account.calls.clear();
    account.meetings = QList<Meeting>();
    tab.stopMeeting(QStringLiteral("m1"));
    account.answer();
    QVERIFY(tab.refreshing());
    account.answer();
    QCOMPARE(account.calls, (QStringList{"stop m1", "recordings", "meetings"}));
    QVERIFY(!tab.hasActiveBots());

    // A stop that comes back while a load is out: that load may have been
    // answered before the bot stopped, so another one follows it.
    load({}, QList<Meeting>{bot("m2")});
    account.calls.clear();
    tab.stopMeeting(QStringLiteral("m2"));
    tab.refresh();
    account.meetings = QList<Meeting>();
    account.answer();
    QVERIFY(tab.refreshing());
    account.answer();
    QCOMPARE(account.calls,
             (QStringList{"stop m2", "recordings", "meetings", "recordings", "meetings"}));
    QVERIFY(!tab.hasActiveBots());
}

// Sign out, sign in as someone else: nothing of the first account is shown,
// not even what it was sent before, and none of its ids goes out again.
void TestRecordingsViews::theNextAccountSeesNothingOfThePrevious()
{
    test::CannedAccount account;
    RecordingsListController tab(account);
    JoinMeetingController join(account);
    account.meetings = QList<Meeting>{bot("m1")};
    account.recordings.recordings = {recording("r1")};
    tab.refresh();
    account.answer();
    QCOMPARE(tab.state(), State::Loaded);
    join.setMeetingUrl(QStringLiteral("https://zoom.us/j/1"));
    tab.refresh(); // answered after the switch

    account.endSession();
    QCOMPARE(tab.recordings()->count(), 0);
    QVERIFY(!tab.hasActiveBots());
    QCOMPARE(tab.state(), State::Loading);
    QVERIFY(!tab.refreshing());
    QVERIFY(join.meetingUrl().isEmpty());
    account.answer();
    QCOMPARE(tab.recordings()->count(), 0);
    QCOMPARE(tab.state(), State::Loading);

    account.calls.clear();
    QSignalSpy live(&tab, &RecordingsListController::liveTranscriptRequested);
    tab.stopMeeting(QStringLiteral("m1"));
    tab.showLiveTranscript(QStringLiteral("m1"));
    QVERIFY(account.calls.isEmpty());
    QCOMPARE(live.count(), 0);
}

void TestRecordingsViews::joinFromALinkToTheRecordingsTab()
{
    test::CannedAccount account;
    test::ManualDelays clock;
    JoinMeetingController join(account, clock.delayedCall());
    join.setMeetingUrl(QStringLiteral("   "));
    QVERIFY(!join.canJoin());
    join.join(); // nothing to send
    QVERIFY(account.calls.isEmpty());

    // A refusal shows the service's words; the link stays for correcting.
    QSignalSpy joined(&join, &JoinMeetingController::joined);
    QSignalSpy switched(&join, &JoinMeetingController::switchToRecordings);
    account.joined = APIError::server(QStringLiteral("Not a meeting link."));
    join.setMeetingUrl(QStringLiteral("  https://meet.google.com/abc-defg-hij \n"));
    QVERIFY(join.canJoin());
    join.join();
    QVERIFY(join.isJoining());
    QVERIFY(!join.canJoin());
    account.answer();
    QCOMPARE(account.calls, QStringList{"join https://meet.google.com/abc-defg-hij as "
                                        "Sorvelandrix Recorder"});
    QVERIFY(!join.isJoining());
    QCOMPARE(join.errorMessage(), QStringLiteral("Not a meeting link."));
    QVERIFY(!join.meetingUrl().isEmpty());
    QCOMPARE(clock.pendingCount(), 0);

    // The next attempt clears the old message; 1.5 s after the bot was
    // sent, the recordings tab.
    account.joined = bot("m1", "joining");
    join.join();
    QVERIFY(join.errorMessage().isEmpty());
    account.answer();
    QCOMPARE(joined.count(), 1);
    QCOMPARE(joined.at(0).at(0).toString(), QStringLiteral("m1"));
    QVERIFY(join.succeeded());
    QVERIFY(join.meetingUrl().isEmpty());
    QCOMPARE(clock.requests(), QList<qint64>{1500});
    clock.advance(1499ms);
    QCOMPARE(switched.count(), 0);
    QVERIFY(join.isJoining());
    clock.advance(1ms);
    QCOMPARE(switched.count(), 1);
    QVERIFY(!join.isJoining());
    QVERIFY(!join.succeeded()); // the form again, for the next link
    QCOMPARE(join.platforms().size(), 4);
    QCOMPARE(join.platforms().at(1).toMap().value("name").toString(),
             QStringLiteral("Microsoft Teams"));
}

QTEST_GUILESS_MAIN(TestRecordingsViews)
#include "tst_recordingsviews.moc"
