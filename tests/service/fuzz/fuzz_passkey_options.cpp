// libFuzzer target: arbitrary bytes through the decoding of the service's
// passkey begin answers and options (JSON inside JSON, base64url). Nothing
// may crash, hang or read out of bounds, and whatever base64url decodes must
// survive a round trip.

#include "service/passkeys/base64url.h"
#include "service/passkeys/passkeyprotocol.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace sorv;
using namespace sorv::passkeys;

namespace {

void decodeOptions(const QJsonObject& options)
{
    decodeSignInOptions(options);
    decodeRegistrationOptions(options);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    const PasskeyAuthResult<BeginResult> begun = decodeBeginBody(bytes);
    if (begun.ok())
        decodeOptions(begun.value().options);
    const QJsonDocument doc = QJsonDocument::fromJson(bytes);
    if (doc.isObject())
        decodeOptions(doc.object());
    serverRefusal(400, bytes);

    const QString text = QString::fromUtf8(bytes);
    if (const std::optional<QByteArray> decoded = base64UrlDecode(text)) {
        const std::optional<QByteArray> again = base64UrlDecode(base64UrlEncode(*decoded));
        if (!again || *again != *decoded)
            std::abort();
    }
    serviceOrigin(text);
    return 0;
}
