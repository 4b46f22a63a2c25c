// A meeting's event stream without the network: how arriving bytes become
// payloads (EventStreamReader), and how payloads become segments, names and
// a status (MeetingTranscript), including the bounds that keep a long
// meeting's memory flat.

#include "transcript/eventstreamreader.h"
#include "transcript/meetingtranscript.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace sorv;

using Chunks = QList<QByteArray>;
using Payloads = QList<QByteArray>;

namespace {

Payloads read(const Chunks& chunks)
{
    EventStreamReader reader;
    Payloads payloads;
    for (const QByteArray& chunk : chunks)
        reader.feed(chunk, payloads);
    return payloads;
}

QByteArray json(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray transcript(const QJsonArray& elements)
{
    return json({{"type", "transcript"}, {"segments", elements}});
}

QJsonObject element(const char* speaker, const char* text)
{
    return {{"speaker", speaker}, {"text", text}};
}

// "id speaker displayName: text", one per segment.
QStringList rows(const MeetingTranscript& t)
{
    QStringList out;
    for (const TranscriptSegment& s : t.segments())
        out << QStringLiteral("%1 %2 %3: %4").arg(s.id).arg(s.speaker, s.displayName, s.text);
    return out;
}

} // namespace

class TestMeetingTranscript : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void lines_data()
    {
        QTest::addColumn<Chunks>("chunks");
        QTest::addColumn<Payloads>("payloads");

        // Comments, ids, retry lines, "data:" without its space and payloads
        // that are no JSON come over the wire in the live manager's test.
        QTest::newRow("event name and data: only the data")
            << Chunks{"event: transcript\ndata: {\"a\":1}\n\n"} << Payloads{"{\"a\":1}"};
        QTest::newRow("several lines in one read")
            << Chunks{"data: 1\ndata: 2\n\ndata: 3\n"} << Payloads{"1", "2", "3"};
        QTest::newRow("a lone CR ends a line")
            << Chunks{"data: 1\rdata: 2\r"} << Payloads{"1", "2"};
        QTest::newRow("an empty payload is still one") << Chunks{"data: \n"} << Payloads{""};
        QTest::newRow("an unfinished line is not a payload yet")
            << Chunks{"data: 1\ndata: 2"} << Payloads{"1"};
        QTest::newRow("data: inside a line is not at its start")
            << Chunks{" data: 1\nevent: data: 2\n"} << Payloads{};
    }

    void lines()
    {
        QFETCH(Chunks, chunks);
        QFETCH(Payloads, payloads);
        QCOMPARE(read(chunks), payloads);
    }

    void aLineCutAnywhereReadsTheSame()
    {
        const QByteArray stream = ": hello\r\nevent: status\r\ndata: {\"type\":\"status\"}\r\n\r\n"
                                  "data: {\"type\":\"transcript\"}\ndata:bad\n";
        const Payloads whole = read({stream});
        QCOMPARE(whole, (Payloads{"{\"type\":\"status\"}", "{\"type\":\"transcript\"}"}));
        for (qsizetype cut = 0; cut <= stream.size(); ++cut)
            QCOMPARE(read({stream.left(cut), stream.mid(cut)}), whole);
        Chunks bytes;
        for (char c : stream)
            bytes << QByteArray(1, c);
        QCOMPARE(read(bytes), whole);

        // Whether a line is under way: what tells a body cut off mid-line.
        EventStreamReader reader;
        Payloads payloads;
        reader.feed("data: 1\r\n", payloads);
        QVERIFY(!reader.midLine());
        reader.feed("dat", payloads);
        QVERIFY(reader.midLine());
        reader.feed("a: 2\r", payloads);
        QVERIFY(!reader.midLine());
        reader.feed(": no", payloads);
        QVERIFY(reader.midLine());
        reader.reset();
        QVERIFY(!reader.midLine());
        QCOMPARE(payloads, (Payloads{"1", "2"}));
    }

    void overlongLinesAreDroppedWhole()
    {
        EventStreamReader reader;
        Payloads payloads;
        const QByteArray piece(qsizetype{64} * 1024, 'x');
        reader.feed("data: ", payloads);
        for (qsizetype sent = 0; sent < 3 * EventStreamReader::kMaxLineBytes;
             sent += piece.size()) {
            reader.feed(piece, payloads);
            QVERIFY(reader.bufferedBytes() <= EventStreamReader::kMaxLineBytes);
        }
        reader.feed("\ndata: after\n", payloads);
        QCOMPARE(payloads, Payloads{"after"});
        QCOMPARE(reader.droppedLines(), qint64(1));
        // Lines that are not data are never buffered at all.
        reader.feed(QByteArray(": " + piece), payloads);
        QCOMPARE(reader.bufferedBytes(), qsizetype(0));
    }

    void folding_data()
    {
        QTest::addColumn<Payloads>("payloads");
        QTest::addColumn<QStringList>("segments");

        QTest::newRow("one speaker's elements make one segment")
            << Payloads{transcript({element("0", "Hello")}), transcript({element("0", "world")})}
            << QStringList{"0 0 0: Hello world"};
        QTest::newRow("another speaker starts the next id")
            << Payloads{transcript(
                   {element("0", "Hello"), element("0", "world"), element("1", "Hi")})}
            << QStringList{"0 0 0: Hello world", "1 1 1: Hi"};
        QTest::newRow("a speaker who comes back starts anew")
            << Payloads{transcript({element("0", "A")}), transcript({element("1", "B")}),
                        transcript({element("0", "C")})}
            << QStringList{"0 0 0: A", "1 1 1: B", "2 0 0: C"};
        QTest::newRow("no speaker is unknown; no text is empty, and still a space")
            << Payloads{transcript({QJsonObject{{"text", "Hm"}},
                                    QJsonObject{{"speaker", "unknown"}},
                                    QJsonObject{{"speaker", 3}, {"text", 4}}})}
            << QStringList{"0 unknown unknown: Hm  "};
        QTest::newRow("an empty list changes nothing") << Payloads{transcript({})} << QStringList{};
    }

    void folding()
    {
        QFETCH(Payloads, payloads);
        QFETCH(QStringList, segments);
        MeetingTranscript t;
        for (const QByteArray& p : payloads)
            t.apply(p);
        QCOMPARE(rows(t), segments);
    }

    void namesAndStatus()
    {
        MeetingTranscript t;
        auto changes =
            t.apply(json({{"type", "speaker_names"}, {"names", QJsonObject{{"0", "Ada"}}}}));
        QVERIFY(changes.speakerNames && !changes.segmentsChanged());
        changes = t.apply(transcript(
            {element("0", "Hi"), QJsonObject{{"speaker", "1"},
                                             {"text", "Yo"},
                                             {"display_name", "Bea (guest)"},
                                             {"absolute_start_time", "2024-03-05T14:07:00"}}}));
        QCOMPARE(changes.firstAppended, qsizetype(0));
        QCOMPARE(changes.grownRow, qsizetype(-1));
        // Names that come later are for segments that start later; the
        // element's own name stays.
        changes = t.apply(json({{"type", "speaker_names"},
                                {"names", QJsonObject{{"0", "Ada L."}, {"1", "Beatrice"}}}}));
        QVERIFY(changes.speakerNames && !changes.segmentsChanged());
        QVERIFY(!t.apply(json({{"type", "speaker_names"},
                               {"names", QJsonObject{{"0", "Ada L."}, {"1", "Beatrice"}}}}))
                     .speakerNames);
        changes = t.apply(transcript({element("1", "there"), element("0", "Bye")}));
        QCOMPARE(changes.grownRow, qsizetype(1));
        QCOMPARE(changes.firstAppended, qsizetype(2));
        QCOMPARE(rows(t),
                 (QStringList{"0 0 Ada: Hi", "1 1 Bea (guest): Yo there", "2 0 Ada L.: Bye"}));
        QCOMPARE(t.segments().at(1).timestamp, std::optional<QString>("2024-03-05T14:07:00"));
        QVERIFY(!t.segments().at(0).timestamp);

        QVERIFY(t.apply(json({{"type", "status"}, {"status", "in_meeting"}})).meetingStatus);
        QCOMPARE(t.meetingStatus(), QStringLiteral("in_meeting"));
        // A status that is not a string leaves it as it was.
        for (const QJsonValue& odd : {QJsonValue(5), QJsonValue(true), QJsonValue(QJsonObject{}),
                                      QJsonValue(QJsonValue::Null)})
            QVERIFY(!t.apply(json({{"type", "status"}, {"status", odd}})).meetingStatus);
        QVERIFY(!t.apply(json({{"type", "status"}})).meetingStatus);
        QCOMPARE(t.meetingStatus(), QStringLiteral("in_meeting"));
        QVERIFY(t.apply(json({{"type", "status"}, {"status", ""}})).meetingStatus);
        QCOMPARE(t.meetingStatus(), QString());

        t.clear();
        QVERIFY(t.segments().isEmpty() && t.speakerNames().isEmpty());
        t.apply(transcript({element("5", "again")}));
        QCOMPARE(rows(t), QStringList{"0 5 5: again"});
    }

    void malformedPayloadsChangeNothing_data()
    {
        QTest::addColumn<QByteArray>("payload");
        QTest::newRow("not an object") << QByteArray(R"([{"type":"status"}])");
        QTest::newRow("no type") << json({{"segments", QJsonArray{element("0", "x")}}});
        QTest::newRow("type not a string") << json({{"type", 1}, {"status", "x"}});
        QTest::newRow("unknown type") << json({{"type", "keepalive"}, {"status", "x"}});
        QTest::newRow("segments with a non-object")
            << json({{"type", "transcript"}, {"segments", QJsonArray{element("0", "x"), 3}}});
        QTest::newRow("names not an object") << json({{"type", "speaker_names"}, {"names", "Ada"}});
        QTest::newRow("a name not a string")
            << json({{"type", "speaker_names"}, {"names", QJsonObject{{"0", "Ada"}, {"1", 2}}}});
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("not UTF-8") << QByteArray("{\"type\":\"status\",\"status\":\"\xff\xfe\"");
    }

    void malformedPayloadsChangeNothing()
    {
        QFETCH(QByteArray, payload);
        MeetingTranscript t;
        t.apply(json({{"type", "speaker_names"}, {"names", QJsonObject{{"0", "Ada"}}}}));
        t.apply(json({{"type", "status"}, {"status", "recording"}}));
        t.apply(transcript({element("0", "Hi")}));
        const auto changes = t.apply(payload);
        QVERIFY(!changes.segmentsChanged() && !changes.speakerNames && !changes.meetingStatus);
        QCOMPARE(rows(t), QStringList{"0 0 Ada: Hi"});
        QCOMPARE(t.speakerNames().value("0"), QStringLiteral("Ada"));
        QCOMPARE(t.meetingStatus(), QStringLiteral("recording"));
    }

    void aLongMeetingStaysBounded()
    {
        MeetingTranscript t;
        qsizetype trimmed = 0;
        const qsizetype turns = 3 * MeetingTranscript::kMaxSegments;
        for (qsizetype i = 0; i < turns; ++i) {
            const auto changes = t.apply(transcript({element(i % 2 ? "1" : "0", "turn")}));
            trimmed += changes.trimmed;
            QVERIFY(t.segments().size() <= MeetingTranscript::kMaxSegments);
            QCOMPARE(changes.firstAppended, t.segments().size() - 1);
        }
        // The newest are kept, their ids as they were given.
        QCOMPARE(t.segments().size() + trimmed, turns);
        QCOMPARE(t.segments().last().id, std::int64_t(turns - 1));
        QCOMPARE(t.segments().first().id, std::int64_t(trimmed));

        // One payload of many elements: the rows it reports are after the trim.
        MeetingTranscript big;
        big.apply(transcript({element("x", "first")}));
        QJsonArray many;
        for (qsizetype i = 0; i < MeetingTranscript::kMaxSegments + 10; ++i)
            many.append(element(i % 2 ? "a" : "b", "w"));
        many.prepend(element("x", "more"));
        const auto changes = big.apply(transcript(many));
        QVERIFY(changes.trimmed > 0);
        QCOMPARE(changes.grownRow, qsizetype(-1)); // the grown row was among the dropped
        QCOMPARE(changes.firstAppended, qsizetype(0));
        QCOMPARE(big.segments().size(),
                 MeetingTranscript::kMaxSegments - MeetingTranscript::kTrimBatch);
    }

    void aMonologueIsCutIntoSegments()
    {
        MeetingTranscript t;
        const QString sentence = QStringLiteral("and so it goes on, ");
        for (int i = 0; i < 2000; ++i)
            t.apply(transcript({QJsonObject{{"speaker", "0"}, {"text", sentence}}}));
        QVERIFY(t.segments().size() > 1);
        qsizetype total = 0;
        for (const TranscriptSegment& s : t.segments()) {
            QVERIFY(s.text.size() <= MeetingTranscript::kMaxSegmentChars);
            QCOMPARE(s.speaker, QStringLiteral("0"));
            total += s.text.size();
        }
        // Nothing said is lost in the cut.
        QCOMPARE(total, 2000 * (sentence.size() + 1) - t.segments().size());
        // A single element longer than a segment is cut to fit.
        t.apply(transcript({QJsonObject{
            {"speaker", "1"},
            {"text", QString(3 * MeetingTranscript::kMaxSegmentChars, QLatin1Char('x'))}}}));
        QCOMPARE(t.segments().last().text.size(), MeetingTranscript::kMaxSegmentChars);
    }
};

QTEST_GUILESS_MAIN(TestMeetingTranscript)
#include "tst_meetingtranscript.moc"
