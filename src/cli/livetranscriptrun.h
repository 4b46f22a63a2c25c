#pragma once

#include "cli/command.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace sorv {
class AudioRecorder;
class AuthManager;
class LiveTranscriptSession;
} // namespace sorv

namespace sorv::cli {

class LiveTranscriptReporter;

// `record --live`: the live transcript session of one recording, from the
// service or on the device, shown by a LiveTranscriptReporter.
class LiveTranscriptRun {
public:
    enum class Mode { Server, OnDevice };
    // "server" or "on-device".
    static std::optional<Mode> parseMode(const QString& text);

    // `language` empty: the stored speech language, else the default for a
    // video or an audio recording. `grammarFile` (on the device only, for
    // tests): decode these phrases only.
    LiveTranscriptRun(const CommandContext& ctx, Mode mode, const QString& language, bool video,
                      const QString& grammarFile = {});
    ~LiveTranscriptRun();
    LiveTranscriptRun(const LiveTranscriptRun&) = delete;
    LiveTranscriptRun& operator=(const LiveTranscriptRun&) = delete;

    Mode mode() const { return m_mode; }

    // With the recording, before it starts; the service's transcript needs
    // the session.
    void start(AudioRecorder& recorder, AuthManager* auth);

    // The segment being spoken as a line ("" when none), for a terminal's
    // status line, and the call that asks for that line to be drawn again.
    QString openLine() const;
    void setRedraw(std::function<void()> redraw);

    // The recording is over: ends the transcript and calls `then` once its
    // last words are in (the service's, after its stream ended or 2 s at
    // most). False when it had already ended; `then` is not called then.
    bool windDown(std::function<void()> then);
    // Ends it at once (the recording failed).
    void stop();

private:
    Mode m_mode;
    std::unique_ptr<LiveTranscriptSession> m_session;
    std::unique_ptr<LiveTranscriptReporter> m_reporter;
};

} // namespace sorv::cli
