#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace sorv {

// Every binary value exchanged with the service about passkeys travels as
// base64url text without padding.
QString base64UrlEncode(const QByteArray& bytes);

// Accepts the text with or without "=" padding; none when it does not
// decode (a value that does not decode counts as missing).
std::optional<QByteArray> base64UrlDecode(const QString& text);

} // namespace sorv
