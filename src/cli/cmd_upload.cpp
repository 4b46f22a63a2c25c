// sorvelandrix upload FILE
//
// Sends a kept recording to the service, the way Retry does: the session is
// refreshed and checked, the body streamed from the file with progress, one
// refresh and retry after a 401. A recording that another program is still
// writing (or sending) is refused. A recording in the recordings directory is
// deleted once the service has it, unless it changed meanwhile; a file
// elsewhere is never touched. Ctrl-C or SIGTERM stops the upload and keeps
// the file.

#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"
#include "cli/uploadreporter.h"
#include "core/signalnotifier.h"
#include "recording/pendingrecordings.h"
#include "recording/recordinguploader.h"

#include <QFileInfo>
#include <QTimer>

#include <csignal>

namespace sorv::cli {
namespace {

int runUpload(CommandContext& ctx)
{
    if (ctx.args == QStringList{QStringLiteral("--all")})
        return runUploadAll(ctx);
    if (ctx.args.size() != 1) {
        ctx.error(QStringLiteral("Usage: sorvelandrix upload FILE | --all"));
        return kExitUsage;
    }
    const QFileInfo file(ctx.args.at(0));
    if (!file.exists()) {
        ctx.error(QStringLiteral("%1: no such file").arg(ctx.args.at(0)));
        return kExitFailure;
    }
    if (!file.isFile() || !file.isReadable()) {
        ctx.error(QStringLiteral("%1: cannot be read").arg(ctx.args.at(0)));
        return kExitFailure;
    }
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    // The uploader alone, as Retry uses it: sending a file needs neither the
    // sound server nor the capture engine.
    RecordingUploader uploader;
    uploader.setAuthManager(&session.auth());
    uploader.sweepStaleBodies();
    const QString path = file.absoluteFilePath();
    UploadReporter reporter(ctx, uploader, path);
    SignalNotifier signals({SIGINT, SIGTERM, SIGHUP, SIGPIPE});
    QObject::connect(&signals, &SignalNotifier::received, &uploader, [&](int number) {
        if (number == SIGPIPE)
            ctx.closeOutput();
        uploader.cancel();
    });
    QTimer::singleShot(0, &uploader, [&] { uploader.upload(path, recordingCompanions(path)); });
    return ctx.exec();
}

} // namespace

Command uploadCommand()
{
    return {QStringLiteral("upload"), QStringLiteral("upload FILE | --all"),
            QStringLiteral("upload a kept recording to the service (with progress), or --all of "
                           "them (see `pending`); a recording in the recordings directory is "
                           "deleted once the service has it"),
            runUpload};
}

} // namespace sorv::cli
