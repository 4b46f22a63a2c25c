// sorvelandrix recordings

#include "cli/command.h"
#include "core/secretstore.h"
#include "service/authmanager.h"
#include "service/recordingformat.h"

#include <QCoreApplication>
#include <QJsonObject>

using namespace sorv;
using namespace sorv::cli;

namespace {

int run(CommandContext& ctx)
{
    SecretStore secrets;
    AuthManager auth(secrets);
    auth.fetchRecordings(&auth, [&ctx](const RecordingsFetchResult& result) {
        if (result.error) {
            ctx.error(*result.error);
            QCoreApplication::exit(kExitFailure);
            return;
        }
        if (result.recordings.isEmpty())
            ctx.print(QStringLiteral("No recordings yet."));
        for (const Recording& r : result.recordings) {
            const QString date = formatRecordingDate(r.created_at);
            const QString duration =
                r.duration_ms ? formatDurationMs(*r.duration_ms) : QStringLiteral("--");
            const QString title = r.ai_title.value_or(r.original_filename);
            ctx.print(QStringLiteral("%1  %2  %3  %4")
                          .arg(date, -6)
                          .arg(duration, 8)
                          .arg(title.left(48), -48)
                          .arg(r.status));
            ctx.event({{QStringLiteral("event"), QStringLiteral("recording")},
                       {QStringLiteral("id"), r.id},
                       {QStringLiteral("date"), date},
                       {QStringLiteral("duration"), duration},
                       {QStringLiteral("title"), title},
                       {QStringLiteral("status"), r.status}});
        }
        QCoreApplication::exit(kExitOk);
    });
    return QCoreApplication::exec();
}

const CommandRegistration registration({
    QStringLiteral("recordings"),
    QStringLiteral("recordings"),
    QStringLiteral("list the recordings on your account"),
    run,
});

} // namespace
