// The lists the views show, checked for model consistency by Qt's own
// tester while they load, fail and change: recordings, meeting bots and
// microphones.

#include "audio/inputdevicemodel.h"
#include "core/secretstore.h"
#include "service/apiclient.h"
#include "service/authmanager.h"
#include "service/meetingsmodel.h"
#include "service/recordingsmodel.h"
#include "signedin.h"
#include "support/isolatedenvironment.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QtTest>

using namespace sorv;
using namespace sorv::local;

namespace {

using World = test::SignedIn;

bool refreshAndWait(ListModel& model, const std::function<void()>& refresh)
{
    QSignalSpy loading(&model, &ListModel::loadingChanged);
    refresh();
    if (!model.loading())
        return false;
    return QTest::qWaitFor([&] { return !model.loading(); }, 20000) && loading.count() == 2;
}

} // namespace

class TestModels : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void recordingsLoadFailAndRecover()
    {
        World w;
        RecordingsModel& model = *w.auth.recordings();
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        w.service->addRecording(LocalService::kDemoEmail, QStringLiteral("b.wav"), 61'000,
                                QStringLiteral("Standup"));
        QVERIFY(refreshAndWait(model, [&] { model.refresh(); }));
        QVERIFY(model.error().isEmpty());
        QCOMPARE(model.count(), 2);
        QStringList titles;
        for (int row = 0; row < model.rowCount(); ++row)
            titles << model.data(model.index(row), RecordingsModel::TitleRole).toString();
        QVERIFY(titles.contains(QStringLiteral("Standup")));
        const int standup = int(titles.indexOf(QStringLiteral("Standup")));
        const QModelIndex i = model.index(standup);
        QCOMPARE(model.data(i, RecordingsModel::DurationTextRole).toString(),
                 QStringLiteral("1:01"));
        QCOMPARE(model.data(i, RecordingsModel::WebAddressRole).toString(),
                 w.service.origin() + QStringLiteral("/recording/") +
                     model.data(i, RecordingsModel::IdRole).toString());
        QVERIFY(model.roleNames().values().contains("title"));

        w.service->script("GET", "/api/transcriptions", ScriptedAnswer::reply(503));
        QVERIFY(refreshAndWait(model, [&] { model.refresh(); }));
        QCOMPARE(model.error(), QStringLiteral("Server returned HTTP 503"));
        QCOMPARE(model.count(), 0);

        QVERIFY(refreshAndWait(model, [&] { model.refresh(); }));
        QVERIFY(model.error().isEmpty());
        QCOMPARE(model.count(), 2);
    }

    void meetingsKnowWhichBotsAreActive()
    {
        World w;
        MeetingsModel model(w.auth);
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        QVERIFY(refreshAndWait(model, [&] { model.refresh(); }));
        QCOMPARE(model.count(), 0);
        QVERIFY(!model.hasActive());

        std::optional<bool> joined;
        APIClient(w.auth).joinMeeting(QStringLiteral("https://meet.google.com/abc-defg-hij"),
                                      QStringLiteral("Bot"), &model,
                                      [&](const ApiResult<Meeting>& r) { joined = r.ok(); });
        QTRY_VERIFY(joined);
        QVERIFY(*joined);
        QVERIFY(refreshAndWait(model, [&] { model.refresh(); }));
        QCOMPARE(model.count(), 1);
        QVERIFY(model.hasActive());
        QCOMPARE(model.data(model.index(0), MeetingsModel::IsActiveRole).toBool(), true);

        // A list that cannot be fetched is an error, not "no bots".
        w.service->script("GET", "/api/meetings", ScriptedAnswer::dropped());
        w.service->script("GET", "/api/meetings", ScriptedAnswer::dropped());
        QVERIFY(refreshAndWait(model, [&] { model.refresh(); }));
        QVERIFY(!model.error().isEmpty());
        QCOMPARE(model.count(), 0);
    }

    void inputDevicesChangeOnlyWhenTheyDo()
    {
        InputDeviceModel model;
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
        const QList<InputDevice> two{{1, QStringLiteral("Built-in"), true},
                                     {2, QStringLiteral("Headset"), false}};
        QVERIFY(model.setDevices(two));
        QVERIFY(!model.setDevices(two));
        QCOMPARE(resets.count(), 1);
        QCOMPARE(model.data(model.index(1), InputDeviceModel::NameRole).toString(),
                 QStringLiteral("Headset"));
        QVERIFY(model.data(model.index(0), InputDeviceModel::IsDefaultRole).toBool());
        QVERIFY(model.setDevices({}));
        QCOMPARE(model.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestModels)
#include "tst_models.moc"
