// The live stream's wire format, both ways: what the recorder's audio
// becomes on the wire (decimation, clipping, 3 840-byte frames) and what
// the service's two message dialects become as events.

#include "core/log.h"
#include "transcript/livemessagehandler.h"
#include "transcript/livepcmframer.h"

#include <QTest>

#include <cmath>
#include <limits>
#include <vector>

using namespace sorv;
using namespace sorv::LiveEvent;

Q_DECLARE_METATYPE(std::vector<sorv::LiveTranscriptEvent>)

namespace QTest {
template <> char* toString(const std::vector<sorv::LiveTranscriptEvent>& events)
{
    QStringList parts;
    for (const auto& e : events)
        parts << describe(e);
    return qstrdup(
        qPrintable(QLatin1Char('[') + parts.join(QStringLiteral(", ")) + QLatin1Char(']')));
}
} // namespace QTest

namespace {

struct Framed {
    std::vector<QByteArray> frames;
    std::size_t pending = 0;
};

Framed frame(LivePcmFramer& framer, const std::vector<float>& samples)
{
    Framed out;
    framer.push(samples, [&out](const QByteArray& f) { out.frames.push_back(f); });
    out.pending = framer.pendingBytes();
    return out;
}

std::int16_t sampleAt(const QByteArray& frame, int index)
{
    const auto lo = std::uint8_t(frame[qsizetype{2} * index]);
    const auto hi = std::uint8_t(frame[qsizetype{2} * index + 1]);
    return static_cast<std::int16_t>(std::uint16_t(lo | (hi << 8)));
}

std::vector<LiveTranscriptEvent> handleAll(LiveMessageHandler& handler, const QStringList& messages)
{
    std::vector<LiveTranscriptEvent> events;
    for (const QString& m : messages)
        handler.handle(m, events);
    return events;
}

} // namespace

class TestLiveWireFormat : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        setLogSink([this](const QString& line) { m_log << line; });
    }
    void cleanupTestCase() { setLogSink({}); }
    void init() { m_log.clear(); }

    void framingArithmetic_data()
    {
        QTest::addColumn<int>("samples");
        QTest::addColumn<int>("frames");
        QTest::addColumn<int>("pending");
        QTest::newRow("2 samples: nothing") << 2 << 0 << 0;
        QTest::newRow("3 samples: one") << 3 << 0 << 2;
        QTest::newRow("6 samples: two") << 6 << 0 << 4;
        QTest::newRow("one frame exactly") << 3 * 1920 << 1 << 0;
        QTest::newRow("one second: 8 frames, 1 280 bytes wait") << 48000 << 8 << 1280;
    }

    void framingArithmetic()
    {
        QFETCH(int, samples);
        QFETCH(int, frames);
        QFETCH(int, pending);
        LivePcmFramer framer;
        const Framed out = frame(framer, std::vector<float>(std::size_t(samples), 0.25f));
        QCOMPARE(int(out.frames.size()), frames);
        QCOMPARE(int(out.pending), pending);
        for (const QByteArray& f : out.frames) {
            QCOMPARE(f.size(), LivePcmFramer::kFrameBytes);
            QCOMPARE(sampleAt(f, 0), std::int16_t(8191)); // 0.25 × 32767, truncated
        }
    }

    void decimationIsACentredBoxFilter()
    {
        // A ramp x[i] = i/10000: the mean of 3j−1, 3j, 3j+1 is x[3j]; the first
        // output has no left neighbour and is the mean of x[0] and x[1].
        std::vector<float> ramp(std::size_t{3} * 1920);
        for (std::size_t i = 0; i < ramp.size(); ++i)
            ramp[i] = float(i) / 10000.0f;
        LivePcmFramer framer;
        const Framed out = frame(framer, ramp);
        QCOMPARE(out.frames.size(), std::size_t(1));
        const QByteArray& f = out.frames.front();
        QCOMPARE(sampleAt(f, 0), LivePcmFramer::toPcm16((ramp[0] + ramp[1]) / 2.0f));
        for (int j : {1, 2, 100, 1919})
            QCOMPARE(sampleAt(f, j), LivePcmFramer::toPcm16((ramp[std::size_t(3 * j - 1)] +
                                                             ramp[std::size_t(3 * j)] +
                                                             ramp[std::size_t(3 * j + 1)]) /
                                                            3.0f));
        // Little-endian: 1/10000 × 3 × 32767 ≈ 9 in the low byte of sample 1.
        QCOMPARE(std::uint8_t(f[2]), std::uint8_t(sampleAt(f, 1) & 0xff));
        QCOMPARE(std::uint8_t(f[3]), std::uint8_t(std::uint16_t(sampleAt(f, 1)) >> 8));
    }

    void shortFramesWaitAcrossBuffers()
    {
        // The recorder's buffers of 4 096 samples give 1 365 samples each (one
        // sample of each buffer is dropped): the second completes a frame.
        LivePcmFramer framer;
        QCOMPARE(frame(framer, std::vector<float>(4096, 0.1f)).frames.size(), std::size_t(0));
        const Framed second = frame(framer, std::vector<float>(4096, -0.1f));
        QCOMPARE(second.frames.size(), std::size_t(1));
        QCOMPARE(second.pending, std::size_t(2 * (2 * 1365 - 1920)));
        const QByteArray& f = second.frames.front();
        QCOMPARE(sampleAt(f, 1364), LivePcmFramer::toPcm16(0.1f));
        QCOMPARE(sampleAt(f, 1365), LivePcmFramer::toPcm16(-0.1f));
        framer.clear();
        QCOMPARE(framer.pendingBytes(), std::size_t(0));
    }

    void clipping_data()
    {
        QTest::addColumn<float>("in");
        QTest::addColumn<int>("out");
        QTest::newRow("full scale") << 1.0f << 32767;
        QTest::newRow("over full scale") << 3.5f << 32767;
        QTest::newRow("under negative full scale") << -7.0f << -32767;
        QTest::newRow("negative half, truncated toward zero") << -0.5f << -16383;
        QTest::newRow("just under full scale") << 0.99999f << 32766;
        QTest::newRow("not a number") << std::numeric_limits<float>::quiet_NaN() << 32767;
        QTest::newRow("infinity") << std::numeric_limits<float>::infinity() << 32767;
        QTest::newRow("negative infinity") << -std::numeric_limits<float>::infinity() << -32767;
    }

    void clipping()
    {
        QFETCH(float, in);
        QFETCH(int, out);
        QCOMPARE(int(LivePcmFramer::toPcm16(in)), out);
        // Through the filter: a constant stays itself.
        LivePcmFramer framer;
        const Framed f = frame(framer, std::vector<float>(std::size_t{3} * 1920, in));
        if (!std::isnan(in) && !std::isinf(in))
            QCOMPARE(int(sampleAt(f.frames.front(), 7)), out);
    }

    void messages_data()
    {
        QTest::addColumn<QStringList>("messages");
        QTest::addColumn<std::vector<LiveTranscriptEvent>>("events");
        using E = std::vector<LiveTranscriptEvent>;

        QTest::newRow("token increments accumulate per speaker")
            << QStringList{R"({"tokens":[{"text":"Hel","speaker":"1"}]})",
                           R"({"tokens":[{"text":"lo","speaker":"1"}]})",
                           R"({"tokens":[{"text":"Hello world","speaker":"1"}]})"}
            << E{Partial{"Hel", "1"}, Partial{"Hello", "1"}, Partial{"Hello world", "1"}};
        QTest::newRow("two finals joined, the last one's times")
            << QStringList{R"({"tokens":[{"text":"Hi ","speaker":"1","is_final":true,"start_ms":0,"end_ms":300},)"
                           R"({"text":"there","speaker":"1","is_final":true,"start_ms":300,"end_ms":700}]})"}
            << E{Segment{"1", "Hi there", 300, 700, true}};
        QTest::newRow("short keys; end defaults to start")
            << QStringList{R"({"fw":[{"text":"Ja","spk":"2","f":true,"s":40}]})"}
            << E{Segment{"2", "Ja", 40, 40, true}};
        QTest::newRow("no speaker is speaker 0; <end> and empty texts skipped")
            << QStringList{R"({"tokens":[{"text":"a"},{"text":"<end>","is_final":true},{"text":""}]})"}
            << E{Partial{"a", "0"}};
        QTest::newRow("every partial of a message before its finals")
            << QStringList{R"({"tokens":[{"text":"Done.","speaker":"A","is_final":true},)"
                           R"({"text":"So","speaker":"B"},{"text":" then","speaker":"B"}]})"}
            << E{Partial{"So", "B"}, Partial{"So then", "B"}, Segment{"A", "Done.", 0, 0, true}};
        QTest::newRow("tokens that are not all objects: fw is used")
            << QStringList{R"({"tokens":[1,{"text":"x"}],"fw":[{"text":"y","spk":"3"}]})"}
            << E{Partial{"y", "3"}};
        QTest::newRow("neither list usable: nothing")
            << QStringList{R"({"tokens":"x","fw":[[]]})"} << E{};
        QTest::newRow("non-integer times take the defaults")
            << QStringList{R"({"tokens":[{"text":"t","is_final":true,"start_ms":1.5,"s":7,"end_ms":"9"}]})"}
            << E{Segment{"0", "t", 7, 7, true}};
        QTest::newRow("connected and session_started")
            << QStringList{R"({"type":"connected","transcription_id":"t-1"})",
                           R"({"type":"session_started"})"}
            << E{Connected{"t-1"}, Connected{""}};
        QTest::newRow("typed segment and its defaults")
            << QStringList{R"({"type":"segment","speaker":"0","text":"Hi","start_ms":5,"end_ms":9,"is_final":true})",
                           R"({"type":"segment"})"}
            << E{Segment{"0", "Hi", 5, 9, true}, Segment{"unknown", "", 0, 0, false}};
        QTest::newRow("typed partial passes through; text first")
            << QStringList{R"({"type":"partial","text":"Hel","speaker":"0"})",
                           R"({"type":"partial","text":"lo","speaker":"0"})"}
            << E{Partial{"Hel", "0"}, Partial{"lo", "0"}};
        QTest::newRow("speaker names, and a map that is not all strings")
            << QStringList{R"({"type":"speaker_names","names":{"1":"Ada","2":"Bo"}})",
                           R"({"type":"speaker_names","names":{"1":"Ada","2":3}})",
                           R"({"type":"speaker_names"})"}
            << E{SpeakerNames{{{"1", "Ada"}, {"2", "Bo"}}}};
        QTest::newRow("status and keepalive; empty ones say nothing")
            << QStringList{R"({"type":"status","status":"transcribing"})", R"({"type":"status"})",
                           R"({"type":"keepalive","status":""})",
                           R"({"type":"keepalive","status":"alive"})"}
            << E{Status{"transcribing"}, Status{"alive"}};
        QTest::newRow("errors: message, else detail, else a default")
            << QStringList{R"({"type":"error","message":"Quota exceeded","detail":"x"})",
                           R"({"type":"error","detail":"Bad audio"})", R"({"type":"error"})"}
            << E{Error{"Quota exceeded"}, Error{"Bad audio"}, Error{"Unknown error"}};
        QTest::newRow("finished, and only when true")
            << QStringList{R"({"finished":true})", R"({"finished":false})", R"({"finished":1})"}
            << E{Status{"completed"}};
        QTest::newRow("a type wins over tokens")
            << QStringList{R"({"type":"keepalive","status":"ok","tokens":[{"text":"x"}]})"}
            << E{Status{"ok"}};
    }

    void messages()
    {
        QFETCH(QStringList, messages);
        QFETCH(std::vector<LiveTranscriptEvent>, events);
        LiveMessageHandler handler;
        QCOMPARE(handleAll(handler, messages), events);
    }

    void accumulationSurvivesMessagesAndEndsWithAFinal()
    {
        LiveMessageHandler handler;
        const auto events =
            handleAll(handler, {R"({"fw":[{"text":"Hel","spk":"1"},{"text":"Why","spk":"2"}]})",
                                R"({"fw":[{"text":"lo","spk":"1"}]})",
                                R"({"fw":[{"text":"Hello.","spk":"1","f":true}]})",
                                R"({"fw":[{"text":"Next","spk":"1"}]})"});
        QCOMPARE(events, (std::vector<LiveTranscriptEvent>{
                             Partial{"Hel", "1"}, Partial{"Why", "2"}, Partial{"Hello", "1"},
                             Segment{"1", "Hello.", 0, 0, true}, Partial{"Next", "1"}}));
        // Speaker 2 is still open; reset() forgets it.
        QCOMPARE(handler.partialAccBySpeaker().value(QStringLiteral("2")), QStringLiteral("Why"));
        handler.reset();
        QVERIFY(handler.partialAccBySpeaker().isEmpty());
    }

    void accumulationStaysBounded()
    {
        // Pieces that never extend the text, under ever new and very long labels.
        LiveMessageHandler handler;
        std::vector<LiveTranscriptEvent> events;
        const QString label = QStringLiteral("s").repeated(500);
        for (int i = 0; i < 3000; ++i)
            handler.handle(
                QStringLiteral(R"({"tokens":[{"text":"w%1 ","speaker":"%2"}]})").arg(i).arg(label),
                events);
        for (int i = 0; i < 100; ++i)
            handler.handle(QStringLiteral(R"({"tokens":[{"text":"x","speaker":"%1"}]})").arg(i),
                           events);
        QCOMPARE(handler.partialAccBySpeaker().size(), 64);
        qsizetype longest = 0;
        for (auto it = handler.partialAccBySpeaker().cbegin();
             it != handler.partialAccBySpeaker().cend(); ++it) {
            QVERIFY(it.key().size() <= 200);
            longest = std::max(longest, it.value().size());
        }
        QCOMPARE(longest, 8192);
        // Once the text can no longer grow, further pieces say nothing.
        const auto* last = std::get_if<Partial>(&events.at(events.size() - 101));
        QVERIFY(last);
        QCOMPARE(last->text.size(), 8192);
        QCOMPARE(last->speaker, label.left(200));
        QVERIFY(events.size() < 3000);
    }

    void unreadableMessagesAreLoggedNotDelivered()
    {
        LiveMessageHandler handler;
        const QString longText = QStringLiteral("x").repeated(300);
        const auto events =
            handleAll(handler, {longText, QStringLiteral("[1,2]"), QStringLiteral(R"({"hello":1})"),
                                QStringLiteral(R"({"type":"mystery"})")});
        QVERIFY(events.empty());
        QCOMPARE(m_log.size(), 4);
        QCOMPARE(m_log.at(0),
                 QStringLiteral("🌐 ⚠️ Unparseable server message: ") + longText.left(200));
        QCOMPARE(m_log.at(1), QStringLiteral("🌐 ⚠️ Unparseable server message: [1,2]"));
        QCOMPARE(m_log.at(2),
                 QStringLiteral(R"(🌐 ⚠️ Unrecognized server message: {"hello":1})"));
        QCOMPARE(m_log.at(3), QStringLiteral("🌐 ⚠️ Unknown message type: mystery"));
    }

private:
    QStringList m_log;
};

QTEST_GUILESS_MAIN(TestLiveWireFormat)
#include "tst_livewireformat.moc"
