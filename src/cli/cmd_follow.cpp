// sorvelandrix follow MEETING_ID: a meeting bot's live transcript, as it
// arrives, until Ctrl-C or the end of the stream.

#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"
#include "cli/livetranscriptreporter.h"
#include "core/settings.h"
#include "core/signalnotifier.h"
#include "transcript/livetranscriptmanager.h"

#include <QJsonObject>

#include <csignal>

namespace sorv::cli {
namespace {

QJsonObject connectionEvent(const SSEConnectionStatus& status)
{
    return {{QStringLiteral("event"), QStringLiteral("connection")},
            {QStringLiteral("status"), status.caseName()},
            {QStringLiteral("message"), status.message()}};
}

int follow(CommandContext& ctx)
{
    if (ctx.args.size() != 1 || ctx.args.at(0).isEmpty() ||
        ctx.args.at(0).startsWith(QLatin1Char('-'))) {
        ctx.error(QStringLiteral("Usage: sorvelandrix follow MEETING_ID"));
        return kExitUsage;
    }
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    const QString meetingId = ctx.args.at(0);

    LiveTranscriptManager transcript(ctx.delays ? ctx.delays : timerDelayedCall());
    LiveTranscriptReporter reporter(ctx, transcript);
    // On a terminal the segment still being spoken is drawn in place and
    // rewritten as it grows; finished segments become lines above it.
    bool openShown = false;
    const auto drawOpen = [&] {
        if (!ctx.terminal)
            return;
        const QString open = reporter.openLine();
        if (open.isEmpty() && !openShown)
            return;
        ctx.draw(LiveTranscriptReporter::fitToWidth(open,
                                                    LiveTranscriptReporter::terminalColumns() - 1));
        openShown = !open.isEmpty();
    };
    reporter.redraw = [&] {
        // A finished line may have been printed over the open one.
        openShown = false;
        drawOpen();
    };
    const auto say = [&](const QString& line) {
        ctx.printOver(line);
        openShown = false;
        drawOpen();
    };

    QObject::connect(
        &transcript, &LiveTranscriptManager::connectionStatusChanged, &transcript, [&] {
            const SSEConnectionStatus& status = transcript.connectionStatus();
            reporter.flush();
            ctx.event(connectionEvent(status));
            if (status.isConnecting())
                say(QStringLiteral("Connecting to meeting %1...").arg(meetingId));
            else if (status.isConnected())
                say(QStringLiteral("Connected."));
            // An error that ends the stream is reported as the exit's reason.
            else if (status.isError() && transcript.isActive())
                say(QStringLiteral("%1 (trying again in %2 s)")
                        .arg(status.message(),
                             QString::number(LiveTranscriptManager::kRetryDelay.count() / 1000)));
        });
    QObject::connect(&transcript, &LiveTranscriptManager::meetingStatusChanged, &transcript, [&] {
        reporter.flush();
        ctx.event({{QStringLiteral("event"), QStringLiteral("meetingStatus")},
                   {QStringLiteral("status"), transcript.meetingStatus()}});
        say(QStringLiteral("Meeting status: %1").arg(transcript.meetingStatus()));
    });
    QObject::connect(&transcript, &LiveTranscriptManager::speakerNamesChanged, &transcript, [&] {
        reporter.flush();
        ctx.event(
            {{QStringLiteral("event"), QStringLiteral("speakerNames")},
             {QStringLiteral("names"), QJsonObject::fromVariantMap(transcript.speakerNamesMap())}});
    });
    QObject::connect(&transcript, &LiveTranscriptManager::streamEnded, &transcript, [&] {
        reporter.finish();
        const SSEConnectionStatus& status = transcript.connectionStatus();
        if (status.isError()) {
            ctx.error(status.message());
            ctx.finish(kExitFailure);
            return;
        }
        say(QStringLiteral("The stream ended."));
        ctx.finish(kExitOk);
    });

    SignalNotifier signals({SIGINT, SIGTERM, SIGHUP, SIGPIPE});
    if (!signals.isValid()) {
        ctx.error(QStringLiteral("Could not install the Ctrl-C handler"));
        return kExitFailure;
    }
    QObject::connect(&signals, &SignalNotifier::received, &transcript, [&](int number) {
        if (number == SIGPIPE)
            ctx.closeOutput();
        transcript.disconnect();
        reporter.finish();
        ctx.finish(kExitOk);
    });

    transcript.connect(meetingId, Settings::serverOrigin(), session.auth().accessToken());
    return ctx.exec();
}

} // namespace

Command followCommand()
{
    return {QStringLiteral("follow"), QStringLiteral("follow MEETING_ID"),
            QStringLiteral("print a meeting bot's live transcript as it arrives, until Ctrl-C "
                           "or the meeting's stream ends"),
            follow};
}

} // namespace sorv::cli
