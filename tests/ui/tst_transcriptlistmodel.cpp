// The transcript bubbles' model: it follows a transcript manager row by row
// (a view keeps its place while text grows, and while the oldest rows go),
// colours rows by who spoke first, and starts over when the manager clears
// or another one is followed.

#include "core/secretstore.h"
#include "service/authmanager.h"
#include "support/isolatedenvironment.h"
#include "transcript/servertranscriptmanager.h"
#include "ui/transcriptlistmodel.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>
#include <QTest>

using namespace sorv;
using namespace sorv::LiveEvent;

class TestTranscriptListModel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void followsRowByRow()
    {
        ServerTranscriptManager manager;
        TranscriptListModel model;
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        model.follow(&manager);
        QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
        QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
        QSignalSpy reset(&model, &QAbstractItemModel::modelReset);

        manager.handle(Partial{QStringLiteral("Hel"), QStringLiteral("3")});
        manager.handle(Partial{QStringLiteral("Hello"), QStringLiteral("3")});
        manager.handle(Segment{QStringLiteral("1"), QStringLiteral("Hi."), 0, 0, true});
        manager.handle(Segment{QStringLiteral("3"), QStringLiteral("Again."), 0, 0, true});
        manager.handle(Segment{QStringLiteral("7"), QStringLiteral("Me too."), 0, 0, true});
        QCOMPARE(inserted.count(), 4);
        QCOMPARE(changed.count(), 1); // "Hel" grew into "Hello" in place
        QCOMPARE(reset.count(), 0);
        QCOMPARE(model.count(), 4);
        QList<int> colours;
        for (int row = 0; row < model.count(); ++row)
            colours << model.data(model.index(row), TranscriptListModel::ColorIndexRole).toInt();
        QCOMPARE(colours, (QList<int>{0, 1, 0, 2}));
        QCOMPARE(model.data(model.index(0), TranscriptListModel::TextRole).toString(), "Hello");
        QCOMPARE(model.colorForSpeaker(QStringLiteral("1")), QStringLiteral("#EF4444"));

        // The service names a speaker: the bubble and its spoken label follow.
        manager.handle(SpeakerNames{{{QStringLiteral("1"), QStringLiteral("Sam")}}});
        QCOMPARE(model.data(model.index(1), TranscriptListModel::AccessibleNameRole).toString(),
                 QStringLiteral("Sam said: Hi."));

        // A very long transcript lets its oldest rows go: the list follows
        // without starting over.
        QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
        for (int i = 0; i < 2000; ++i)
            manager.handle(Segment{QString::number(i % 2), QStringLiteral("Yes."), 0, 0, true});
        QCOMPARE(removed.count(), 1);
        QCOMPARE(reset.count(), 0);
        QCOMPARE(model.count(), manager.segments().size());

        // A new start clears the transcript: the list starts over, colours too.
        test::IsolatedEnvironment env;
        SecretStore secrets{SecretStore::Options::fileOnly()};
        AuthManager auth{secrets};
        manager.start(auth, QStringLiteral("en-US"));
        QCOMPARE(reset.count(), 1);
        QCOMPARE(model.count(), 0);
        manager.handle(Segment{QStringLiteral("7"), QStringLiteral("First now."), 0, 0, true});
        QCOMPARE(model.data(model.index(0), TranscriptListModel::ColorIndexRole).toInt(), 0);
    }

    void followsAnotherManager()
    {
        auto first = std::make_unique<ServerTranscriptManager>();
        ServerTranscriptManager second;
        first->handle(Segment{QStringLiteral("0"), QStringLiteral("One."), 0, 0, true});
        second.handle(Segment{QStringLiteral("5"), QStringLiteral("Five."), 0, 0, true});
        second.handle(Segment{QStringLiteral("6"), QStringLiteral("Six."), 0, 0, true});
        TranscriptListModel model;
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::QtTest);
        model.follow(first.get());
        QCOMPARE(model.count(), 1);
        model.follow(&second);
        QCOMPARE(model.count(), 2);
        first->handle(Segment{QStringLiteral("0"), QStringLiteral("Ignored."), 0, 0, true});
        QCOMPARE(model.count(), 2);
        model.follow(first.get());
        QCOMPARE(model.count(), 2); // "One." and "Ignored."
        first.reset();              // gone: nothing left to show
        QCOMPARE(model.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestTranscriptListModel)
#include "tst_transcriptlistmodel.moc"
