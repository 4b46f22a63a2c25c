// sorvelandrix passkeys list|add [--label L]|remove ID, and the passkey
// sign-in of sorvelandrix login --passkey.

#include "cli/clisession.h"
#include "cli/command.h"
#include "cli/commands.h"
#include "cli/passkeyterminal.h"
#include "cli/terminalprompt.h"
#include "service/authmanager.h"
#include "service/passkeys/passkeymanager.h"
#include "service/passkeys/passkeyoperations.h"
#include "service/passkeys/passkeysmodel.h"

#include <QJsonArray>
#include <QJsonObject>

namespace sorv::cli {

namespace {

QJsonObject passkeyEvent(const Passkey& p)
{
    return {{QStringLiteral("event"), QStringLiteral("passkey")},
            {QStringLiteral("id"), p.id},
            {QStringLiteral("label"), p.label ? QJsonValue(*p.label) : QJsonValue()},
            {QStringLiteral("createdAt"), p.createdAt.toString(Qt::ISODateWithMs)},
            {QStringLiteral("lastUsedAt"),
             p.lastUsedAt ? QJsonValue(p.lastUsedAt->toString(Qt::ISODateWithMs)) : QJsonValue()},
            {QStringLiteral("transports"),
             QJsonArray::fromStringList(p.transports.value_or(QStringList()))}};
}

void printPasskey(const CommandContext& ctx, const Passkey& p)
{
    // The texts of the passkeys sheet's rows.
    ctx.print(QStringLiteral("%1  %2  %3  %4")
                  .arg(QString::number(p.id).rightJustified(4),
                       PasskeysModel::titleOf(p).leftJustified(20), PasskeysModel::addedText(p),
                       PasskeysModel::lastUsedText(p)));
    ctx.event(passkeyEvent(p));
}

void fail(CommandContext& ctx, const QString& message)
{
    ctx.error(message);
    ctx.finish(kExitFailure);
}

int list(CommandContext& ctx)
{
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    PasskeyManager passkeys;
    PasskeyOperations operations(session.auth(), passkeys);
    operations.listPasskeys(
        &session.auth(), [&ctx](const PasskeyOperationResult<QList<Passkey>>& r) {
            if (!r.ok()) {
                fail(ctx, describe(r.error()));
                return;
            }
            if (r.value().isEmpty())
                ctx.print(
                    QStringLiteral("No passkeys yet. Add your first passkey with: %1")
                        .arg(ctx.commandLine({QStringLiteral("passkeys"), QStringLiteral("add")})));
            for (const Passkey& p : r.value())
                printPasskey(ctx, p);
            ctx.finish(kExitOk);
        });
    return ctx.exec();
}

int add(CommandContext& ctx, const QStringList& args)
{
    std::optional<QString> label;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args.at(i);
        if (a == QLatin1String("--label") && i + 1 < args.size())
            label = args.at(++i);
        else if (a.startsWith(QLatin1String("--label=")))
            label = a.mid(8);
        else {
            ctx.error(QStringLiteral("Usage: sorvelandrix passkeys add [--label L]"));
            return kExitUsage;
        }
    }
    if (label && label->trimmed().isEmpty())
        label.reset();
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    PasskeyManager passkeys;
    PasskeyOperations operations(session.auth(), passkeys);
    attachPasskeyPrompts(passkeys, ctx);
    operations.registerPasskey(label, &session.auth(),
                               [&ctx](const PasskeyOperationResult<Passkey>& r) {
                                   if (!r.ok()) {
                                       fail(ctx, describe(r.error()));
                                       return;
                                   }
                                   ctx.print(QStringLiteral("Passkey added."));
                                   printPasskey(ctx, r.value());
                                   ctx.finish(kExitOk);
                               });
    return ctx.exec();
}

int remove(CommandContext& ctx, const QStringList& args)
{
    bool isNumber = false;
    const qint64 id = args.size() == 1 ? args.at(0).toLongLong(&isNumber) : 0;
    if (!isNumber) {
        ctx.error(QStringLiteral("Usage: sorvelandrix passkeys remove ID"));
        return kExitUsage;
    }
    CliSession session(ctx);
    if (!session.requireSignedIn())
        return kExitFailure;
    PasskeyManager passkeys;
    PasskeyOperations operations(session.auth(), passkeys);
    operations.deletePasskey(id, &session.auth(),
                             [&ctx, id](const std::optional<PasskeyFailure>& e) {
                                 if (e) {
                                     fail(ctx, describe(*e));
                                     return;
                                 }
                                 ctx.print(QStringLiteral("Passkey %1 removed.").arg(id));
                                 ctx.event({{QStringLiteral("event"), QStringLiteral("removed")},
                                            {QStringLiteral("id"), id}});
                                 ctx.finish(kExitOk);
                             });
    return ctx.exec();
}

int runPasskeys(CommandContext& ctx)
{
    const QString sub = ctx.args.value(0);
    const QStringList rest = ctx.args.mid(1);
    if (sub == QLatin1String("list") && rest.isEmpty())
        return list(ctx);
    if (sub == QLatin1String("add"))
        return add(ctx, rest);
    if (sub == QLatin1String("remove"))
        return remove(ctx, rest);
    ctx.error(QStringLiteral("Usage: sorvelandrix passkeys list|add [--label L]|remove ID"));
    return kExitUsage;
}

} // namespace

Command passkeysCommand()
{
    return {
        QStringLiteral("passkeys"), QStringLiteral("passkeys list|add [--label L]|remove ID"),
        QStringLiteral("list, add (with your security key) or remove the passkeys of your account"),
        runPasskeys};
}

void attachPasskeyPrompts(PasskeyManager& passkeys, const CommandContext& ctx)
{
    QObject::connect(&passkeys, &PasskeyManager::isWaitingForTouchChanged, &passkeys,
                     [&passkeys, &ctx] {
                         if (!passkeys.isWaitingForTouch())
                             return;
                         ctx.err(QStringLiteral("Touch your security key…\n").toUtf8());
                         ctx.event({{QStringLiteral("event"), QStringLiteral("touch")}});
                     });
    // Queued: the prompt blocks this thread, which must not happen inside
    // the main-thread hand-over that raised the question.
    QObject::connect(
        &passkeys, &PasskeyManager::isPinRequestedChanged, &passkeys,
        [&passkeys, &ctx] {
            if (!passkeys.isPinRequested())
                return;
            ctx.event({{QStringLiteral("event"), QStringLiteral("pin")},
                       {QStringLiteral("attemptsLeft"), passkeys.pinAttemptsLeft()}});
            const QByteArray question =
                passkeys.pinAttemptsLeft() >= 0
                    ? QStringLiteral("PIN of your security key (%1 attempts left): ")
                          .arg(passkeys.pinAttemptsLeft())
                          .toUtf8()
                    : QByteArrayLiteral("PIN of your security key: ");
            const std::optional<QString> pin = prompt(question.constData(), false);
            if (pin && !pin->isEmpty())
                passkeys.providePin(*pin);
            else
                passkeys.cancelPinRequest();
        },
        Qt::QueuedConnection);
}

int signInWithPasskey(CommandContext& ctx, AuthManager& auth, const QString& email)
{
    PasskeyManager passkeys;
    PasskeyOperations operations(auth, passkeys);
    attachPasskeyPrompts(passkeys, ctx);
    operations.loginWithPasskey(email);
    return ctx.exec();
}

} // namespace sorv::cli
