// The MP4 writer on its own, with synthetic timestamps (no screen, no real
// time): the audio follows its CLOCK_MONOTONIC stamps when the audio clock
// drifts or a buffer goes missing, and the rewrite puts the index first even
// when the space reserved for it is too small; frames converted elsewhere
// are encoded from where they lie.

#include "mediafile.h"
#include "video/capturearea.h"
#include "video/mp4writer.h"
#include "video/yuvframe.h"

#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using namespace sorv;
using namespace sorv::test;

namespace {

constexpr int kFrames = 4096;
constexpr double kRate = 48000.0;

} // namespace

class TestMp4Writer : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void audioFollowsItsTimestamps_data();
    void audioFollowsItsTimestamps();
    void indexGoesFirstEvenWhenReservationFallsShort();
    void convertedFramesAreReadInPlaceBeforeTheCallReturns();
    void screenColoursBecomeBt709LimitedRange();
};

void TestMp4Writer::audioFollowsItsTimestamps_data()
{
    QTest::addColumn<double>("clockRatio"); // stamped seconds per sample-count second
    QTest::addColumn<int>("lostBuffer");    // a buffer (without a click) never delivered, or -1
    QTest::newRow("steady") << 1.0 << -1;
    // 0.3 %: 36 ms apart after 12 s if the samples were simply laid end to end.
    QTest::newRow("audio clock 0.3 % slow") << 1.003 << -1;
    QTest::newRow("audio clock 0.3 % fast") << 0.997 << -1;
    QTest::newRow("a buffer lost") << 1.0 << 40;
}

void TestMp4Writer::audioFollowsItsTimestamps()
{
    QFETCH(double, clockRatio);
    QFETCH(int, lostBuffer);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("drift.mp4"));
    Mp4Writer w;
    QString error;
    QVERIFY2(w.open(path, Mp4Writer::defaultSettings(QSize(320, 240)), &error), qPrintable(error));

    // 12 s: a click at the first sample of every 12th buffer (~1 s apart),
    // black frames at 30 per second, all stamped by the same clock.
    const int buffers = int(12.0 * kRate / kFrames);
    std::vector<double> clickStamps;
    std::vector<float> samples(kFrames);
    const std::vector<std::uint8_t> white(size_t{320} * 240 * 4, 0xff);
    std::int64_t nextFrameNs = 0;
    for (int b = 0; b < buffers; ++b) {
        const auto stampNs = std::int64_t(double(b) * kFrames / kRate * clockRatio * 1e9);
        while (nextFrameNs <= stampNs) {
            QVERIFY(w.writeBlackVideo(nextFrameNs, &error));
            nextFrameNs += 1'000'000'000 / 30;
        }
        if (b % 12 == 3) { // a white frame with the click
            QVERIFY(w.writeVideo(white.data(), QSize(320, 240), 320 * 4, QRect(0, 0, 320, 240),
                                 stampNs, &error));
            nextFrameNs = stampNs + 1'000'000'000 / 30;
        }
        std::fill(samples.begin(), samples.end(), 0.0f);
        if (b % 12 == 3) {
            for (int i = 0; i < 480; ++i)
                samples[size_t(i)] = 0.8f * float(std::sin(2 * M_PI * 3000.0 * i / kRate));
            clickStamps.push_back(double(stampNs) / 1e9);
        }
        if (b == lostBuffer)
            continue;
        QVERIFY2(w.writeAudio(samples.data(), kFrames, stampNs, &error), qPrintable(error));
    }
    QVERIFY2(w.finish(&error), qPrintable(error));
    const QString plain = dir.filePath(QStringLiteral("plain.mp4"));
    QVERIFY2(Mp4Writer::remuxWithIndexFirst(path, plain, 0, &error), qPrintable(error));

    // Both the file as recorded (fragmented) and the rewritten one.
    for (const QString& file : {path, plain}) {
        const MediaFile m = MediaFile::read(file, true);
        QVERIFY(m.opened);
        QCOMPARE(m.framePts.front(), 0.0);
        const std::vector<double> clicks = m.clickTimes(0.4f, 0.5);
        QCOMPARE(clicks.size(), clickStamps.size());
        const std::vector<double> flashes = m.flashTimes();
        QCOMPARE(flashes.size(), size_t(buffers / 12 + (buffers % 12 > 3 ? 1 : 0)));
        double fromStamp = 0.0;
        double fromPicture = 0.0;
        for (size_t k = 0; k < clicks.size(); ++k) {
            fromStamp = std::max(fromStamp, std::fabs(clicks[k] - clickStamps[k]));
            fromPicture = std::max(fromPicture, std::fabs(clicks[k] - flashes[k]));
        }
        qInfo("%s: clicks at most %.1f ms from their timestamps, %.1f ms from their pictures",
              qPrintable(file.section(QLatin1Char('/'), -1)), fromStamp * 1e3, fromPicture * 1e3);
        // Compensation starts at 20 ms of drift.
        QVERIFY(fromStamp <= 0.025);
        QVERIFY(fromPicture <= 0.025);
        if (clockRatio == 1.0)
            QVERIFY(fromPicture <= 0.001);
    }
}

void TestMp4Writer::indexGoesFirstEvenWhenReservationFallsShort()
{
    QTemporaryDir dir;
    const QString fragmented = dir.filePath(QStringLiteral("f.mp4"));
    Mp4Writer w;
    QString error;
    QVERIFY(w.open(fragmented, Mp4Writer::defaultSettings(QSize(320, 240)), &error));
    std::vector<float> silence(kFrames, 0.0f);
    for (int i = 0; i < 90; ++i) {
        const std::int64_t t = std::int64_t(i) * 1'000'000'000 / 30;
        QVERIFY(w.writeBlackVideo(t, &error));
        if (i % 3 == 0)
            QVERIFY(w.writeAudio(silence.data(), 1600, t, &error));
    }
    const Mp4Writer::Statistics stats = w.statistics();
    QVERIFY(w.finish(&error));
    QVERIFY(MediaFile::read(fragmented, false).boxes.size() > 3); // moof after moof

    for (const std::int64_t packets : {stats.videoPackets + stats.audioPackets, std::int64_t(1)}) {
        const QString plain = dir.filePath(QStringLiteral("plain-%1.mp4").arg(packets));
        QVERIFY2(Mp4Writer::remuxWithIndexFirst(fragmented, plain, packets, &error),
                 qPrintable(error));
        const MediaFile m = MediaFile::read(plain, true);
        QVERIFY(m.opened);
        QCOMPARE(m.boxes[0], QStringLiteral("ftyp"));
        QCOMPARE(m.boxes[1], QStringLiteral("moov"));
        QVERIFY(std::find(m.boxes.begin(), m.boxes.end(), QStringLiteral("moof")) == m.boxes.end());
        QCOMPARE(m.framePts.size(), size_t(90));
        QCOMPARE(m.decodeErrors, 0);
    }

    // A recording whose sound ended at 2 s: the picture ends there too, the
    // sound is all kept.
    const QString trimmed = dir.filePath(QStringLiteral("trimmed.mp4"));
    QVERIFY2(Mp4Writer::remuxWithIndexFirst(fragmented, trimmed, 0, &error, 2'000'000'000),
             qPrintable(error));
    const MediaFile m = MediaFile::read(trimmed, true);
    QCOMPARE(m.framePts.size(), size_t(60));
    QCOMPARE(m.decodeErrors, 0);
    QVERIFY2(std::fabs(m.videoEnd - 2.0) < 0.001, qPrintable(QString::number(m.videoEnd)));
    QVERIFY2(m.audioEnd > 2.8, qPrintable(QString::number(m.audioEnd)));
}

void TestMp4Writer::convertedFramesAreReadInPlaceBeforeTheCallReturns()
{
    // A 200×100 picture, red on the left half and white on the right (RGB
    // order in memory, as some desktops send it), letterboxed into a 320×240
    // frame; after each call the frame is overwritten with white, as the
    // next picture would, and the video must not show it.
    const QSize video(320, 240);
    const QSize picture(200, 100);
    std::vector<std::uint8_t> rgb(std::size_t(picture.width()) * picture.height() * 4);
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            std::uint8_t* p = rgb.data() + (std::size_t(y) * picture.width() + x) * 4;
            const bool red = x < picture.width() / 2;
            p[0] = 255;
            p[1] = p[2] = red ? 0 : 255;
        }
    const Yuv420Layout layout = Yuv420Layout::forSize(video);
    std::vector<std::uint8_t> frame(layout.bytes);
    const QRect destination = letterboxRect(picture, video);
    QVERIFY(destination.top() > 0);

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("lent.mp4"));
    Mp4Writer w;
    QString error;
    QVERIFY(w.open(path, Mp4Writer::defaultSettings(video), &error));
    RgbToYuv converter;
    for (int i = 0; i < 30; ++i) {
        fillBlack(layout.planes(frame.data()), layout.linesize, video);
        QVERIFY2(converter.convert(rgb.data(), picture, picture.width() * 4, RgbToYuv::Order::Rgb0,
                                   layout.planes(frame.data()), layout.linesize, destination,
                                   &error),
                 qPrintable(error));
        QVERIFY2(
            w.writeVideoYuv(frame.data(), layout, std::int64_t(i) * 1'000'000'000 / 30, &error),
            qPrintable(error));
        std::fill(frame.begin(), frame.end(), std::uint8_t(235));
    }
    // A frame of another size is refused, and the file goes on.
    QVERIFY(!w.writeVideoYuv(frame.data(), Yuv420Layout::forSize(QSize(160, 120)), 2'000'000'000,
                             &error));
    QVERIFY(error.contains(QStringLiteral("160×120")));
    QVERIFY(w.finish(&error));

    const QRect band(0, 0, video.width(), destination.top());
    const QRect redPart(destination.left() + 10, destination.top() + 10, 60, 60);
    const QRect whitePart(destination.right() - 70, destination.top() + 10, 60, 60);
    const MediaFile m = MediaFile::read(path, true, band, 0.0, {redPart, whitePart});
    QVERIFY(m.opened);
    QCOMPARE(m.framePts.size(), size_t(30));
    for (std::size_t i = 0; i < m.framePts.size(); ++i) {
        // BT.709 limited range: black 16, pure red 63, white 235.
        QVERIFY2(std::abs(m.frameLuma[i] - 16) < 4, qPrintable(QString::number(m.frameLuma[i])));
        QVERIFY2(std::abs(m.moreLuma[i][0] - 63) < 6,
                 qPrintable(QString::number(m.moreLuma[i][0])));
        QVERIFY2(std::abs(m.moreLuma[i][1] - 235) < 4,
                 qPrintable(QString::number(m.moreLuma[i][1])));
    }
}

void TestMp4Writer::screenColoursBecomeBt709LimitedRange()
{
    // A 7×5 picture (odd both ways: the last column and row pair with
    // themselves) of one colour, in both byte orders, placed at (2, 2) of a
    // 12×10 frame whose other samples must stay as they were.
    struct Colour {
        int r, g, b, y, u, v;
    };
    const Colour colours[] = {{255, 0, 0, 63, 102, 240}, {0, 255, 0, 173, 42, 26},
                              {0, 0, 255, 32, 240, 118}, {255, 255, 255, 235, 128, 128},
                              {0, 0, 0, 16, 128, 128},   {128, 128, 128, 126, 128, 128}};
    const QSize picture(7, 5);
    const QRect destination(QPoint(2, 2), picture);
    const Yuv420Layout layout = Yuv420Layout::forSize(QSize(12, 10));
    RgbToYuv converter;
    for (const Colour& c : colours)
        for (const auto order : {RgbToYuv::Order::Bgr0, RgbToYuv::Order::Rgb0}) {
            std::vector<std::uint8_t> pixels(std::size_t(picture.width() * picture.height() * 4));
            for (std::size_t i = 0; i < pixels.size(); i += 4) {
                pixels[i] = std::uint8_t(order == RgbToYuv::Order::Bgr0 ? c.b : c.r);
                pixels[i + 1] = std::uint8_t(c.g);
                pixels[i + 2] = std::uint8_t(order == RgbToYuv::Order::Bgr0 ? c.r : c.b);
            }
            std::vector<std::uint8_t> frame(layout.bytes, 7);
            const auto planes = layout.planes(frame.data());
            QString error;
            QVERIFY(converter.convert(pixels.data(), picture, picture.width() * 4, order, planes,
                                      layout.linesize, destination, &error));
            const auto at = [&](int plane, int x, int y) {
                return int(planes[std::size_t(plane)][y * layout.linesize[std::size_t(plane)] + x]);
            };
            const QString what = QStringLiteral("%1,%2,%3 %4")
                                     .arg(c.r)
                                     .arg(c.g)
                                     .arg(c.b)
                                     .arg(order == RgbToYuv::Order::Bgr0 ? "BGR" : "RGB");
            for (int y = 0; y < 10; ++y)
                for (int x = 0; x < 12; ++x) {
                    const int expected = destination.contains(x, y) ? c.y : 7;
                    QVERIFY2(std::abs(at(0, x, y) - expected) <= 1,
                             qPrintable(
                                 what +
                                 QStringLiteral(" Y at %1,%2: %3").arg(x).arg(y).arg(at(0, x, y))));
                }
            for (int y = 1; y < 4; ++y)
                for (int x = 1; x < 5; ++x) {
                    QVERIFY2(std::abs(at(1, x, y) - c.u) <= 1 && std::abs(at(2, x, y) - c.v) <= 1,
                             qPrintable(what + QStringLiteral(" Cb Cr at %1,%2: %3 %4")
                                                   .arg(x)
                                                   .arg(y)
                                                   .arg(at(1, x, y))
                                                   .arg(at(2, x, y))));
                }
            QCOMPARE(at(1, 0, 0), 7);
            QCOMPARE(at(2, 5, 4), 7);
        }
}

QTEST_GUILESS_MAIN(TestMp4Writer)
#include "tst_mp4writer.moc"
