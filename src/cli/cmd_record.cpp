// sorvelandrix record [--duration SECONDS] [--device ID] [--video] [--target ID]
//                     [--live server|on-device] [--language LOCALE]
//                     [--save|--discard]
//
// One recording through AudioRecorder: microphone and system audio until the
// duration (measured on the audio itself) is in the file, or Ctrl-C, SIGTERM
// or SIGHUP; then the file is kept and its path printed, uploaded with
// --save, or deleted with --discard. A closed output pipe stops it the same
// clean way. What the engine does to keep the microphone alive (restarts, a
// silent microphone and its recovery, the sound server going away) is shown
// as it happens.
// With --video the screen (or the target `sorvelandrix targets` lists) goes
// into an MP4 beside the WAV, and the MP4 is what --save uploads.
// With --live, the live transcript (the service's or the on-device preview)
// runs with the recording and is printed as it firms up.

#include "audio/audioengine.h"
#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"
#include "cli/livetranscriptreporter.h"
#include "cli/livetranscriptrun.h"
#include "cli/uploadreporter.h"
#include "core/format.h"
#include "core/signalnotifier.h"
#include "recording/audiorecorder.h"
#include "video/screencapturetargetoption.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QTimer>

#include <csignal>
#include <functional>
#include <memory>
#include <optional>

namespace sorv::cli {
namespace {

// A tenth of a second is the shortest recording worth a file; a day is
// longer than any meeting.
constexpr double kMinDurationSeconds = 0.1;
constexpr double kMaxDurationSeconds = 24 * 3600;

} // namespace

int runRecord(CommandContext& ctx)
{
    double duration = 0.0;
    std::optional<quint32> device;
    bool discard = false;
    bool save = false;
    bool video = false;
    std::optional<ScreenCaptureTargetOption> target;
    std::optional<LiveTranscriptRun::Mode> liveMode;
    QString language;
    QString speechGrammar; // not in the usage: tests decode known phrases with it
    const auto usage = [&ctx](const QString& why) {
        ctx.error(why + QStringLiteral("\nUsage: sorvelandrix ") + recordUsage());
        return kExitUsage;
    };
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args.at(i);
        if (a == QLatin1String("--duration")) {
            bool ok = false;
            duration = i + 1 < ctx.args.size() ? ctx.args.at(++i).toDouble(&ok) : 0.0;
            // NaN fails both comparisons, so it is refused too.
            if (!ok || !(duration >= kMinDurationSeconds && duration <= kMaxDurationSeconds))
                return usage(QStringLiteral("--duration needs a number of seconds from %1 to %2 "
                                            "(24 hours)")
                                 .arg(kMinDurationSeconds)
                                 .arg(kMaxDurationSeconds, 0, 'f', 0));
        } else if (a == QLatin1String("--device")) {
            bool ok = false;
            const quint32 id = i + 1 < ctx.args.size() ? ctx.args.at(++i).toUInt(&ok) : 0;
            if (!ok || id == 0)
                return usage(QStringLiteral("--device needs a device id from `sorvelandrix "
                                            "devices`"));
            device = id;
        } else if (a == QLatin1String("--video")) {
            video = true;
        } else if (a == QLatin1String("--target")) {
            target = ScreenCaptureTargetOption::fromID(i + 1 < ctx.args.size() ? ctx.args.at(++i)
                                                                               : QString());
            if (!target)
                return usage(QStringLiteral("--target needs a capture target id such as "
                                            "display:main (see sorvelandrix targets)"));
        } else if (a == QLatin1String("--live")) {
            liveMode = LiveTranscriptRun::parseMode(i + 1 < ctx.args.size() ? ctx.args.at(++i)
                                                                            : QString());
            if (!liveMode)
                return usage(QStringLiteral("--live needs server or on-device"));
        } else if (a == QLatin1String("--language") || a == QLatin1String("--speech-grammar")) {
            QString& value = a == QLatin1String("--language") ? language : speechGrammar;
            value = i + 1 < ctx.args.size() ? ctx.args.at(++i) : QString();
            if (value.isEmpty() || value.startsWith(QLatin1String("--")))
                return usage(QStringLiteral("%1 needs a value").arg(a));
        } else if (a == QLatin1String("--discard")) {
            discard = true;
        } else if (a == QLatin1String("--save")) {
            save = true;
        } else {
            return usage(QStringLiteral("Unexpected argument %1").arg(a));
        }
    }
    if (save && discard)
        return usage(QStringLiteral("--save and --discard exclude each other"));
    if (target && !video)
        return usage(QStringLiteral("--target goes with --video"));
    if (!language.isEmpty() && !liveMode)
        return usage(QStringLiteral("--language goes with --live"));
    if (!speechGrammar.isEmpty() && liveMode != LiveTranscriptRun::Mode::OnDevice)
        return usage(QStringLiteral("--speech-grammar goes with --live on-device"));
    const bool liveServer = liveMode == LiveTranscriptRun::Mode::Server;

    // With --save or the service's live transcript the session must be there
    // before anything is recorded.
    std::optional<CliSession> session;
    if (save || liveServer) {
        session.emplace(ctx);
        if (!session->requireSignedIn())
            return kExitFailure;
    }

    AudioRecorder recorder(ctx.makeRecordingEngine ? ctx.makeRecordingEngine()
                                                   : std::make_unique<AudioEngine>());
    // A device that cannot be opened leaves the recording on the default one.
    if (device)
        recorder.selectInputDevice(*device);
    if (session)
        recorder.setAuthManager(&session->auth());
    std::unique_ptr<LiveTranscriptRun> live;
    if (liveMode)
        live = std::make_unique<LiveTranscriptRun>(ctx, *liveMode, language, video, speechGrammar);
    if (duration > 0)
        recorder.setDurationLimit(duration);
    std::unique_ptr<UploadReporter> uploadReporter;
    std::optional<RecordingState::Kind> lastKind;
    bool stopRequested = false;
    // SIGTERM, SIGHUP and a closed pipe ask the process to end: the recording
    // is kept, and --save's upload is left for later.
    bool endRequested = false;
    bool meterShown = false;

    auto endMeterLine = [&] {
        if (meterShown)
            ctx.endDrawnLine();
        meterShown = false;
    };

    SignalNotifier signals({SIGINT, SIGTERM, SIGHUP, SIGPIPE});
    if (!signals.isValid()) {
        ctx.error(QStringLiteral("Could not install the Ctrl-C handler"));
        return kExitFailure;
    }
    QObject::connect(&signals, &SignalNotifier::received, &recorder, [&](int number) {
        // Whoever read our output is gone; stop as cleanly as for Ctrl-C.
        if (number == SIGPIPE)
            ctx.closeOutput();
        stopRequested = true;
        endRequested = endRequested || number != SIGINT;
        if (recorder.state().kind() == RecordingState::Kind::Uploading)
            recorder.cancelUpload();
        else
            recorder.stopRecording(); // only acts while recording; otherwise remembered
    });

    QTimer meterTimer;
    meterTimer.setInterval(100);
    // The level meter, and beside it the words being spoken.
    const auto drawMeter = [&] {
        QString line = QStringLiteral("🎤 %1  🔊 %2  %3")
                           .arg(meterBar(recorder.micLevel()), meterBar(recorder.systemLevel()),
                                recorder.elapsedText());
        if (live) {
            const QString open = live->openLine();
            if (!open.isEmpty())
                line += QStringLiteral("  ") +
                        LiveTranscriptReporter::fitToWidth(
                            open, LiveTranscriptReporter::terminalColumns() - 58);
        }
        ctx.draw(line);
        meterShown = true;
    };
    QObject::connect(&meterTimer, &QTimer::timeout, &recorder, [&] {
        if (ctx.json) {
            ctx.event({{QStringLiteral("event"), QStringLiteral("meters")},
                       {QStringLiteral("mic"), double(recorder.micLevel())},
                       {QStringLiteral("system"), double(recorder.systemLevel())}});
        } else if (ctx.terminal) {
            drawMeter();
        }
    });
    if (live) {
        live->setRedraw([&] {
            // A finished line was printed over the meter, or the open one changed.
            meterShown = false;
            if (meterTimer.isActive())
                drawMeter();
        });
    }

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

    // System audio follows the output: the first one is an event, a move
    // is said in words too.
    QString systemAudioDevice;
    QObject::connect(&recorder, &AudioRecorder::systemAudioDeviceChanged, &recorder, [&] {
        const QString name = recorder.systemAudioDevice();
        if (name.isEmpty())
            return;
        if (!systemAudioDevice.isEmpty()) {
            endMeterLine();
            ctx.print(QStringLiteral("🔊 System audio now from %1").arg(name));
        }
        systemAudioDevice = name;
        ctx.event({{QStringLiteral("event"), QStringLiteral("systemAudioDevice")},
                   {QStringLiteral("name"), name}});
    });

    // The microphone's health, as it happens.
    QObject::connect(&recorder, &AudioRecorder::micEngineRestarted, &recorder, [&](qint64 n) {
        endMeterLine();
        ctx.print(QStringLiteral("⚠️ Microphone restarted (#%1)").arg(n));
        ctx.event({{QStringLiteral("event"), QStringLiteral("micEngineRestarted")},
                   {QStringLiteral("count"), n}});
    });
    QObject::connect(&recorder, &AudioRecorder::micSilentChanged, &recorder, [&] {
        endMeterLine();
        if (recorder.micSilent()) {
            ctx.print(
                QStringLiteral("⚠️ Microphone is silent: %1").arg(recorder.micSilentMessage()));
            ctx.event({{QStringLiteral("event"), QStringLiteral("micSilent")},
                       {QStringLiteral("silent"), true},
                       {QStringLiteral("message"), recorder.micSilentMessage()}});
        } else {
            ctx.print(QStringLiteral("✅ Microphone recovered: sound is coming in again"));
            ctx.event({{QStringLiteral("event"), QStringLiteral("micSilent")},
                       {QStringLiteral("silent"), false}});
        }
    });
    QObject::connect(&recorder, &AudioRecorder::soundServerLostChanged, &recorder, [&] {
        if (recorder.state().kind() != RecordingState::Kind::Recording)
            return;
        endMeterLine();
        const bool lost = recorder.soundServerLost();
        ctx.print(lost ? QStringLiteral("⚠️ The sound server went away; the recording resumes "
                                        "when it answers")
                       : QStringLiteral("✅ The sound server is back; recording resumed"));
        ctx.event({{QStringLiteral("event"), QStringLiteral("soundServer")},
                   {QStringLiteral("available"), !lost}});
    });

    std::function<void()> handleState;
    handleState = [&] {
        const RecordingState state = recorder.state();
        // Upload progress changes the state many times; report each kind once.
        if (state.kind() == lastKind)
            return;
        const bool wasRecording = lastKind == RecordingState::Kind::Recording;
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
            meterTimer.start();
            break;
        case RecordingState::Kind::Stopping:
            meterTimer.stop();
            endMeterLine();
            ctx.print(QStringLiteral("Stopping…"));
            break;
        case RecordingState::Kind::PendingSave: {
            // The live transcript's last words come first.
            if (live && live->windDown([&] {
                    lastKind.reset();
                    handleState();
                }))
                break;
            const QString path = recorder.outputPath();
            if (discard) {
                recorder.discardRecording();
                ctx.print(QStringLiteral("Recording discarded"));
                ctx.event({{QStringLiteral("event"), QStringLiteral("discarded")}});
                ctx.finish(kExitOk);
                break;
            }
            QJsonObject saved{{QStringLiteral("event"), QStringLiteral("saved")},
                              {QStringLiteral("wav"), recorder.lastWavPath()}};
            ctx.print(QStringLiteral("Saved recording: %1").arg(recorder.lastWavPath()));
            if (!recorder.lastVideoPath().isEmpty()) {
                ctx.print(QStringLiteral("Saved video: %1").arg(recorder.lastVideoPath()));
                saved.insert(QStringLiteral("mp4"), recorder.lastVideoPath());
            }
            ctx.event(saved);
            if (save && endRequested) {
                ctx.error(QStringLiteral("Stopped before the upload. Upload it with: %1")
                              .arg(ctx.commandLine({QStringLiteral("upload"), path})));
                ctx.finish(kExitFailure);
                break;
            }
            if (save) {
                // The reporter follows the upload and ends the run.
                uploadReporter = std::make_unique<UploadReporter>(ctx, recorder.uploader(), path);
                recorder.saveRecording();
                break;
            }
            ctx.finish(kExitOk);
            break;
        }
        case RecordingState::Kind::Error:
            if (uploadReporter)
                break; // the upload's failure, reported by the reporter
            meterTimer.stop();
            endMeterLine();
            if (live)
                live->stop();
            ctx.error(state.message());
            // A microphone given up on ends the run; what was recorded stays.
            if (wasRecording && QFileInfo::exists(recorder.outputPath()) &&
                !state.message().contains(recorder.outputPath()))
                ctx.print(
                    QStringLiteral("The recording so far is kept: %1").arg(recorder.outputPath()));
            ctx.finish(kExitFailure);
            break;
        default:
            break;
        }
    };
    QObject::connect(&recorder, &AudioRecorder::stateChanged, &recorder, handleState);

    QTimer::singleShot(0, &recorder, [&] {
        if (live)
            live->start(recorder, session ? &session->auth() : nullptr);
        recorder.requestStartRecording(video,
                                       target.value_or(ScreenCaptureTargetOption::mainDisplay()));
    });
    return ctx.exec();
}

} // namespace sorv::cli
