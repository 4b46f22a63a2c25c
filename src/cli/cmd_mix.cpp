// sorvelandrix mix MIC.wav SYSTEM.wav OUT.wav
//
// Runs two files through the recording mixer exactly as a recording whose
// system audio is active from the first buffer: for each 4 096-frame
// microphone buffer, the matching system samples go into the ring buffer
// first, then the microphone buffer is mixed and written.

#include "audio/audioengine.h"
#include "audio/audiofilereader.h"
#include "audio/mixer.h"
#include "cli/command.h"
#include "core/log.h"

#include <QFileInfo>
#include <QJsonObject>

#include <algorithm>

namespace sorv::cli {
namespace {

constexpr std::int64_t kBufferFrames = 4096;

bool openInput(CommandContext& ctx, AudioFileReader& reader, const QString& path)
{
    if (!reader.open(path)) {
        ctx.error(reader.errorString());
        return false;
    }
    if (reader.sampleRate() != 48000) {
        ctx.error(QStringLiteral("%1: sample rate is %2 Hz; mix needs 48000 Hz input")
                      .arg(path)
                      .arg(reader.sampleRate()));
        return false;
    }
    return true;
}

int runMix(CommandContext& ctx)
{
    if (ctx.args.size() != 3) {
        ctx.error(QStringLiteral("Usage: sorvelandrix mix MIC.wav SYSTEM.wav OUT.wav"));
        return kExitUsage;
    }
    const QString micPath = ctx.args.at(0);
    const QString sysPath = ctx.args.at(1);
    const QString outPath = ctx.args.at(2);

    AudioFileReader mic;
    AudioFileReader sys;
    if (!openInput(ctx, mic, micPath) || !openInput(ctx, sys, sysPath))
        return kExitFailure;
    if (QFileInfo(outPath).absoluteFilePath() == QFileInfo(micPath).absoluteFilePath() ||
        QFileInfo(outPath).absoluteFilePath() == QFileInfo(sysPath).absoluteFilePath()) {
        ctx.error(QStringLiteral("%1: the output must not be one of the inputs").arg(outPath));
        return kExitFailure;
    }

    AudioEngine engine;
    QString openError;
    bool opened = false;
    engine.audioQueue().postAndWait([&] {
        engine.resetMixState();
        opened = engine.openOutputFile(outPath, &openError);
        engine.setSystemAudioActiveFlag(true);
    });
    if (!opened) {
        ctx.error(QStringLiteral("%1: cannot create the output file (%2)").arg(outPath, openError));
        return kExitFailure;
    }

    // The output covers the longer input: a shorter microphone file is
    // continued with silence so no system audio is cut off, and a shorter
    // system file is padded by the ring buffer as during a recording.
    const std::int64_t totalFrames = std::max(mic.frames(), sys.frames());
    std::vector<float> sysChunk(kBufferFrames);
    std::int64_t done = 0;
    const bool showProgress =
        !ctx.json && CommandContext::stdoutIsTerminal() && totalFrames > 60 * 48000;
    int lastPercent = -1;
    while (done < totalFrames) {
        const std::int64_t n = std::min(kBufferFrames, totalFrames - done);
        AudioBuffer micBuffer;
        micBuffer.samples.assign(static_cast<size_t>(n), 0.0f);
        mic.readMono(micBuffer.samples);
        const std::int64_t sysGot =
            sys.readMono(std::span<float>(sysChunk.data(), static_cast<size_t>(n)));
        engine.audioQueue().post(
            [&engine, chunk = std::vector<float>(sysChunk.begin(), sysChunk.begin() + sysGot),
             buffer = std::move(micBuffer)]() mutable {
                engine.receiveSystemAudio(chunk, peakLevel(chunk));
                const float peak = peakLevel(buffer.samples);
                engine.processMicBuffer(std::move(buffer), peak);
            });
        done += n;
        // Keep the queue from running far ahead of the reader.
        if ((done / kBufferFrames) % 64 == 0)
            engine.audioQueue().postAndWait([] {});
        const int percent = static_cast<int>(100 * done / std::max<std::int64_t>(totalFrames, 1));
        if (showProgress && percent != lastPercent) {
            lastPercent = percent;
            std::fprintf(stdout, "\rMixing… %3d %%", percent);
            std::fflush(stdout);
        }
    }
    std::int64_t written = 0;
    engine.audioQueue().postAndWait([&] {
        written = engine.outputFrames();
        engine.closeOutputFile();
    });
    if (showProgress)
        std::fputs("\n", stdout);

    const double seconds = static_cast<double>(written) / 48000.0;
    ctx.print(QStringLiteral("Mixed %1 s of audio into %2")
                  .arg(QString::number(seconds, 'f', 2), QFileInfo(outPath).absoluteFilePath()));
    ctx.event({{QStringLiteral("event"), QStringLiteral("mixed")},
               {QStringLiteral("wav"), QFileInfo(outPath).absoluteFilePath()},
               {QStringLiteral("frames"), static_cast<qint64>(written)}});
    return written == totalFrames ? kExitOk : kExitFailure;
}

const CommandRegistration registration{Command{
    QStringLiteral("mix"), QStringLiteral("mix MIC.wav SYSTEM.wav OUT.wav"),
    QStringLiteral("mix a microphone and a system-audio file (48 kHz) the way a recording is "
                   "mixed, into a 32-bit float mono WAV"),
    runMix}};

} // namespace
} // namespace sorv::cli
