// The speaker colour rule that every transcript list shares: colours follow
// who spoke first on screen, labels off screen are coloured by value or by a
// hash of the text.

#include "transcript/speakercolors.h"

#include <QTest>

using namespace sorv;

class TestSpeakerColors : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Who spoke first on screen comes first: the transcript list's test.
    void onScreenOrderWrapsRound()
    {
        // The 16th speaker on screen wraps round to blue.
        QStringList many;
        for (int i = 0; i < 16; ++i)
            many << QStringLiteral("s%1").arg(i);
        QCOMPARE(speakerColorIndex(QStringLiteral("s15"), many), 0);
    }

    void offScreen_data()
    {
        QTest::addColumn<QString>("label");
        QTest::addColumn<int>("entry");
        QTest::newRow("a number") << "12" << 12;
        QTest::newRow("past the palette") << "17" << 2;
        QTest::newRow("negative, never below zero") << "-2" << 13;
        QTest::newRow("with a plus sign") << "+4" << 4;
    }

    void offScreen()
    {
        QFETCH(QString, label);
        QFETCH(int, entry);
        QCOMPARE(speakerColorIndex(label, {QStringLiteral("0"), QStringLiteral("1")}), entry);
    }

    void names()
    {
        // Names, and labels that only look like numbers, take the hash path, in
        // range.
        for (const char* label :
             {"guest", " 3", "3 ", "", "-", "1e3", "99999999999999999999", "+-1"}) {
            const int entry = speakerColorIndex(QString::fromLatin1(label), {});
            QVERIFY2(entry >= 0 && entry < kSpeakerPaletteSize, label);
        }
    }
};

QTEST_GUILESS_MAIN(TestSpeakerColors)
#include "tst_speakercolors.moc"
