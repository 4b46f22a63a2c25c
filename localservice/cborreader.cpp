#include "cborreader.h"

#include <limits>

namespace sorv::local::cbor {

namespace {

constexpr int kMaxDepth = 16;
constexpr std::uint64_t kMaxEntries = 256;

class Reader {
public:
    explicit Reader(QByteArrayView data) : m_data(data) {}

    std::optional<Value> item(int depth)
    {
        if (depth > kMaxDepth)
            return fail("nested too deeply");
        if (m_pos >= m_data.size())
            return fail("truncated");
        const auto initial = static_cast<std::uint8_t>(m_data[m_pos++]);
        const int major = initial >> 5;
        const int info = initial & 0x1f;

        if (major == 7) {
            Value v;
            switch (info) {
            case 20:
            case 21:
                v.type = Value::Type::boolean;
                v.boolean = info == 21;
                return v;
            case 22:
                v.type = Value::Type::null;
                return v;
            default:
                return fail("unsupported simple value or float");
            }
        }
        const std::optional<std::uint64_t> argument = readArgument(info);
        if (!argument)
            return std::nullopt;

        Value v;
        v.argument = *argument;
        switch (major) {
        case 0:
            v.type = Value::Type::unsignedInt;
            return v;
        case 1:
            v.type = Value::Type::negativeInt;
            return v;
        case 2:
        case 3: {
            if (*argument > static_cast<std::uint64_t>(m_data.size() - m_pos))
                return fail("string runs past the end");
            const auto length = static_cast<qsizetype>(*argument);
            v.type = major == 2 ? Value::Type::bytes : Value::Type::text;
            v.bytes = m_data.sliced(m_pos, length).toByteArray();
            m_pos += length;
            return v;
        }
        case 4: {
            if (*argument > kMaxEntries)
                return fail("array too long");
            v.type = Value::Type::array;
            for (std::uint64_t i = 0; i < *argument; ++i) {
                std::optional<Value> element = item(depth + 1);
                if (!element)
                    return std::nullopt;
                v.items.push_back(std::move(*element));
            }
            return v;
        }
        case 5: {
            if (*argument > kMaxEntries)
                return fail("map too long");
            v.type = Value::Type::map;
            for (std::uint64_t i = 0; i < *argument; ++i) {
                std::optional<Value> key = item(depth + 1);
                if (!key)
                    return std::nullopt;
                std::optional<Value> value = item(depth + 1);
                if (!value)
                    return std::nullopt;
                for (const auto& entry : v.entries) {
                    if (entry.first == *key)
                        return fail("duplicate map key");
                }
                v.entries.emplace_back(std::move(*key), std::move(*value));
            }
            return v;
        }
        default: // 6: tags
            return fail("tags are not used here");
        }
    }

    qsizetype position() const { return m_pos; }
    const QString& error() const { return m_error; }

private:
    std::optional<std::uint64_t> readArgument(int info)
    {
        if (info < 24)
            return static_cast<std::uint64_t>(info);
        int bytes = 0;
        switch (info) {
        case 24:
            bytes = 1;
            break;
        case 25:
            bytes = 2;
            break;
        case 26:
            bytes = 4;
            break;
        case 27:
            bytes = 8;
            break;
        default: // 28–30 reserved, 31 indefinite length
            fail("indefinite or reserved length");
            return std::nullopt;
        }
        if (m_data.size() - m_pos < bytes) {
            fail("truncated");
            return std::nullopt;
        }
        std::uint64_t value = 0;
        for (int i = 0; i < bytes; ++i)
            value = (value << 8) | static_cast<std::uint8_t>(m_data[m_pos++]);
        return value;
    }

    std::nullopt_t fail(const char* why)
    {
        if (m_error.isEmpty())
            m_error = QStringLiteral("invalid CBOR: %1").arg(QLatin1String(why));
        return std::nullopt;
    }

    QByteArrayView m_data;
    qsizetype m_pos = 0;
    QString m_error;
};

} // namespace

std::optional<std::int64_t> Value::integer() const
{
    constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (type == Type::unsignedInt && argument <= kMax)
        return static_cast<std::int64_t>(argument);
    if (type == Type::negativeInt && argument <= kMax)
        return -1 - static_cast<std::int64_t>(argument);
    return std::nullopt;
}

bool Value::isText(const char* text) const
{
    return type == Type::text && bytes == text;
}

const Value* Value::find(std::int64_t key) const
{
    if (type != Type::map)
        return nullptr;
    for (const auto& [k, v] : entries) {
        if (k.isInteger() && k.integer() == key)
            return &v;
    }
    return nullptr;
}

const Value* Value::find(const char* key) const
{
    if (type != Type::map)
        return nullptr;
    for (const auto& [k, v] : entries) {
        if (k.isText(key))
            return &v;
    }
    return nullptr;
}

std::optional<Value> decodeFirst(QByteArrayView data, qsizetype* consumed, QString* error)
{
    Reader reader(data);
    std::optional<Value> value = reader.item(0);
    if (!value && error)
        *error = reader.error();
    if (value && consumed)
        *consumed = reader.position();
    return value;
}

std::optional<Value> decode(QByteArrayView data, QString* error)
{
    qsizetype consumed = 0;
    std::optional<Value> value = decodeFirst(data, &consumed, error);
    if (value && consumed != data.size()) {
        if (error)
            *error = QStringLiteral("invalid CBOR: trailing bytes");
        return std::nullopt;
    }
    return value;
}

} // namespace sorv::local::cbor
