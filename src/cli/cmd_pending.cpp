// sorvelandrix pending · sorvelandrix upload --all
//
// The recordings in the recordings folder that the service does not have:
// kept by `record`, left by a crash, or whose upload failed. A crash-left
// file is repaired before it is listed; a fragmented video needs FFmpeg to
// be rewritten, so this light program hands such a run to the capture
// program. A recording that another program is writing or sending is left
// out of both the list and --all.

#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"
#include "cli/uploadreporter.h"
#include "core/format.h"
#include "core/paths.h"
#include "core/signalnotifier.h"
#include "recording/pendingrecordings.h"
#include "recording/recordinguploader.h"

#include <QJsonObject>
#include <QTimer>

#include <algorithm>
#include <csignal>
#include <memory>
#include <optional>

namespace sorv::cli {
namespace {

// The list, or nothing when the capture program has to make it.
std::optional<std::vector<PendingRecording>> scan()
{
    const Mp4Remuxer remux = captureMp4Remuxer();
    std::vector<PendingRecording> rows = scanPendingRecordings(recordingsDirectory(), remux);
    if (!remux && std::any_of(rows.begin(), rows.end(), [](const auto& r) { return r.needsRemux; }))
        return std::nullopt;
    return rows;
}

int runPending(CommandContext& ctx)
{
    if (!ctx.args.isEmpty()) {
        ctx.error(QStringLiteral("Usage: sorvelandrix pending"));
        return kExitUsage;
    }
    const std::optional<std::vector<PendingRecording>> rows = scan();
    if (!rows)
        return captureCommandRun(QStringLiteral("pending"))(ctx);
    if (rows->empty())
        ctx.print(QStringLiteral("No recordings waiting for upload."));
    for (const PendingRecording& row : *rows) {
        QJsonObject e{{QStringLiteral("event"), QStringLiteral("pending")},
                      {QStringLiteral("path"), row.path},
                      {QStringLiteral("startedAt"), row.startedAt.toUTC().toString(Qt::ISODate)},
                      {QStringLiteral("seconds"), row.seconds},
                      {QStringLiteral("bytes"), row.bytes},
                      {QStringLiteral("reason"), row.reason}};
        if (row.damaged)
            e.insert(QStringLiteral("damaged"), true);
        ctx.event(e);
        ctx.print(QStringLiteral("%1  %2  %3  %4\n    %5")
                      .arg(row.startedAt.toString(QStringLiteral("yyyy-MM-dd HH:mm")),
                           formatElapsed(row.seconds), formatBytes(double(row.bytes)), row.path,
                           row.reason));
    }
    return kExitOk;
}

} // namespace

int runUploadAll(CommandContext& ctx)
{
    const std::optional<std::vector<PendingRecording>> found = scan();
    if (!found)
        return captureCommandRun(QStringLiteral("upload"))(ctx);
    auto rows = std::make_shared<std::vector<PendingRecording>>();
    for (const PendingRecording& row : *found)
        if (!row.damaged)
            rows->push_back(row);
    if (rows->empty()) {
        ctx.print(QStringLiteral("No recordings waiting for upload."));
        return kExitOk;
    }
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    RecordingUploader uploader;
    uploader.setAuthManager(&session.auth());
    std::unique_ptr<UploadReporter> reporter;
    bool stopped = false;
    int failures = 0;
    size_t index = 0;
    std::function<void()> next = [&] {
        if (stopped || index == rows->size()) {
            ctx.finish(failures == 0 && !stopped ? kExitOk : kExitFailure);
            return;
        }
        const PendingRecording& row = (*rows)[index++];
        reporter = std::make_unique<UploadReporter>(ctx, uploader, row.path, [&](bool uploaded) {
            failures += uploaded ? 0 : 1;
            // Not from inside the reporter that is calling.
            QTimer::singleShot(0, &uploader, next);
        });
        uploader.upload(row.path, row.companions);
    };
    SignalNotifier signals({SIGINT, SIGTERM, SIGHUP, SIGPIPE});
    QObject::connect(&signals, &SignalNotifier::received, &uploader, [&](int number) {
        if (number == SIGPIPE)
            ctx.closeOutput();
        stopped = true;
        uploader.cancel();
    });
    QTimer::singleShot(0, &uploader, next);
    return ctx.exec();
}

Command pendingCommand()
{
    return {QStringLiteral("pending"), QStringLiteral("pending"),
            QStringLiteral("list the recordings not uploaded yet (kept, left by a crash, or whose "
                           "upload failed): start, length, size, path and why; a file left by "
                           "a crash is repaired first"),
            runPending};
}

} // namespace sorv::cli
