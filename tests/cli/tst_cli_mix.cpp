// `sorvelandrix mix` as a user runs it: real files in, a real WAV out, clear
// refusals for inputs it cannot use.

#include "audio/audioengine.h"
#include "audio/mixer.h"
#include "support/isolatedenvironment.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <sndfile.h>

#include <cmath>

using namespace sorv;

namespace {

QString cli()
{
    return test::buildDirectory() + QStringLiteral("/src/cli/sorvelandrix");
}

bool writeWav(const QString& path, int rate, int channels, const std::vector<float>& interleaved)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!f)
        return false;
    sf_writef_float(f, interleaved.data(), sf_count_t(interleaved.size()) / channels);
    sf_close(f);
    return true;
}

std::vector<float> readWav(const QString& path, SF_INFO& info)
{
    info = {};
    SNDFILE* f = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!f)
        return {};
    std::vector<float> out(size_t(info.frames * info.channels));
    sf_readf_float(f, out.data(), info.frames);
    sf_close(f);
    return out;
}

struct Run {
    int status;
    QString out;
    QString err;
};

Run run(const QStringList& args)
{
    QProcess p;
    p.start(cli(), args);
    p.waitForFinished(60000);
    return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

std::vector<float> tone(size_t frames, float freq, float amp, int channels = 1)
{
    std::vector<float> out(frames * size_t(channels));
    for (size_t i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c)
            out[i * size_t(channels) + size_t(c)] =
                amp * std::sin(2.0f * float(M_PI) * freq * float(i) / 48000.0f);
    return out;
}

} // namespace

class TestCliMix : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void mixesLikeARecording();
    void refusesInputsItCannotUse_data();
    void refusesInputsItCannotUse();
};

void TestCliMix::mixesLikeARecording()
{
    QTemporaryDir dir;
    // Two and a bit buffers of microphone, and a stereo system file that is
    // a little longer: its channels are averaged and the output runs to the
    // end of the longer input.
    const size_t micFrames = 4096 * 2 + 1000;
    const size_t sysFrames = 4096 * 3 + 7;
    const auto mic = tone(micFrames, 1000.0f, 0.05f);
    auto sysStereo = tone(sysFrames, 440.0f, 0.3f, 2);
    for (size_t i = 0; i < sysFrames; ++i)
        sysStereo[i * 2 + 1] = 0.0f; // right channel silent: the mono mix is half the left
    QVERIFY(writeWav(dir.filePath(QStringLiteral("mic.wav")), 48000, 1, mic));
    QVERIFY(writeWav(dir.filePath(QStringLiteral("sys.wav")), 48000, 2, sysStereo));

    const QString out = dir.filePath(QStringLiteral("out.wav"));
    const Run r = run({QStringLiteral("mix"), dir.filePath(QStringLiteral("mic.wav")),
                       dir.filePath(QStringLiteral("sys.wav")), out});
    QVERIFY2(r.status == 0, qPrintable(r.err));
    QVERIFY(r.out.contains(out));

    SF_INFO info;
    const auto mixed = readWav(out, info);
    QCOMPARE(info.samplerate, 48000);
    QCOMPARE(info.channels, 1);
    QCOMPARE(info.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
    QCOMPARE(size_t(info.frames), sysFrames);

    // The same mix computed in-process from what the files hold.
    SF_INFO mi, si;
    auto micIn = readWav(dir.filePath(QStringLiteral("mic.wav")), mi);
    const auto sysIn = readWav(dir.filePath(QStringLiteral("sys.wav")), si);
    std::vector<float> sysMono(sysFrames);
    for (size_t i = 0; i < sysFrames; ++i)
        sysMono[i] = (sysIn[2 * i] + sysIn[2 * i + 1]) * 0.5f;
    micIn.resize(sysFrames, 0.0f);
    AGCState state;
    std::vector<float> expected;
    for (size_t off = 0; off < sysFrames; off += 4096) {
        const size_t n = std::min<size_t>(4096, sysFrames - off);
        const auto r2 =
            mixWithGainControl(std::span<const float>(micIn).subspan(off, n),
                               std::span<const float>(sysMono).subspan(off, n), true, state);
        state = r2.state;
        expected.insert(expected.end(), r2.samples.begin(), r2.samples.end());
    }
    QCOMPARE(mixed.size(), expected.size());
    for (size_t i = 0; i < mixed.size(); ++i)
        QVERIFY2(std::fabs(mixed[i] - expected[i]) < 1e-6f, qPrintable(QString::number(i)));
}

void TestCliMix::refusesInputsItCannotUse_data()
{
    QTest::addColumn<QString>("micName");
    QTest::addColumn<int>("micRate");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    QTest::newRow("44.1 kHz") << "mic.wav" << 44100 << 1 << "44100 Hz";
    QTest::newRow("missing file") << "absent.wav" << 0 << 1 << "absent.wav: no such file";
    QTest::newRow("not audio") << "junk.wav" << -1 << 1 << "not a readable audio file";
}

void TestCliMix::refusesInputsItCannotUse()
{
    QFETCH(QString, micName);
    QFETCH(int, micRate);
    QFETCH(int, status);
    QFETCH(QString, message);
    QTemporaryDir dir;
    const QString micPath = dir.filePath(micName);
    if (micRate > 0)
        QVERIFY(writeWav(micPath, micRate, 1, std::vector<float>(4410, 0.1f)));
    if (micRate < 0) {
        QFile junk(micPath);
        QVERIFY(junk.open(QIODevice::WriteOnly));
        junk.write("this is not a wav file");
    }
    QVERIFY(writeWav(dir.filePath(QStringLiteral("sys.wav")), 48000, 1,
                     std::vector<float>(4800, 0.1f)));
    const QString out = dir.filePath(QStringLiteral("out.wav"));
    const Run r =
        run({QStringLiteral("mix"), micPath, dir.filePath(QStringLiteral("sys.wav")), out});
    QCOMPARE(r.status, status);
    QVERIFY2(r.err.contains(message), qPrintable(r.err));
    QVERIFY(!QFile::exists(out));
}

QTEST_GUILESS_MAIN(TestCliMix)
#include "tst_cli_mix.moc"
