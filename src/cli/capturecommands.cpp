// The capture commands run in this process: the capture program and the
// tests link them (sorvelandrix_cli).

#include "cli/commands.h"
#include "video/mp4writer.h"

namespace sorv::cli {

CommandFn captureCommandRun(const QString& name)
{
    if (name == QLatin1String("record"))
        return runRecord;
    if (name == QLatin1String("devices"))
        return runDevices;
    if (name == QLatin1String("targets"))
        return runTargets;
    if (name == QLatin1String("mix"))
        return runMix;
    return {};
}

Mp4Remuxer captureMp4Remuxer()
{
    return [](const QString& from, const QString& to, QString* error) {
        // The packet count is not known: the muxer finds room for the index.
        return Mp4Writer::remuxWithIndexFirst(from, to, 0, error);
    };
}

} // namespace sorv::cli
