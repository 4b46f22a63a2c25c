#include "base64url.h"

namespace sorv {

QString base64UrlEncode(const QByteArray& bytes)
{
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

std::optional<QByteArray> base64UrlDecode(const QString& text)
{
    QByteArray standard;
    standard.reserve(text.size() + 3);
    for (const QChar c : text) {
        // Outside ASCII nothing is base64; toLatin1() would turn it into "?".
        if (c.unicode() > 0x7f)
            return std::nullopt;
        const char ch = static_cast<char>(c.unicode());
        standard.append(ch == '-' ? '+' : ch == '_' ? '/' : ch);
    }
    while (standard.size() % 4 != 0)
        standard.append('=');
    QByteArray::FromBase64Result decoded =
        QByteArray::fromBase64Encoding(standard, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    return std::move(decoded.decoded);
}

} // namespace sorv
