#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace sorv::local::cbor {

// The service's own reading of the CBOR that WebAuthn uses (attestation
// objects, attestation statements, COSE keys): integers, byte and text
// strings, arrays, maps, booleans and null, with definite lengths only.
// Tags, floats, indefinite lengths, duplicate map keys, nesting deeper than
// 16 levels and containers of more than 256 entries are refused, as is
// anything that runs past the end of its input.
struct Value {
    enum class Type { unsignedInt, negativeInt, bytes, text, array, map, boolean, null };

    Type type = Type::null;
    std::uint64_t argument = 0; // integers: n for n, or for -1 - n
    bool boolean = false;
    QByteArray bytes;                             // byte strings, and text strings as UTF-8
    std::vector<Value> items;                     // arrays
    std::vector<std::pair<Value, Value>> entries; // maps, in their order

    bool isInteger() const { return type == Type::unsignedInt || type == Type::negativeInt; }
    // The integer's value when it fits in 64 signed bits.
    std::optional<std::int64_t> integer() const;
    bool isText(const char* text) const;

    // Map members by integer or text key; null when absent or not a map.
    const Value* find(std::int64_t key) const;
    const Value* find(const char* key) const;

    bool operator==(const Value&) const = default;
};

// One item at the start of `data`; `consumed` receives its encoded length.
std::optional<Value> decodeFirst(QByteArrayView data, qsizetype* consumed,
                                 QString* error = nullptr);
// Exactly one item that spans all of `data`.
std::optional<Value> decode(QByteArrayView data, QString* error = nullptr);

} // namespace sorv::local::cbor
