// The capture commands run in this process: the capture program and the
// tests link them (sorvelandrix_cli).

#include "cli/commands.h"

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

} // namespace sorv::cli
