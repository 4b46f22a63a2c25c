#pragma once

#include "transcript/transcriptmode.h"
#include "transcript/transcriptstatus.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace sorv {

class AudioRecorder;
class AuthManager;
class LocalTranscriptManager;
class ServerTranscriptManager;

// The live transcript of one recording, as the window and `record --live`
// both run it: the service's transcript (or the on-device preview) in one
// language, started with the recording and wound down with it.
//
// The service's transcript is watched: when it has not come up after
// kFallbackChecks checks, or failed for good, the on-device preview is
// offered (fallbackOffered); useOnDevice() switches to it. The two
// transcripts never run together.
//
// The recording's end winds the transcript down: the service is told that
// the audio ended and gets up to kWindDown for its last words, which stay
// in the segments; the preview stops at once. Lives on the main thread.
class LiveTranscriptSession : public QObject {
    Q_OBJECT
    Q_MOC_INCLUDE("transcript/localtranscriptmanager.h")
    Q_MOC_INCLUDE("transcript/servertranscriptmanager.h")

public:
    // Runs fn once `delay` has passed, on this thread (tests move it by hand).
    using Schedule = std::function<void(std::chrono::milliseconds delay, std::function<void()> fn)>;

    // Empty members get the real ones.
    struct Parts {
        std::unique_ptr<ServerTranscriptManager> server;
        std::unique_ptr<LocalTranscriptManager> local;
        Schedule schedule;
    };

    static constexpr int kFallbackChecks = 120;
    static constexpr std::chrono::milliseconds kFallbackCheckInterval{100};
    static constexpr std::chrono::milliseconds kWindDown{2000};

    // The language when none is stored: a video call's differs.
    static inline const QString kAudioLanguageDefault = QStringLiteral("af-ZA");
    static inline const QString kVideoLanguageDefault = QStringLiteral("it-IT");
    static QString defaultLanguage(bool video);
    // The stored speech language, else the default for the mode.
    static QString storedLanguage(bool video);

    // An error that the streamer works through by itself (it reconnects,
    // or refreshes the session): the fallback watch goes on.

    explicit LiveTranscriptSession(QObject* parent = nullptr);
    explicit LiveTranscriptSession(Parts parts, QObject* parent = nullptr);
    ~LiveTranscriptSession() override;

    ServerTranscriptManager& server() const { return *m_server; }
    LocalTranscriptManager& local() const { return *m_local; }

    // None while nothing runs (also while the service says its last words).
    TranscriptMode mode() const { return m_mode; }
    bool isRunning() const { return m_mode != TranscriptMode::none(); }
    // The status of the transcript that runs (idle when none does).
    TranscriptStatus status() const;
    bool fallbackOffered() const { return m_fallbackOffered; }

    // The language of this run; a running transcript starts again in a new
    // one. Nothing is stored.
    const QString& language() const { return m_language; }
    void setLanguage(const QString& language);

    // Starts with the recording's mixed audio, the service's transcript
    // speaking with the session's token.
    void start(AudioRecorder& recorder, AuthManager& auth,
               TranscriptMode mode = TranscriptMode::server());
    void start(AudioRecorder& recorder, TranscriptMode mode);
    // The service's transcript afresh, with a new watch.
    void retryServer();
    // From the service's transcript to the on-device preview.
    void useOnDevice();
    // The recording is over: calls `then` once the last words are in (at
    // once but for a service still streaming). False when nothing ran.
    bool windDown(std::function<void()> then = {});
    // Ends it at once (hidden, signed out, the recording failed).
    void stop();

Q_SIGNALS:
    void modeChanged();
    void languageChanged();
    void fallbackOfferedChanged();
    // The running transcript's status, or which one runs, changed.
    void statusChanged();

private:
    void startServer();
    void detach();
    void checkFallback(std::uint64_t watch, int check);
    void setMode(TranscriptMode mode);
    void setFallbackOffered(bool v);

    std::unique_ptr<ServerTranscriptManager> m_server;
    std::unique_ptr<LocalTranscriptManager> m_local;
    Schedule m_schedule;
    QPointer<AudioRecorder> m_recorder;
    QPointer<AuthManager> m_auth;
    TranscriptMode m_mode;
    QString m_language;
    bool m_fallbackOffered = false;
    // Bumped by every start and stop: a watch that is no longer the
    // current one ends at its next check.
    std::uint64_t m_watch = 0;
    // The watch that saw the transcript come up: a later failure resumes it.
    std::uint64_t m_watchSawActive = 0;
};

} // namespace sorv
