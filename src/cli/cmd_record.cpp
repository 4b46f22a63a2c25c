// sorvelandrix record [--duration SECONDS] [--save|--discard]
//
// One recording through AudioRecorder: microphone and system audio until the
// duration ends or Ctrl-C (SIGINT/SIGTERM), then the file is kept and its
// path printed, uploaded with --save, or deleted with --discard.

#include "cli/command.h"
#include "cli/session.h"
#include "cli/uploadreporter.h"
#include "core/log.h"
#include "core/secretstore.h"
#include "recording/audiorecorder.h"
#include "service/authmanager.h"

#include <QCoreApplication>
#include <QJsonObject>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

namespace sorv::cli {
namespace {

// Self-pipe: the handler only writes a byte; the event loop does the rest.
int g_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const auto n = ::write(g_signalPipe[1], &byte, 1);
    errno = saved;
}

bool installStopSignals()
{
    if (::pipe2(g_signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    return ::sigaction(SIGINT, &sa, nullptr) == 0 && ::sigaction(SIGTERM, &sa, nullptr) == 0;
}

QString meterBar(float level)
{
    constexpr int kWidth = 20;
    const int filled = std::clamp(static_cast<int>(level * kWidth + 0.5f), 0, kWidth);
    return QString(filled, QChar(0x2588)) + QString(kWidth - filled, QChar(0x00B7));
}

QString clockText(double seconds)
{
    const int s = static_cast<int>(seconds);
    return QStringLiteral("%1:%2")
        .arg(s / 60, 2, 10, QLatin1Char('0'))
        .arg(s % 60, 2, 10, QLatin1Char('0'));
}

int runRecord(CommandContext& ctx)
{
    double duration = 0.0;
    bool discard = false;
    bool save = false;
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args.at(i);
        if (a == QLatin1String("--duration") && i + 1 < ctx.args.size()) {
            bool ok = false;
            duration = ctx.args.at(++i).toDouble(&ok);
            if (!ok || duration <= 0) {
                ctx.error(QStringLiteral("--duration needs a positive number of seconds"));
                return kExitUsage;
            }
        } else if (a == QLatin1String("--discard")) {
            discard = true;
        } else if (a == QLatin1String("--save")) {
            save = true;
        } else {
            ctx.error(QStringLiteral(
                "Usage: sorvelandrix record [--duration SECONDS] [--save|--discard]"));
            return kExitUsage;
        }
    }
    if (save && discard) {
        ctx.error(QStringLiteral("--save and --discard exclude each other"));
        return kExitUsage;
    }
    if (!installStopSignals()) {
        ctx.error(QStringLiteral("Could not install the Ctrl-C handler"));
        return kExitFailure;
    }

    // With --save the session must be there before anything is recorded.
    std::unique_ptr<SecretStore> secrets;
    std::unique_ptr<AuthManager> auth;
    if (save) {
        secrets = std::make_unique<SecretStore>();
        auth = std::make_unique<AuthManager>(*secrets);
        if (!requireSignedIn(*auth, ctx))
            return kExitFailure;
    }

    AudioRecorder recorder;
    if (auth)
        recorder.setAuthManager(auth.get());
    std::unique_ptr<UploadReporter> uploadReporter;
    std::optional<RecordingState::Kind> lastKind;
    const bool liveMeter = !ctx.json && CommandContext::stdoutIsTerminal();
    bool stopRequested = false;
    bool meterShown = false;

    auto endMeterLine = [&] {
        if (meterShown)
            std::fputs("\n", stdout);
        meterShown = false;
    };
    auto finish = [&](int code) {
        endMeterLine();
        QCoreApplication::exit(code);
    };

    QSocketNotifier signals(g_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&signals, &QSocketNotifier::activated, &recorder, [&] {
        char buf[16];
        while (::read(g_signalPipe[0], buf, sizeof buf) > 0) {
        }
        stopRequested = true;
        recorder.stopRecording(); // only acts while recording; otherwise remembered
    });

    QTimer durationTimer;
    durationTimer.setSingleShot(true);
    QObject::connect(&durationTimer, &QTimer::timeout, &recorder,
                     [&] { recorder.stopRecording(); });

    QTimer meterTimer;
    meterTimer.setInterval(100);
    QObject::connect(&meterTimer, &QTimer::timeout, &recorder, [&] {
        if (ctx.json) {
            ctx.event({{QStringLiteral("event"), QStringLiteral("meters")},
                       {QStringLiteral("mic"), double(recorder.micLevel())},
                       {QStringLiteral("system"), double(recorder.systemLevel())}});
        } else if (liveMeter) {
            std::fprintf(stdout, "\r🎤 %s  🔊 %s  %s", qPrintable(meterBar(recorder.micLevel())),
                         qPrintable(meterBar(recorder.systemLevel())),
                         qPrintable(clockText(recorder.elapsed())));
            std::fflush(stdout);
            meterShown = true;
        }
    });

    auto reportSystemAudio = [&] {
        QJsonObject e{{QStringLiteral("event"), QStringLiteral("systemAudio")},
                      {QStringLiteral("active"), recorder.systemAudioActive()}};
        if (!recorder.systemAudioError().isNull())
            e.insert(QStringLiteral("error"), recorder.systemAudioError());
        ctx.event(e);
        if (!recorder.systemAudioActive() && !recorder.systemAudioError().isNull()) {
            endMeterLine();
            ctx.print(QStringLiteral("System audio is not recorded: %1")
                          .arg(recorder.systemAudioError()));
        }
    };
    // The error report follows the active flag; report once both are known.
    QObject::connect(&recorder, &AudioRecorder::systemAudioErrorChanged, &recorder,
                     reportSystemAudio);
    QObject::connect(&recorder, &AudioRecorder::systemAudioActiveChanged, &recorder, [&] {
        if (recorder.systemAudioActive())
            reportSystemAudio();
    });

    QObject::connect(&recorder, &AudioRecorder::stateChanged, &recorder, [&] {
        const RecordingState state = recorder.state();
        // Upload progress changes the state many times; report each kind once.
        if (state.kind() == lastKind)
            return;
        lastKind = state.kind();
        ctx.event({{QStringLiteral("event"), QStringLiteral("state")},
                   {QStringLiteral("state"), state.caseName()}});
        switch (state.kind()) {
        case RecordingState::Kind::Recording:
            ctx.print(
                duration > 0
                    ? QStringLiteral("Recording for %1 s (Ctrl-C stops earlier)…").arg(duration)
                    : QStringLiteral("Recording… press Ctrl-C to stop"));
            if (stopRequested) {
                recorder.stopRecording();
                break;
            }
            if (duration > 0)
                durationTimer.start(static_cast<int>(duration * 1000));
            meterTimer.start();
            break;
        case RecordingState::Kind::Stopping:
            meterTimer.stop();
            endMeterLine();
            ctx.print(QStringLiteral("Stopping…"));
            break;
        case RecordingState::Kind::PendingSave: {
            const QString path = recorder.outputPath();
            if (discard) {
                recorder.discardRecording();
                ctx.print(QStringLiteral("Recording discarded"));
                ctx.event({{QStringLiteral("event"), QStringLiteral("discarded")}});
            } else {
                ctx.print(QStringLiteral("Saved recording: %1").arg(path));
                ctx.event({{QStringLiteral("event"), QStringLiteral("saved")},
                           {QStringLiteral("wav"), path}});
                if (save) {
                    // The reporter follows the upload and ends the run.
                    uploadReporter = std::make_unique<UploadReporter>(ctx, recorder, path);
                    recorder.saveRecording();
                    break;
                }
            }
            finish(kExitOk);
            break;
        }
        case RecordingState::Kind::Error:
            if (uploadReporter)
                break; // the upload's failure, reported by the reporter
            meterTimer.stop();
            endMeterLine();
            ctx.error(state.message());
            finish(kExitFailure);
            break;
        default:
            break;
        }
    });

    QTimer::singleShot(0, &recorder, [&] { recorder.requestStartRecording(); });
    return QCoreApplication::exec();
}

const CommandRegistration registration{Command{
    QStringLiteral("record"), QStringLiteral("record [--duration SECONDS] [--save|--discard]"),
    QStringLiteral("record the microphone and system audio until the duration ends or Ctrl-C, "
                   "then keep the WAV file and print its path, upload it with --save, or delete "
                   "it with --discard"),
    runRecord}};

} // namespace
} // namespace sorv::cli
