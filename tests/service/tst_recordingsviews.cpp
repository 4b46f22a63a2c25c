// What the "Recordings" and "Join Meeting" tabs bind to: the texts of the
// formatting helpers at their edges, batches gathered into groups and the
// address each row opens, the active bots with their ages and their "Stop",
// the tab's states through loading, failing and retrying, and the join
// form's way from a link to the switch of tabs 1.5 s later (on a clock the
// test moves). Against the local service where they talk to it.

#include "core/format.h"
#include "core/secretstore.h"
#include "core/settings.h"
#include "service/authmanager.h"
#include "service/meetingsmodel.h"
#include "service/recordingformat.h"
#include "service/recordingslistcontroller.h"
#include "service/recordingsmodel.h"
#include "service/requestrules.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"
#include "support/manualdelays.h"
#include "ui/joinmeetingcontroller.h"

#include <QAbstractItemModelTester>

#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QtTest>
#include <ctime>

#define TRY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 30000)
#define TRY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 30000)

using namespace sorv;
using namespace sorv::local;
using namespace std::chrono_literals;

namespace {

using World = test::SignedIn;

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

QJsonObject recordingJson(const char* id, const QJsonValue& batch, const QJsonValue& index)
{
    return {{"id", id},
            {"original_filename", QString(QString::fromLatin1(id) + QStringLiteral(".wav"))},
            {"status", "completed"},
            {"created_at", "2024-03-05T14:07:00"},
            {"duration_ms", 59999},
            {"batch_id", batch},
            {"batch_index", index},
            {"speaker_list", QJsonArray{QJsonObject{{"name", "A"}, {"color", "#fff"}}}}};
}

ScriptedAnswer recordingsAnswer(const QJsonArray& items)
{
    return ScriptedAnswer::json(200, {{"items", items}, {"total", items.size()}});
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
    void joinSwitchesTabsOneAndAHalfSecondsLater();
    void joinFailureShowsTheMessage();
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
    World w;
    RecordingsModel& model = *w.auth.recordings();
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    w.service->script("GET", "/api/transcriptions",
                      recordingsAnswer({recordingJson("x", {}, {}), recordingJson("p2", "B", 1),
                                        recordingJson("p1", "B", 0)}));
    QSignalSpy refreshed(&model, &RecordingsModel::refreshed);
    model.refresh();
    TRY_COMPARE(refreshed.count(), 1);
    QCOMPARE(model.count(), 3);
    const auto at = [&](int row, RecordingsModel::Role role) {
        return model.data(model.index(row), role);
    };
    QCOMPARE(at(0, RecordingsModel::IdRole).toString(), QStringLiteral("x"));
    QCOMPARE(at(0, RecordingsModel::InBatchRole).toBool(), false);
    QCOMPARE(at(0, RecordingsModel::IsGroupStartRole).toBool(), false);
    QCOMPARE(at(0, RecordingsModel::WebAddressRole).toString(),
             w.service.origin() + QStringLiteral("/recording/x"));
    QCOMPARE(at(1, RecordingsModel::IdRole).toString(), QStringLiteral("p1"));
    QCOMPARE(at(1, RecordingsModel::IsGroupStartRole).toBool(), true);
    QCOMPARE(at(1, RecordingsModel::GroupSizeRole).toInt(), 2);
    QCOMPARE(at(2, RecordingsModel::IdRole).toString(), QStringLiteral("p2"));
    QCOMPARE(at(2, RecordingsModel::GroupPositionRole).toInt(), 1);
    QCOMPARE(at(2, RecordingsModel::IsGroupEndRole).toBool(), true);
    QCOMPARE(at(2, RecordingsModel::WebAddressRole).toString(),
             w.service.origin() + QStringLiteral("/recording/B?type=batch"));
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
    World w;
    const QString live = w.service->addMeeting(
        LocalService::kDemoEmail, QStringLiteral("https://meet.google.com/abc-defg-hij"));
    MeetingsModel model(w.auth);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
    QSignalSpy refreshed(&model, &MeetingsModel::refreshed);
    model.refresh();
    TRY_COMPARE(refreshed.count(), 1);
    QCOMPARE(model.count(), 1);
    const QString createdAt = model.data(model.index(0), MeetingsModel::CreatedAtRole).toString();
    const QDateTime created = QDateTime::fromString(createdAt, Qt::ISODate);
    model.setClock(
        [&] { return QDateTime(created.date(), created.time(), QTimeZone::utc()).addSecs(125); });
    QCOMPARE(model.data(model.index(0), MeetingsModel::AgeTextRole).toString(),
             QStringLiteral("2m ago"));

    // Stop: the row says so until the service answered.
    QSignalSpy finished(&model, &MeetingsModel::stopFinished);
    model.stop(live);
    QCOMPARE(model.stoppingId(), live);
    QVERIFY(model.data(model.index(0), MeetingsModel::IsStoppingRole).toBool());
    model.stop(QStringLiteral("another")); // one at a time
    QCOMPARE(model.stoppingId(), live);
    TRY_COMPARE(finished.count(), 1);
    QCOMPARE(finished.at(0).at(1).toString(), QString());
    QVERIFY(model.stoppingId().isEmpty());
    QVERIFY(!model.data(model.index(0), MeetingsModel::IsStoppingRole).toBool());
    model.refresh();
    TRY_COMPARE(refreshed.count(), 2);
    QCOMPARE(model.data(model.index(0), MeetingsModel::StatusRole).toString(),
             QStringLiteral("completed"));
    // A stopped bot is no longer among the active ones.
    model.setActiveOnly(true);
    QCOMPARE(model.count(), 0);
    QVERIFY(!model.hasActive());

    // A stop the service refuses says so.
    w.service->script("POST", QStringLiteral("/api/meetings/%1/stop").arg(live),
                      ScriptedAnswer::reply(500));
    model.stop(live);
    TRY_COMPARE(finished.count(), 2);
    QCOMPARE(model.stopError(), QStringLiteral("No response from server"));
}

void TestRecordingsViews::tabStatesThroughFailureAndRetry()
{
    World w;
    RecordingsListController tab(w.auth);
    QCOMPARE(tab.state(), RecordingsListController::State::Loading);
    w.service->addMeeting(LocalService::kDemoEmail,
                          QStringLiteral("https://meet.google.com/abc-defg-hij"));
    tab.refresh();
    QVERIFY(tab.refreshing());
    TRY_VERIFY(!tab.refreshing());
    QCOMPARE(tab.state(), RecordingsListController::State::Loaded);
    QVERIFY(tab.hasActiveBots());
    QCOMPARE(tab.recordings()->count(), 1); // the demo account's welcome recording

    // The recordings fail: the error state, with the service's words.
    w.service->script("GET", "/api/transcriptions", ScriptedAnswer::reply(503));
    tab.refresh();
    TRY_VERIFY(!tab.refreshing());
    QCOMPARE(tab.state(), RecordingsListController::State::Error);
    QCOMPARE(tab.loadError(), QStringLiteral("Server returned HTTP 503"));

    // Retry shows the spinner again; no recordings and no bots is "empty".
    // The meetings failing only leaves the bots out.
    w.service->script("GET", "/api/transcriptions", recordingsAnswer({}));
    w.service->script("GET", "/api/meetings", ScriptedAnswer::reply(500));
    QSignalSpy states(&tab, &RecordingsListController::stateChanged);
    tab.refresh();
    QCOMPARE(tab.state(), RecordingsListController::State::Loading);
    TRY_VERIFY(!tab.refreshing());
    QCOMPARE(tab.state(), RecordingsListController::State::Empty);
    QVERIFY(!tab.hasActiveBots());
    QVERIFY(tab.loadError().isEmpty());
    QCOMPARE(states.count(), 2);

    // Stop from the tab: both lists are fetched again afterwards.
    tab.refresh();
    TRY_VERIFY(!tab.refreshing());
    QVERIFY(tab.hasActiveBots());
    const QString id = tab.activeMeetings()
                           ->data(tab.activeMeetings()->index(0), MeetingsModel::IdRole)
                           .toString();
    // "Live" on a listed bot; nothing for an id the list does not show.
    QSignalSpy live(&tab, &RecordingsListController::liveTranscriptRequested);
    tab.showLiveTranscript(id);
    tab.showLiveTranscript(QStringLiteral("not-listed"));
    QCOMPARE(live.count(), 1);
    QCOMPARE(live.at(0), (QVariantList{id, w.service.origin(), w.auth.accessToken()}));
    w.service->clearRequestLog();
    tab.stopMeeting(id);
    TRY_COMPARE(w.service->requestCount("GET", "/api/meetings"), 1);
    TRY_VERIFY(!tab.refreshing());
    QCOMPARE(w.service->requestCount("GET", "/api/transcriptions"), 1);
    QVERIFY(!tab.hasActiveBots());
    QCOMPARE(tab.recordings()->count(), 2); // the bot's recording came in

    // A stop that comes back while a load is out: that load may have been
    // answered before the bot stopped, so another one follows it.
    const QString second = w.service->addMeeting(
        LocalService::kDemoEmail, QStringLiteral("https://meet.google.com/xyz-abcd-efg"));
    tab.refresh();
    TRY_VERIFY(!tab.refreshing());
    QVERIFY(tab.hasActiveBots());
    w.service->clearRequestLog();
    w.service->script("GET", "/api/transcriptions",
                      ScriptedAnswer::delayed(std::chrono::milliseconds(300)));
    tab.refresh();
    tab.stopMeeting(second);
    TRY_COMPARE(w.service->requestCount("GET", "/api/meetings"), 2);
    TRY_VERIFY(!tab.refreshing());
    QVERIFY(!tab.hasActiveBots());
}

void TestRecordingsViews::joinSwitchesTabsOneAndAHalfSecondsLater()
{
    World w;
    test::ManualDelays clock;
    JoinMeetingController join(w.auth, clock.delayedCall());
    QVERIFY(!join.isJoining());
    QVERIFY(!join.canJoin());
    join.setMeetingUrl(QStringLiteral("   "));
    QVERIFY(!join.canJoin());
    join.join(); // nothing to send
    QCOMPARE(w.service->requestCount("POST", "/api/meetings/join"), 0);

    QSignalSpy joined(&join, &JoinMeetingController::joined);
    QSignalSpy switched(&join, &JoinMeetingController::switchToRecordings);
    join.setMeetingUrl(QStringLiteral("  https://meet.google.com/abc-defg-hij \n"));
    QVERIFY(join.canJoin());
    join.join();
    QVERIFY(join.isJoining());
    QVERIFY(!join.canJoin());
    TRY_COMPARE(joined.count(), 1);
    QVERIFY(join.succeeded());
    QVERIFY(join.meetingUrl().isEmpty());
    QVERIFY(join.errorMessage().isEmpty());
    const QJsonObject sent =
        QJsonDocument::fromJson(w.service->requestLog().constLast().body).object();
    QCOMPARE(sent.value("meeting_url").toString(),
             QStringLiteral("https://meet.google.com/abc-defg-hij"));
    QCOMPARE(sent.value("bot_name").toString(), QStringLiteral("Sorvelandrix Recorder"));
    QVERIFY(!joined.at(0).at(0).toString().isEmpty());

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

void TestRecordingsViews::joinFailureShowsTheMessage()
{
    World w;
    test::ManualDelays clock;
    JoinMeetingController join(w.auth, clock.delayedCall());
    QSignalSpy switched(&join, &JoinMeetingController::switchToRecordings);
    join.setMeetingUrl(QStringLiteral("https://example.com/not-a-meeting"));
    join.join();
    TRY_VERIFY(!join.isJoining());
    QCOMPARE(join.errorMessage(), QStringLiteral("This is not a Google Meet, Zoom, Microsoft Teams "
                                                 "or Webex meeting link."));
    QVERIFY(!join.succeeded());
    QVERIFY(!join.succeeded());
    // The link stays for correcting; nothing switches.
    QCOMPARE(join.meetingUrl(), QStringLiteral("https://example.com/not-a-meeting"));
    QCOMPARE(clock.pendingCount(), 0);
    QCOMPARE(switched.count(), 0);

    // The next attempt clears the old message.
    w.service->script("POST", "/api/meetings/join", ScriptedAnswer::delayed(200ms));
    join.setMeetingUrl(QStringLiteral("https://meet.google.com/abc-defg-hij"));
    join.join();
    QVERIFY(join.errorMessage().isEmpty());
    TRY_VERIFY(join.succeeded());
}

QTEST_GUILESS_MAIN(TestRecordingsViews)
#include "tst_recordingsviews.moc"
