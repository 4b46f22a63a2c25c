// /api/transcriptions: the account's recordings, newest first, as a page.

#include "localservice/endpoints.h"

#include <QJsonArray>

namespace sorv::local {

void addRecordingEndpoints(Router& router, ServiceState& state)
{
    router.add(
        "GET", QStringLiteral("/api/transcriptions"),
        signedIn(state, [&state](const ServiceRequest& request, const Account& account) {
            bool ok = false;
            int limit = request.query.queryItemValue(QStringLiteral("limit")).toInt(&ok);
            if (!ok || limit <= 0)
                limit = 50;
            limit = std::min(limit, 500);
            int offset =
                std::max(0, request.query.queryItemValue(QStringLiteral("offset")).toInt());
            state.completeFinishedProcessing();
            Database& db = state.db();
            const auto total =
                db.query("SELECT COUNT(*) FROM recordings WHERE account_id = ?", {account.id});
            const auto rows =
                db.query("SELECT id, original_filename, status, created_ms, duration_ms, language,"
                         " ai_title FROM recordings WHERE account_id = ?"
                         " ORDER BY created_ms DESC, rowid DESC LIMIT ? OFFSET ?",
                         {account.id, limit, offset});
            const auto orNull = [](const QVariant& v) {
                return v.isNull() ? QJsonValue() : QJsonValue::fromVariant(v);
            };
            QJsonArray items;
            for (const auto& row : rows) {
                items.append(QJsonObject{
                    {QStringLiteral("id"), row[0].toString()},
                    {QStringLiteral("original_filename"), row[1].toString()},
                    {QStringLiteral("status"), row[2].toString()},
                    {QStringLiteral("created_at"), ServiceState::timestamp(row[3].toLongLong())},
                    {QStringLiteral("duration_ms"), orNull(row[4])},
                    {QStringLiteral("language"), orNull(row[5])},
                    {QStringLiteral("ai_title"), orNull(row[6])},
                    {QStringLiteral("batch_id"), QJsonValue()},
                    {QStringLiteral("batch_index"), QJsonValue()},
                    {QStringLiteral("speaker_list"), QJsonArray()},
                });
            }
            return ServiceResponse::json(
                200, QJsonObject{
                         {QStringLiteral("items"), items},
                         {QStringLiteral("total"), total.empty() ? 0 : total[0][0].toLongLong()},
                         {QStringLiteral("limit"), limit},
                         {QStringLiteral("offset"), offset},
                     });
        }));
}

} // namespace sorv::local
