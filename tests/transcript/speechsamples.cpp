#include "speechsamples.h"

#include "audio/audiofilereader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

// Sanitizer settings for the programs that use these samples.
#if defined(__SANITIZE_THREAD__)
// The samples are made by espeak-ng and sox, started with QProcess while
// other threads run; the child only executes them.
extern "C" const char* __tsan_default_options()
{
    return "die_after_fork=0";
}
#endif
#if defined(__SANITIZE_ADDRESS__)
// Full stacks through pocketsphinx (built without frame pointers), so that
// the one suppressed leak inside it (tests/support/lsan.supp) is told apart
// from a decoder we failed to free.
extern "C" const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0:malloc_context_size=8";
}
#endif

namespace sorv::test {

namespace {

bool run(const QString& program, const QStringList& args, QString* error)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        if (error)
            *error =
                program + QStringLiteral(": ") + QString::fromLocal8Bit(p.readAllStandardError());
        return false;
    }
    return true;
}

} // namespace

bool speechToolsAvailable()
{
    return !QStandardPaths::findExecutable(QStringLiteral("espeak-ng")).isEmpty() &&
           !QStandardPaths::findExecutable(QStringLiteral("sox")).isEmpty();
}

bool makeSpeech(const QString& path, const QStringList& sentences, double pauseSeconds,
                double leadSeconds, QString* error)
{
    QTemporaryDir dir;
    if (!dir.isValid())
        return false;
    // espeak-ng writes 22 050 Hz mono; the silences match it so sox can
    // join everything before resampling once.
    auto silence = [&](const QString& name, double seconds) {
        const QString file = dir.filePath(name);
        return run(QStringLiteral("sox"),
                   {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("22050"),
                    QStringLiteral("-c"), QStringLiteral("1"), QStringLiteral("-b"),
                    QStringLiteral("16"), file, QStringLiteral("trim"), QStringLiteral("0"),
                    QString::number(seconds)},
                   error)
                   ? file
                   : QString();
    };
    const QString lead = silence(QStringLiteral("lead.wav"), std::max(leadSeconds, 0.01));
    const QString pause = silence(QStringLiteral("pause.wav"), std::max(pauseSeconds, 0.01));
    if (lead.isEmpty() || pause.isEmpty())
        return false;

    QStringList inputs{lead};
    for (qsizetype i = 0; i < sentences.size(); ++i) {
        const QString file = dir.filePath(QStringLiteral("s%1.wav").arg(i));
        if (!run(QStringLiteral("espeak-ng"), {QStringLiteral("-w"), file, sentences.at(i)}, error))
            return false;
        inputs << file << pause;
    }
    return run(QStringLiteral("sox"),
               inputs + QStringList{QStringLiteral("-r"), QStringLiteral("48000"),
                                    QStringLiteral("-b"), QStringLiteral("32"),
                                    QStringLiteral("-e"), QStringLiteral("floating-point"), path},
               error);
}

std::vector<float> readMonoSamples(const QString& path)
{
    AudioFileReader reader;
    if (!reader.open(path))
        return {};
    std::vector<float> samples(static_cast<std::size_t>(reader.frames()));
    std::size_t done = 0;
    while (done < samples.size()) {
        const auto n = reader.readMono(std::span<float>(samples).subspan(done));
        if (n <= 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    samples.resize(done);
    return samples;
}

bool writeGrammar(const QString& path, const QStringList& phrases)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const QString text = QStringLiteral("#JSGF V1.0;\ngrammar phrases;\n"
                                        "public <utterance> = <phrase>+;\n<phrase> = ") +
                         phrases.join(QStringLiteral(" | ")) + QStringLiteral(";\n");
    return file.write(text.toUtf8()) > 0;
}

} // namespace sorv::test
