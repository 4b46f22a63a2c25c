#include "command.h"

#include "core/appinfo.h"
#include "core/settings.h"
#include "core/terminaltext.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

namespace sorv::cli {

namespace {

CommandContext::Writer fileWriter(FILE* stream)
{
    return [stream](const QByteArray& bytes) {
        std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
        std::fflush(stream);
    };
}

QString helpText()
{
    QString text = QStringLiteral(
        "Usage: sorvelandrix [--server URL] [--json] COMMAND [ARGS...]\n\n"
        "Records meetings and calls (microphone and system audio) and hands them to the\n"
        "Sorvelandrix transcription service.\n\n"
        "Global options:\n"
        "  --server URL   use this service origin for this run (also SORVELANDRIX_SERVER)\n"
        "  --json         JSON Lines events on standard output instead of text\n"
        "  --help         show this help\n"
        "  --version      show the version\n\n"
        "Commands:\n");
    for (const Command& c : commands())
        text += QStringLiteral("  %1\n      %2\n").arg(c.usage, c.summary);
    return text;
}

} // namespace

CommandContext::CommandContext()
    : terminal(::isatty(STDOUT_FILENO) == 1), out(fileWriter(stdout)), err(fileWriter(stderr))
{}

void CommandContext::writeOut(const QByteArray& bytes) const
{
    if (!m_outputClosed)
        out(bytes);
}

namespace {
// Back to the start of the line, and clear it.
constexpr char kClearLine[] = "\r\033[K";
} // namespace

void CommandContext::print(const QString& text) const
{
    if (!json)
        writeOut(terminalSafe(text, true).toUtf8() + '\n');
}

void CommandContext::printOver(const QString& text) const
{
    if (!json)
        writeOut((terminal ? QByteArray(kClearLine) : QByteArray()) +
                 terminalSafe(text, true).toUtf8() + '\n');
}

void CommandContext::draw(const QString& text) const
{
    if (!json)
        writeOut(kClearLine + terminalSafe(text).toUtf8());
}

void CommandContext::endDrawnLine() const
{
    if (!json)
        writeOut("\n");
}

void CommandContext::event(const QJsonObject& object) const
{
    if (json)
        writeOut(QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n');
}

void CommandContext::error(const QString& message) const
{
    err(terminalSafe(message, true).toUtf8() + '\n');
    if (json)
        event({{QStringLiteral("event"), QStringLiteral("error")},
               {QStringLiteral("message"), message}});
}

QString CommandContext::commandLine(const QStringList& arguments) const
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_@%+=:,./-]+$"));
    const auto quoted = [](const QString& word) -> QString {
        if (plain.match(word).hasMatch())
            return word;
        QString escaped = word;
        escaped.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
        return QLatin1Char('\'') + escaped + QLatin1Char('\'');
    };
    QStringList words{QStringLiteral("sorvelandrix")};
    if (!server.isEmpty())
        words << QStringLiteral("--server") << quoted(server);
    for (const QString& a : arguments)
        words << quoted(a);
    return words.join(QLatin1Char(' '));
}

int CommandContext::exec()
{
    if (!m_finished)
        m_loop.exec();
    return m_code;
}

void CommandContext::finish(int code)
{
    if (m_finished)
        return;
    m_finished = true;
    m_code = code;
    m_loop.exit(code);
}

int run(const QStringList& arguments, CommandContext& ctx)
{
    QString commandName;
    QString server = qEnvironmentVariable("SORVELANDRIX_SERVER");
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& a = arguments.at(i);
        // Global options are accepted after the command's name too.
        if (a == QLatin1String("--json")) {
            ctx.json = true;
        } else if (a == QLatin1String("--server") || a.startsWith(QLatin1String("--server="))) {
            const QString value = a.size() > 8               ? a.mid(9)
                                  : i + 1 < arguments.size() ? arguments.at(++i)
                                                             : QString();
            if (value.isEmpty()) {
                ctx.error(QStringLiteral("--server needs a URL"));
                return kExitUsage;
            }
            server = value;
            ctx.server = value;
        } else if (!commandName.isEmpty()) {
            ctx.args << a;
        } else if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            ctx.out(helpText().toUtf8());
            return kExitOk;
        } else if (a == QLatin1String("--version")) {
            ctx.out(QStringLiteral("sorvelandrix %1\n").arg(AppInfo::version()).toUtf8());
            return kExitOk;
        } else if (a.startsWith(QLatin1Char('-'))) {
            ctx.error(QStringLiteral("Unknown option %1 (see sorvelandrix --help)").arg(a));
            return kExitUsage;
        } else {
            commandName = a;
        }
    }
    if (commandName.isEmpty()) {
        ctx.out(helpText().toUtf8());
        return kExitUsage;
    }
    if (!server.isEmpty())
        Settings::setServerOverride(server);

    for (const Command& c : commands()) {
        if (c.name != commandName)
            continue;
        if (ctx.args.contains(QLatin1String("--help"))) {
            ctx.out(
                QStringLiteral("Usage: sorvelandrix %1\n%2\n").arg(c.usage, c.summary).toUtf8());
            return kExitOk;
        }
        return c.run(ctx);
    }
    ctx.error(QStringLiteral("Unknown command %1 (see sorvelandrix --help)").arg(commandName));
    return kExitUsage;
}

} // namespace sorv::cli
