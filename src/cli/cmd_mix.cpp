// sorvelandrix mix MIC.wav SYSTEM.wav OUT.wav
//
// Runs two files through the recording's mix pipeline exactly as a recording
// whose system audio is active from the first buffer: for each 4 096-frame
// microphone buffer, the matching system samples go into the ring buffer
// first, then the microphone buffer is mixed and written.

#include "audio/audiofilereader.h"
#include "audio/mixer.h"
#include "audio/mixpipeline.h"
#include "cli/command.h"
#include "cli/commands.h"

#include <QFileInfo>
#include <QJsonObject>

#include <algorithm>
#include <optional>

#include <sys/stat.h>

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
                      .arg(path, QString::number(reader.sampleRate())));
        return false;
    }
    return true;
}

// The same file under another name (a link, a relative path) counts too.
bool sameFile(const QString& a, const QString& b)
{
    struct stat sa {};
    struct stat sb {};
    if (::stat(QFile::encodeName(a).constData(), &sa) != 0 ||
        ::stat(QFile::encodeName(b).constData(), &sb) != 0)
        return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

} // namespace

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
    if (sameFile(outPath, micPath) || sameFile(outPath, sysPath)) {
        ctx.error(QStringLiteral("%1: the output must not be one of the inputs").arg(outPath));
        return kExitFailure;
    }

    MixPipeline pipeline;
    std::optional<MixPipeline::WriteFailure> failure;
    pipeline.setWriteFailureSink([&](const MixPipeline::WriteFailure& f) { failure = f; });
    QString openError;
    if (!pipeline.openOutput(outPath, &openError)) {
        QFile::remove(outPath);
        ctx.error(openError);
        return kExitFailure;
    }
    pipeline.setSystemAudioActive(true);

    // The output covers the longer input: a shorter microphone file is
    // continued with silence so no system audio is cut off, and a shorter
    // system file is padded by the ring buffer as during a recording.
    const std::int64_t totalFrames = std::max(mic.frames(), sys.frames());
    std::vector<float> sysChunk(kBufferFrames);
    AudioBuffer micBuffer;
    std::int64_t done = 0;
    const bool showProgress = !ctx.json && ctx.terminal && totalFrames > std::int64_t{60} * 48000;
    int lastPercent = -1;
    while (done < totalFrames && !failure) {
        const std::int64_t n = std::min(kBufferFrames, totalFrames - done);
        micBuffer.samples.assign(static_cast<size_t>(n), 0.0f);
        mic.readMono(micBuffer.samples);
        const std::int64_t sysGot =
            sys.readMono(std::span<float>(sysChunk.data(), static_cast<size_t>(n)));
        const std::span<const float> sysPart(sysChunk.data(), static_cast<size_t>(sysGot));
        pipeline.receiveSystemAudio(sysPart, peakLevel(sysPart));
        pipeline.processMicBuffer(micBuffer, peakLevel(micBuffer.samples));
        done += n;
        const int percent = static_cast<int>(100 * done / std::max<std::int64_t>(totalFrames, 1));
        if (showProgress && percent != lastPercent) {
            lastPercent = percent;
            ctx.draw(QStringLiteral("Mixing… %1 %").arg(percent, 3));
        }
    }
    const std::int64_t written = pipeline.closeOutput();
    if (showProgress)
        ctx.endDrawnLine();
    if (failure) {
        ctx.error(failure->message());
        return kExitFailure;
    }

    const double seconds = static_cast<double>(written) / 48000.0;
    const QString out = QFileInfo(outPath).absoluteFilePath();
    ctx.print(
        QStringLiteral("Mixed %1 s of audio into %2").arg(QString::number(seconds, 'f', 2), out));
    ctx.event({{QStringLiteral("event"), QStringLiteral("mixed")},
               {QStringLiteral("wav"), out},
               {QStringLiteral("frames"), static_cast<qint64>(written)}});
    return written == totalFrames ? kExitOk : kExitFailure;
}

} // namespace sorv::cli
