// The recording file: format, round trip, and — the point of the header
// handling — a writer killed at any moment leaves a file that opens.

#include "audio/wavwriter.h"
#include "support/isolatedenvironment.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <sndfile.h>

#include <csignal>

using namespace sorv;

class TestWavWriter : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void writesFloat48kMonoWav();
    void killedWriterLeavesReadableFile_data();
    void killedWriterLeavesReadableFile();
    void unwritableLocationFailsWithMessage();
};

void TestWavWriter::writesFloat48kMonoWav()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("a.wav"));
    WavWriter w;
    QVERIFY(w.open(path));
    std::vector<float> samples(10'000);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = float(i) / 10'000.0f - 0.5f;
    QVERIFY(w.write(samples));
    QVERIFY(w.write(std::span<const float>(samples).first(123)));
    QCOMPARE(w.frames(), qint64(10'123));
    w.close();

    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    // Under 4 GiB the RF64 file is downgraded to a plain RIFF WAV.
    QCOMPARE(f.read(4), QByteArray("RIFF"));
    f.close();

    SF_INFO info{};
    SNDFILE* s = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    QVERIFY(s);
    QCOMPARE(info.samplerate, 48000);
    QCOMPARE(info.channels, 1);
    // libsndfile downgrades RF64 to WAVE_FORMAT_EXTENSIBLE, a RIFF WAV every reader opens.
    QVERIFY((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV ||
            (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAVEX);
    QCOMPARE(info.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
    QCOMPARE(info.frames, sf_count_t(10'123));
    std::vector<float> back(10'123);
    sf_readf_float(s, back.data(), info.frames);
    sf_close(s);
    QCOMPARE(back[9'999], samples[9'999]);
    QCOMPARE(back[10'122], samples[122]);
}

void TestWavWriter::killedWriterLeavesReadableFile_data()
{
    QTest::addColumn<int>("framesBeforeKill");
    QTest::newRow("after a few buffers") << 4096 * 3;
    QTest::newRow("after several seconds") << 48000 * 4;
}

void TestWavWriter::killedWriterLeavesReadableFile()
{
    QFETCH(int, framesBeforeKill);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("killed.wav"));
    QProcess child;
    child.start(test::buildDirectory() + QStringLiteral("/tests/audio/wavwriter_child"), {path});
    QVERIFY2(child.waitForStarted(), qPrintable(child.errorString()));
    qint64 reported = 0;
    while (reported < framesBeforeKill) {
        QVERIFY(child.waitForReadyRead(5000));
        while (child.canReadLine())
            reported = child.readLine().trimmed().toLongLong();
    }
    ::kill(pid_t(child.processId()), SIGKILL);
    QVERIFY(child.waitForFinished(5000));
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);

    SF_INFO info{};
    SNDFILE* s = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    QVERIFY2(s, sf_strerror(nullptr));
    QCOMPARE(info.samplerate, 48000);
    // Everything reported before the kill is in the file's stated length,
    // except at most the last second.
    QVERIFY2(info.frames >= reported - 48000,
             qPrintable(QStringLiteral("%1 < %2").arg(info.frames).arg(reported)));
    std::vector<float> back(size_t(info.frames));
    QCOMPARE(sf_readf_float(s, back.data(), info.frames), info.frames);
    sf_close(s);
    for (size_t i = 0; i < back.size(); i += 997)
        QCOMPARE(back[i], float(i % 48000) / 48000.0f);
}

void TestWavWriter::unwritableLocationFailsWithMessage()
{
    WavWriter w;
    QVERIFY(!w.open(QStringLiteral("/nonexistent-dir/x.wav")));
    QVERIFY(!w.errorString().isEmpty());
    QVERIFY(!w.write(std::vector<float>(4)));
}

QTEST_GUILESS_MAIN(TestWavWriter)
#include "tst_wavwriter.moc"
