// The local service's upload parser: it must find the part boundaries
// wherever the network happens to split the body, store exactly the file's
// bytes, and refuse bodies without exactly one "file" part.

#include "localservice/multipartreceiver.h"

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

using sorv::local::MultipartReceiver;

namespace {

QByteArray part(const QByteArray& boundary, const QByteArray& disposition, const QByteArray& data)
{
    return "--" + boundary + "\r\nContent-Disposition: form-data; " + disposition +
           "\r\nContent-Type: application/octet-stream\r\n\r\n" + data + "\r\n";
}

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

class TestMultipartReceiver : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void storesTheFileWhereverTheBodyIsSplit()
    {
        const QByteArray boundary = "sorvelandrix-ABC";
        // Data that contains near-misses of the delimiter.
        QByteArray data(300'000, Qt::Uninitialized);
        for (char& c : data)
            c = char(QRandomGenerator::global()->bounded(256));
        data.insert(1000, "\r\n--sorvelandrix-AB");
        data.insert(5000, "\r\n--sorvelandrix-");
        data.append("\r\n");
        const QByteArray body = "preamble\r\n" + part(boundary, R"(name="note")", "hello") +
                                part(boundary, R"(name="file"; filename="rec.wav")", data) + "--" +
                                boundary + "--\r\nepilogue";

        QTemporaryDir dir;
        for (const int maxPiece : {1, 7, 64, 4096, 1 << 20}) {
            const QString dest = dir.filePath(QStringLiteral("out-%1").arg(maxPiece));
            MultipartReceiver receiver(boundary, dest);
            qsizetype at = 0;
            while (at < body.size()) {
                const qsizetype n = std::min<qsizetype>(
                    body.size() - at, 1 + QRandomGenerator::global()->bounded(maxPiece));
                QVERIFY2(receiver.feed(body.mid(at, n)), qPrintable(receiver.errorString()));
                at += n;
            }
            QVERIFY2(receiver.finish(), qPrintable(receiver.errorString()));
            QCOMPARE(receiver.filename(), QStringLiteral("rec.wav"));
            QCOMPARE(receiver.fileBytes(), qint64(data.size()));
            QCOMPARE(readAll(dest), data);
        }
    }

    void refusesMalformedBodies_data()
    {
        const QByteArray b = "bnd";
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("error");
        QTest::newRow("no file part") << part(b, R"(name="other")", "x") + "--bnd--\r\n"
                                      << "Expected exactly one \"file\" part";
        QTest::newRow("two file parts")
            << part(b, R"(name="file"; filename="a")", "1") +
                   part(b, R"(name="file"; filename="b")", "2") + "--bnd--\r\n"
            << "Expected exactly one \"file\" part, got more";
        QTest::newRow("file without filename") << part(b, R"(name="file")", "1") + "--bnd--\r\n"
                                               << "The \"file\" part has no filename";
        QTest::newRow("cut off") << part(b, R"(name="file"; filename="a")", "123")
                                 << "The multipart body ends before its closing delimiter";
        QTest::newRow("not multipart at all") << QByteArray("just text") << "ends before";
    }

    void refusesMalformedBodies()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, error);
        QTemporaryDir dir;
        const QString dest = dir.filePath(QStringLiteral("out"));
        MultipartReceiver receiver("bnd", dest);
        receiver.feed(body);
        QVERIFY(!receiver.finish());
        QVERIFY2(receiver.errorString().contains(error), qPrintable(receiver.errorString()));
        QVERIFY(!QFile::exists(dest)); // nothing half-written is left
    }

    void boundaryFromContentType()
    {
        QCOMPARE(MultipartReceiver::boundaryFromContentType("multipart/form-data; boundary=abc"),
                 QByteArray("abc"));
        QCOMPARE(
            MultipartReceiver::boundaryFromContentType(R"(multipart/form-data; boundary="a b")"),
            QByteArray("a b"));
        QVERIFY(MultipartReceiver::boundaryFromContentType("application/json").isEmpty());
        QVERIFY(MultipartReceiver::boundaryFromContentType("multipart/form-data").isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestMultipartReceiver)
#include "tst_multipartreceiver.moc"
