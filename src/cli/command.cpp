#include "command.h"

#include <QJsonDocument>

#include <cstdio>
#include <unistd.h>

namespace sorv::cli {

namespace {
void writeLine(FILE* stream, const QString& text)
{
    const QByteArray bytes = text.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
    std::fflush(stream);
}
} // namespace

void CommandContext::print(const QString& text) const
{
    if (!json)
        writeLine(stdout, text);
}

void CommandContext::event(const QJsonObject& object) const
{
    if (json)
        writeLine(stdout, QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
}

void CommandContext::error(const QString& message) const
{
    writeLine(stderr, message);
    if (json)
        event({{QStringLiteral("event"), QStringLiteral("error")},
               {QStringLiteral("message"), message}});
}

bool CommandContext::stdoutIsTerminal()
{
    return ::isatty(STDOUT_FILENO) == 1;
}

std::vector<Command>& commandRegistry()
{
    static std::vector<Command> commands;
    return commands;
}

CommandRegistration::CommandRegistration(Command command)
{
    commandRegistry().push_back(std::move(command));
}

} // namespace sorv::cli
