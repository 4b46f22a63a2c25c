#pragma once

#include "cli/command.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace sorv {
class AudioRecorder;
class AuthManager;
class LocalTranscriptManager;
class ServerTranscriptManager;
} // namespace sorv

namespace sorv::cli {

class LiveTranscriptReporter;

// `record --live`: the live transcript that runs with one recording, from
// the service or on the device, shown by a LiveTranscriptReporter.
class LiveTranscriptRun {
public:
    enum class Mode { Server, OnDevice };
    // "server" or "on-device".
    static std::optional<Mode> parseMode(const QString& text);

    // `language` empty: the stored speech language. `grammarFile` (on the
    // device only, for tests): decode these phrases only.
    LiveTranscriptRun(const CommandContext& ctx, Mode mode, QString language,
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
    void stopAll();

    const CommandContext& m_ctx;
    Mode m_mode;
    QString m_language;
    std::unique_ptr<ServerTranscriptManager> m_server;
    std::unique_ptr<LocalTranscriptManager> m_local;
    std::unique_ptr<LiveTranscriptReporter> m_reporter;
    bool m_ended = false;
};

} // namespace sorv::cli
