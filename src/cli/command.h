#pragma once

#include "audio/capturebackend.h"
#include "audio/recordingengine.h"
#include "core/delayedcall.h"

#include <QByteArray>
#include <QEventLoop>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

namespace sorv::cli {

// Exit statuses.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// What every command gets: its own arguments (after the command name, global
// options removed) and the output conventions of the command line. The
// outputs are replaceable so that the commands run in tests without a child
// process.
class CommandContext {
public:
    using Writer = std::function<void(const QByteArray&)>;

    CommandContext();

    QStringList args;
    bool json = false;
    // The --server given on the command line (empty: none), so the commands
    // printed for the user to run next reach the same service.
    QString server;
    // Standard output is a terminal: progress bars and lines rewritten in place.
    bool terminal = false;
    // The capture engine `record` uses (empty: the real one with the
    // application's timing). Tests run the real engine with shorter timing.
    std::function<std::unique_ptr<RecordingEngine>()> makeRecordingEngine;
    // The sound server `devices` asks (empty: the real one).
    std::shared_ptr<CaptureBackend> captureBackend;
    // Where the commands' waits (a retry's pause) come from (empty: real
    // timers). Tests move that time themselves.
    DelayedCall delays;

    // Human text goes out with every control character replaced but its
    // line ends (terminalSafe): the service's words (transcripts, names,
    // titles, error details) are printed through these and nothing else, so
    // none of them can drive the terminal. The only escapes written are the
    // ones below, of our own.

    // Human text on standard output (ignored with --json).
    void print(const QString& text) const;
    // The same over the line drawn in place: on a terminal the line is
    // cleared first.
    void printOver(const QString& text) const;
    // The line drawn in place (a progress bar, the level meter, the words
    // being spoken), for a terminal: written over the previous one, without
    // a line end (ignored with --json).
    void draw(const QString& text) const;
    // Leaves the line drawn in place as it stands and moves below it.
    void endDrawnLine() const;
    // One JSON Lines event on standard output (only with --json); JSON
    // escapes the control characters itself.
    void event(const QJsonObject& object) const;
    // An error on standard error; with --json also an "error" event.
    void error(const QString& message) const;

    // The reader of standard output went away (a closed pipe): nothing more
    // is written there.
    void closeOutput() { m_outputClosed = true; }

    // "sorvelandrix [--server URL] ARGS": a command the user can run as shown
    // (arguments quoted for the shell where they need it).
    QString commandLine(const QStringList& arguments) const;

    // Runs the command's event loop until finish().
    int exec();
    void finish(int code);

    // Where the text goes (standard output and error by default).
    Writer out;
    Writer err;

private:
    void writeOut(const QByteArray& bytes) const;
    bool m_outputClosed = false;
    QEventLoop m_loop;
    int m_code = kExitOk;
    bool m_finished = false;
};

using CommandFn = std::function<int(CommandContext&)>;

struct Command {
    QString name;
    QString usage;   // e.g. "mix MIC.wav SYSTEM.wav OUT.wav"
    QString summary; // one line for --help
    CommandFn run;
};

// Every command, in the order --help lists them.
const std::vector<Command>& commands();

// The whole command line after the program's name: global options, the
// command and its arguments. Returns the exit status.
int run(const QStringList& arguments, CommandContext& ctx);

} // namespace sorv::cli
