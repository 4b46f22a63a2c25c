// `sorvelandrix` hands the capture commands to sorvelandrix-capture, the same
// command line with the capture stack linked, which replaces this process
// (exec): the terminal, the standard streams, the process id that signals
// reach and the exit status stay the command's own. Every other command thus
// starts without PulseAudio, FFmpeg, xcb or pocketsphinx, and never
// connects to the sound server or the X server.

#include "cli/commands.h"

#include <QCoreApplication>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <vector>

#include <unistd.h>

namespace sorv::cli {

namespace {

// This process's arguments exactly as it was given them (file names need
// not be valid in any encoding).
std::vector<QByteArray> originalArguments()
{
    QFile file(QStringLiteral("/proc/self/cmdline"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray all = file.readAll();
    std::vector<QByteArray> args;
    for (const QByteArray& arg : all.split('\0'))
        args.push_back(arg);
    if (!args.empty() && all.endsWith('\0'))
        args.pop_back(); // after the last terminator
    return args;
}

int handOff(CommandContext& ctx)
{
    const QString program =
        QCoreApplication::applicationDirPath() + QStringLiteral("/" SORV_CAPTURE_PROGRAM);
    std::vector<QByteArray> args = originalArguments();
    if (args.empty()) {
        ctx.error(QStringLiteral("Cannot read this program's arguments"));
        return kExitFailure;
    }
    args.front() = QFile::encodeName(program);
    std::vector<char*> argv;
    argv.reserve(args.size() + 1);
    for (QByteArray& arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    ::execv(argv.front(), argv.data());
    const int error = errno;
    ctx.error(QStringLiteral("Cannot start %1: %2")
                  .arg(program, QString::fromLocal8Bit(std::strerror(error))));
    return kExitFailure;
}

} // namespace

CommandFn captureCommandRun(const QString& /*name*/)
{
    return handOff;
}

Mp4Remuxer captureMp4Remuxer()
{
    return {};
}

} // namespace sorv::cli
