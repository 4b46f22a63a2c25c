#pragma once

#include <QString>

#include <optional>
#include <utility>
#include <variant>

namespace sorv {

// The meeting client's error; its description is the text shown to the user.
// `transport` and `decoding` carry errors of the network layer and the JSON
// decoder unchanged.
class APIError {
public:
    enum class Kind { http, server, invalidURL, noResponse, transport, decoding };

    static APIError http(int status) { return APIError(Kind::http, status, {}); }
    static APIError server(QString message)
    {
        return APIError(Kind::server, 0, std::move(message));
    }
    static APIError invalidURL() { return APIError(Kind::invalidURL, 0, {}); }
    static APIError noResponse() { return APIError(Kind::noResponse, 0, {}); }
    static APIError transport(QString message)
    {
        return APIError(Kind::transport, 0, std::move(message));
    }
    static APIError decoding(QString message)
    {
        return APIError(Kind::decoding, 0, std::move(message));
    }

    Kind kind() const { return m_kind; }
    int status() const { return m_status; }
    QString description() const;

    bool operator==(const APIError&) const = default;

private:
    APIError(Kind kind, int status, QString message)
        : m_kind(kind), m_status(status), m_message(std::move(message))
    {}
    Kind m_kind;
    int m_status;
    QString m_message;
};

// A value or the error that stopped it.
template <typename T> class ApiResult {
public:
    ApiResult(T value) : m_data(std::move(value)) {}        // NOLINT(google-explicit-constructor)
    ApiResult(APIError error) : m_data(std::move(error)) {} // NOLINT(google-explicit-constructor)

    bool ok() const { return std::holds_alternative<T>(m_data); }
    const T& value() const { return std::get<T>(m_data); }
    const APIError& error() const { return std::get<APIError>(m_data); }

private:
    std::variant<T, APIError> m_data;
};

} // namespace sorv
