// libFuzzer target: arbitrary bytes through the service record decoders.
// They must never crash, hang or read out of bounds, whatever the body.

#include "service/records.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstddef>
#include <cstdint>

using namespace sorv;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    QString error;
    decodePasskeyDate(QString::fromUtf8(bytes), &error);

    const std::optional<QJsonValue> json = parseJsonBody(bytes, &error);
    if (!json)
        return 0;
    Meeting::fromJson(*json, &error);
    Recording::fromJson(*json, &error);
    RecordingsEnvelope::fromJson(*json, &error);
    Passkey::fromJson(*json, &error);
    meetingsFromJson(*json, &error);
    recordingsFromJson(*json, &error);
    passkeysFromJson(*json, &error);
    // Records nested one level down, as in an envelope's items.
    if (json->isObject()) {
        for (const QJsonValue& member : json->toObject()) {
            Recording::fromJson(member, &error);
            Passkey::fromJson(member, &error);
            RecordingSpeaker::fromJson(member, &error);
        }
    }
    return 0;
}
