// Conversion of a capture stream that does not arrive in the common format:
// channels averaged, the rate changed without seams between buffers.

#include "audio/sampleconverter.h"
#include "support/toneprobe.h"

#include <QTest>

#include <cmath>

using namespace sorv;

namespace {

std::vector<float> tone(double rate, double frequency, size_t frames, float amplitude)
{
    std::vector<float> out(frames);
    for (size_t i = 0; i < frames; ++i)
        out[i] = amplitude * float(std::sin(2.0 * M_PI * frequency * double(i) / rate));
    return out;
}

} // namespace

class TestSampleConverter : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void passesCommonFormatUnchanged();
    void averagesChannels();
    void continuousStreamHasNoSeams();
};

void TestSampleConverter::passesCommonFormatUnchanged()
{
    SampleConverter c(48000.5, 1);
    QVERIFY(c.isPassThrough());
    const std::vector<float> in{0.1f, -0.5f, 0.9f};
    QCOMPARE(c.convert(in), in);
    QVERIFY(c.flush().empty());
}

void TestSampleConverter::averagesChannels()
{
    SampleConverter c(48000.0, 2);
    QVERIFY(!c.isPassThrough());
    QCOMPARE(c.convert(std::vector<float>{1.0f, 0.0f, 0.5f, -0.5f, 0.2f, 0.4f}),
             (std::vector<float>{0.5f, 0.0f, 0.3f}));
}

void TestSampleConverter::continuousStreamHasNoSeams()
{
    // A 44.1 kHz stereo tone (the same on both channels) arrives in buffers
    // of odd sizes. Converted buffer by buffer it must come out as one
    // continuous 48 kHz tone: the right length, the same frequency and
    // level, and no jump at any buffer edge.
    const size_t frames = 44100;
    const auto mono = tone(44100.0, 1000.0, frames, 0.5f);
    std::vector<float> stereo(frames * 2);
    for (size_t i = 0; i < frames; ++i)
        stereo[2 * i] = stereo[2 * i + 1] = mono[i];

    SampleConverter c(44100.0, 2);
    std::vector<float> out;
    for (size_t at = 0; at < frames;) {
        const size_t n = std::min<size_t>(frames - at, 777 + at % 311);
        c.convert(std::span<const float>(stereo).subspan(at * 2, n * 2), out);
        at += n;
    }
    const auto rest = c.flush();
    out.insert(out.end(), rest.begin(), rest.end());

    QVERIFY2(std::abs(qint64(out.size()) - 48000) <= 2, qPrintable(QString::number(out.size())));
    // Skip the resampler's settling at both ends.
    const auto middle = std::span<const float>(out).subspan(1000, out.size() - 2000);
    QVERIFY(std::fabs(test::toneAmplitude(middle, 1000.0) - 0.5) < 0.01);
    QVERIFY(test::toneAmplitude(middle, 1100.0) < 0.01);
    // A 1 kHz tone at 48 kHz moves at most 2π·1000/48000·0.5 ≈ 0.066 per sample.
    for (size_t i = 1; i < middle.size(); ++i)
        QVERIFY2(std::fabs(middle[i] - middle[i - 1]) < 0.07,
                 qPrintable(QStringLiteral("jump at %1").arg(i)));
}

QTEST_GUILESS_MAIN(TestSampleConverter)
#include "tst_sampleconverter.moc"
