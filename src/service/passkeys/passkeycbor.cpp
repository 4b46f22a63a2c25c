#include "passkeycbor.h"

#include <cbor.h>

#include <cstdlib>
#include <memory>

namespace sorv {

namespace {

struct CborRelease {
    void operator()(cbor_item_t* item) const { cbor_decref(&item); }
};
using CborItem = std::unique_ptr<cbor_item_t, CborRelease>;

const unsigned char* bytesOf(const QByteArray& a)
{
    return reinterpret_cast<const unsigned char*>(a.constData());
}

// cbor_map_add takes its own references; the builders' references are
// handed over with cbor_move.
bool addPair(cbor_item_t* map, cbor_item_t* key, cbor_item_t* value)
{
    if (!key || !value) {
        if (key)
            cbor_decref(&key);
        if (value)
            cbor_decref(&value);
        return false;
    }
    return cbor_map_add(map, cbor_pair{cbor_move(key), cbor_move(value)});
}

std::optional<QByteArray> serialize(const cbor_item_t* item)
{
    unsigned char* buffer = nullptr;
    size_t capacity = 0;
    const size_t length = cbor_serialize_alloc(item, &buffer, &capacity);
    if (length == 0) {
        std::free(buffer);
        return std::nullopt;
    }
    QByteArray out(reinterpret_cast<const char*>(buffer), static_cast<qsizetype>(length));
    std::free(buffer);
    return out;
}

} // namespace

QByteArray encodeCoseEs256Key(const QByteArray& x, const QByteArray& y)
{
    CborItem map(cbor_new_definite_map(5));
    if (!map)
        return {};
    const bool built =
        addPair(map.get(), cbor_build_uint8(1), cbor_build_uint8(2)) &&   // kty: EC2
        addPair(map.get(), cbor_build_uint8(3), cbor_build_negint8(6)) && // alg: ES256 (-7)
        addPair(map.get(), cbor_build_negint8(0), cbor_build_uint8(1)) && // crv: P-256
        addPair(map.get(), cbor_build_negint8(1), cbor_build_bytestring(bytesOf(x), x.size())) &&
        addPair(map.get(), cbor_build_negint8(2), cbor_build_bytestring(bytesOf(y), y.size()));
    if (!built)
        return {};
    return serialize(map.get()).value_or(QByteArray());
}

std::optional<QByteArray> encodeAttestationObject(const QString& format,
                                                  const QByteArray& statementCbor,
                                                  const QByteArray& authenticatorData)
{
    cbor_load_result loaded{};
    CborItem statement(cbor_load(bytesOf(statementCbor), statementCbor.size(), &loaded));
    if (!statement || loaded.error.code != CBOR_ERR_NONE ||
        loaded.read != static_cast<size_t>(statementCbor.size()) || !cbor_isa_map(statement.get()))
        return std::nullopt;

    CborItem object(cbor_new_definite_map(3));
    if (!object)
        return std::nullopt;
    const QByteArray fmt = format.toUtf8();
    // Canonical order: shorter keys first.
    const bool built =
        addPair(object.get(), cbor_build_string("fmt"),
                cbor_build_stringn(fmt.constData(), static_cast<size_t>(fmt.size()))) &&
        addPair(object.get(), cbor_build_string("attStmt"), cbor_incref(statement.get())) &&
        addPair(object.get(), cbor_build_string("authData"),
                cbor_build_bytestring(bytesOf(authenticatorData), authenticatorData.size()));
    if (!built)
        return std::nullopt;
    return serialize(object.get());
}

std::optional<QByteArray> unwrapCborByteString(const QByteArray& cbor)
{
    cbor_load_result loaded{};
    CborItem item(cbor_load(bytesOf(cbor), cbor.size(), &loaded));
    if (!item || loaded.error.code != CBOR_ERR_NONE ||
        loaded.read != static_cast<size_t>(cbor.size()) || !cbor_isa_bytestring(item.get()) ||
        !cbor_bytestring_is_definite(item.get()))
        return std::nullopt;
    return QByteArray(reinterpret_cast<const char*>(cbor_bytestring_handle(item.get())),
                      static_cast<qsizetype>(cbor_bytestring_length(item.get())));
}

} // namespace sorv
