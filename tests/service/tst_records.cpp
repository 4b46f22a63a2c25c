// Decoding of the service's records and the request rules that need no peer.

#include "service/recordingformat.h"
#include "service/records.h"
#include "service/requestrules.h"

#include <QJsonDocument>
#include <QtTest>

using namespace sorv;

namespace {
QJsonValue parse(const QByteArray& text)
{
    const QJsonDocument doc = QJsonDocument::fromJson(text);
    return doc.isArray() ? QJsonValue(doc.array()) : QJsonValue(doc.object());
}
} // namespace

class TestRecords : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void meetingFields_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("decodes");
        QTest::addColumn<QString>("errorMentions");
        const QByteArray base =
            R"("id":"m1","meeting_code":"abc","platform":"zoom","status":"joining")";
        QTest::newRow("required only") << "{" + base + "}" << true << "";
        QTest::newRow("optionals null")
            << "{" + base + R"(,"meeting_url":null,"bot_name":null,"ended_at":null})" << true << "";
        QTest::newRow("missing required")
            << QByteArray(R"({"id":"m1","platform":"zoom","status":"joining"})") << false
            << "meeting_code";
        QTest::newRow("number for required string")
            << QByteArray(R"({"id":7,"meeting_code":"abc","platform":"zoom","status":"x"})")
            << false << "id";
        QTest::newRow("number for optional string")
            << "{" + base + R"(,"bot_name":5})" << false << "bot_name";
        QTest::newRow("not an object") << QByteArray("[1]") << false << "object";
    }
    void meetingFields()
    {
        QFETCH(QByteArray, json);
        QFETCH(bool, decodes);
        QFETCH(QString, errorMentions);
        QString error;
        const std::optional<Meeting> m = Meeting::fromJson(parse(json), &error);
        QCOMPARE(m.has_value(), decodes);
        if (decodes)
            QVERIFY(!m->bot_name && !m->ended_at);
        else
            QVERIFY2(error.contains(errorMentions), qPrintable(error));
    }

    void recordingFields()
    {
        const QByteArray json = R"({"id":"r1","original_filename":"a.wav","status":"completed",
            "duration_ms":61000,"batch_index":2,"speaker_list":[{"name":"Ann","color":"#f00"}],"ai_title":null})";
        const std::optional<Recording> r = Recording::fromJson(parse(json));
        QVERIFY(r);
        QCOMPARE(r->duration_ms, std::optional<qint64>(61000));
        QCOMPARE(r->batch_index, std::optional<qint64>(2));
        QVERIFY(!r->ai_title && !r->created_at);
        QCOMPARE(r->speaker_list->size(), 1);
        QCOMPARE(r->speaker_list->at(0).color, QStringLiteral("#f00"));
    }

    void recordingRejects_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("errorMentions");
        QTest::newRow("fractional duration")
            << QByteArray(R"({"id":"r","original_filename":"f","status":"s","duration_ms":1.5})")
            << "duration_ms";
        QTest::newRow("duration as text")
            << QByteArray(R"({"id":"r","original_filename":"f","status":"s","duration_ms":"100"})")
            << "duration_ms";
        QTest::newRow("speaker without color")
            << QByteArray(
                   R"({"id":"r","original_filename":"f","status":"s","speaker_list":[{"name":"A"}]})")
            << "speaker_list[0].color";
        QTest::newRow("speakers not an array")
            << QByteArray(R"({"id":"r","original_filename":"f","status":"s","speaker_list":{}})")
            << "speaker_list";
    }
    void recordingRejects()
    {
        QFETCH(QByteArray, json);
        QFETCH(QString, errorMentions);
        QString error;
        QVERIFY(!Recording::fromJson(parse(json), &error));
        QVERIFY2(error.contains(errorMentions), qPrintable(error));
    }

    void envelopeNeedsItemsAndFailsAsAWhole()
    {
        QVERIFY(!RecordingsEnvelope::fromJson(parse(R"({"total":3})")));
        QVERIFY(!RecordingsEnvelope::fromJson(
            parse(R"({"items":[{"id":"ok","original_filename":"f","status":"s"},{"id":1}]})")));
        const auto env =
            RecordingsEnvelope::fromJson(parse(R"({"items":[],"total":null,"limit":200})"));
        QVERIFY(env && env->items.isEmpty() && !env->total && env->limit == 200);
        // An array of recordings is not an envelope, and the reverse.
        QVERIFY(!RecordingsEnvelope::fromJson(parse("[]")));
        QVERIFY(!recordingsFromJson(parse(R"({"items":[]})")));
    }

    void passkeyDates_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QDateTime>("expected"); // invalid: must fail
        const QDateTime base(QDate(2025, 3, 4), QTime(5, 6, 7), Qt::UTC);
        QTest::newRow("utc") << QStringLiteral("2025-03-04T05:06:07Z") << base;
        QTest::newRow("fraction") << QStringLiteral("2025-03-04T05:06:07.250Z")
                                  << base.addMSecs(250);
        QTest::newRow("microseconds")
            << QStringLiteral("2025-03-04T05:06:07.123456Z") << base.addMSecs(123);
        QTest::newRow("offset") << QStringLiteral("2025-03-04T07:06:07+02:00") << base;
        QTest::newRow("bare date") << QStringLiteral("2025-03-04") << QDateTime();
        QTest::newRow("no zone") << QStringLiteral("2025-03-04T05:06:07") << QDateTime();
        QTest::newRow("impossible day") << QStringLiteral("2025-02-30T05:06:07Z") << QDateTime();
    }
    void passkeyDates()
    {
        QFETCH(QString, text);
        QFETCH(QDateTime, expected);
        QString error;
        const std::optional<QDateTime> d = decodePasskeyDate(text, &error);
        if (expected.isValid()) {
            QVERIFY2(d, qPrintable(error));
            QCOMPARE(*d, expected);
        } else {
            QVERIFY(!d);
            QCOMPARE(error, QStringLiteral("Cannot decode date string ") + text);
        }
    }

    // A good record is the passkeys' own test's, from the local service.
    void passkeyRecordRejects()
    {
        QString error;
        QVERIFY(!Passkey::fromJson(parse(R"({"id":3,"created_at":"2025-01-01"})"), &error));
        QCOMPARE(error, QStringLiteral("Cannot decode date string 2025-01-01"));
        QVERIFY(!Passkey::fromJson(
            parse(R"({"id":3,"created_at":"2025-01-01T00:00:00Z","transports":["usb",1]})")));
    }

    void endpointUrls_data()
    {
        QTest::addColumn<QString>("origin");
        QTest::addColumn<QString>("url"); // empty: invalid
        QTest::newRow("leading slashes too")
            << QStringLiteral("//https://a.example/") << "https://a.example/api/meetings";
        QTest::newRow("with port and path") << QStringLiteral("http://127.0.0.1:8765/base/")
                                            << "http://127.0.0.1:8765/base/api/meetings";
        QTest::newRow("only whitespace is kept") << QStringLiteral(" https://a.example") << "";
        QTest::newRow("space in host") << QStringLiteral("https://a b.example") << "";
        QTest::newRow("no scheme") << QStringLiteral("a.example") << "";
        QTest::newRow("empty") << QStringLiteral("") << "";
    }
    void endpointUrls()
    {
        QFETCH(QString, origin);
        QFETCH(QString, url);
        const std::optional<QUrl> result = endpointUrl(origin, QStringLiteral("/api/meetings"));
        QCOMPARE(result ? result->toString() : QString(), url);
    }

    void displayFormats_data()
    {
        QTest::addColumn<qint64>("ms");
        QTest::addColumn<QString>("duration");
        QTest::newRow("seconds truncate") << qint64(61999) << "1:01";
        QTest::newRow("just under an hour") << qint64(3599999) << "59:59";
        QTest::newRow("an hour") << qint64(3600000) << "1:00:00";
    }
    void displayFormats()
    {
        QFETCH(qint64, ms);
        QFETCH(QString, duration);
        QCOMPARE(formatDurationMs(ms), duration);
    }
};

QTEST_GUILESS_MAIN(TestRecords)
#include "tst_records.moc"
