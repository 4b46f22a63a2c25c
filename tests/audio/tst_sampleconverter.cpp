// Conversion of a capture stream that does not arrive in the common format.

#include "audio/sampleconverter.h"

#include <QTest>

#include <cmath>

using namespace sorv;

class TestSampleConverter : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void outputLength_data();
    void outputLength();
    void passesCommonFormatUnchanged();
    void averagesChannelsAndInterpolates();
};

void TestSampleConverter::outputLength_data()
{
    QTest::addColumn<double>("rate");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("frames");
    QTest::addColumn<int>("expected");
    QTest::newRow("44.1 kHz microphone") << 44100.0 << 1 << 4096 << 4458;
    QTest::newRow("24 kHz doubles") << 24000.0 << 1 << 480 << 960;
    QTest::newRow("within 1 Hz is not resampled") << 48000.5 << 1 << 480 << 480;
    QTest::newRow("stereo 48 kHz only downmixes") << 48000.0 << 2 << 480 << 480;
}

void TestSampleConverter::outputLength()
{
    QFETCH(double, rate);
    QFETCH(int, channels);
    QFETCH(int, frames);
    QFETCH(int, expected);
    const SampleConverter c(rate, static_cast<std::uint32_t>(channels));
    const std::vector<float> in(static_cast<size_t>(frames * channels), 0.25f);
    const auto out = c.convert(in);
    QCOMPARE(static_cast<int>(out.size()), expected);
    QVERIFY(static_cast<int>(out.size()) <= c.outputCapacity(frames));
    for (float x : out)
        QCOMPARE(x, 0.25f); // a constant stays constant
}

void TestSampleConverter::passesCommonFormatUnchanged()
{
    const SampleConverter c(48000.0, 1);
    QVERIFY(c.isPassThrough());
    const std::vector<float> in{0.1f, -0.5f, 0.9f};
    QCOMPARE(c.convert(in), in);
}

void TestSampleConverter::averagesChannelsAndInterpolates()
{
    // Stereo at 24 kHz: frames (1, 0) and (0, 0) average to 0.5 and 0;
    // doubling the rate puts their midpoint between them.
    const SampleConverter c(24000.0, 2);
    QVERIFY(!c.isPassThrough());
    const auto out = c.convert(std::vector<float>{1.0f, 0.0f, 0.0f, 0.0f});
    QCOMPARE(out.size(), size_t(4));
    QCOMPARE(out[0], 0.5f);
    QCOMPARE(out[1], 0.25f);
    QCOMPARE(out[2], 0.0f);
    QCOMPARE(out[3], 0.0f); // the last input sample is held, never read past
}

QTEST_GUILESS_MAIN(TestSampleConverter)
#include "tst_sampleconverter.moc"
