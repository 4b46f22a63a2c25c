#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

namespace sorv::cli {

// What every command gets: its own arguments (after the command name, global
// options removed) and the output conventions of the CLI.
struct CommandContext {
    QStringList args;
    bool json = false;

    // Human text on standard output (ignored with --json).
    void print(const QString& text) const;
    // One JSON Lines event on standard output (only with --json).
    void event(const QJsonObject& object) const;
    // An error on standard error; with --json also an "error" event.
    void error(const QString& message) const;
    // True when standard output is a terminal (progress bars, live meters).
    static bool stdoutIsTerminal();
};

using CommandFn = std::function<int(CommandContext&)>;

struct Command {
    QString name;
    QString usage;   // e.g. "mix MIC.wav SYSTEM.wav OUT.wav"
    QString summary; // one line for --help
    CommandFn run;
};

// Commands register themselves from their own file with a static
// CommandRegistration; the CLI's sources are compiled into the executable
// directly, so none is dropped by the linker.
std::vector<Command>& commandRegistry();

struct CommandRegistration {
    explicit CommandRegistration(Command command);
};

// Exit statuses.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

} // namespace sorv::cli
