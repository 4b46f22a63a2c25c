// sorvelandrix upload FILE
//
// Sends a kept recording to the service, the way Retry does: the session is
// refreshed, the body staged and streamed with progress, one refresh and
// retry after a 401. A recording in the recordings directory is deleted once
// the service has it; a file elsewhere is never touched.

#include "cli/command.h"
#include "cli/session.h"
#include "cli/uploadreporter.h"
#include "core/secretstore.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTimer>

namespace sorv::cli {
namespace {

int runUpload(CommandContext& ctx)
{
    if (ctx.args.size() != 1) {
        ctx.error(QStringLiteral("Usage: sorvelandrix upload FILE"));
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
    SecretStore secrets;
    AuthManager auth(secrets);
    if (!requireSignedIn(auth, ctx))
        return kExitFailure;
    AudioRecorder recorder;
    recorder.setAuthManager(&auth);
    UploadReporter reporter(ctx, recorder, file.absoluteFilePath());
    const QString path = file.absoluteFilePath();
    QTimer::singleShot(0, &recorder, [&] { recorder.uploadRecording(path); });
    return QCoreApplication::exec();
}

const CommandRegistration registration{
    Command{QStringLiteral("upload"), QStringLiteral("upload FILE"),
            QStringLiteral("upload a kept recording to the service (with progress); a recording "
                           "in the recordings directory is deleted once the service has it"),
            runUpload}};

} // namespace
} // namespace sorv::cli
