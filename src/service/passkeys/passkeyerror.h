#pragma once

#include <QString>

#include <utility>
#include <variant>

namespace sorv {

// How a passkey ceremony with the authenticator failed. The description is
// the text shown to the user.
class PasskeyError {
public:
    enum class Kind { authorizationFailed, invalidServerOptions, cancelled, notAvailable };

    static PasskeyError authorizationFailed(QString message)
    {
        return {Kind::authorizationFailed, std::move(message)};
    }
    static PasskeyError invalidServerOptions(QString message)
    {
        return {Kind::invalidServerOptions, std::move(message)};
    }
    static PasskeyError cancelled() { return {Kind::cancelled, {}}; }
    static PasskeyError notAvailable() { return {Kind::notAvailable, {}}; }

    Kind kind() const { return m_kind; }
    const QString& message() const { return m_message; }
    QString description() const;

    bool operator==(const PasskeyError&) const = default;

private:
    PasskeyError(Kind kind, QString message) : m_kind(kind), m_message(std::move(message)) {}
    Kind m_kind;
    QString m_message;
};

// How a passkey exchange with the service failed. `transport` carries the
// network layer's own error text unchanged.
class PasskeyAuthError {
public:
    enum class Kind { badResponse, server, notLoggedIn, cancelled, transport };

    static PasskeyAuthError badResponse(QString message)
    {
        return {Kind::badResponse, std::move(message)};
    }
    static PasskeyAuthError server(QString message) { return {Kind::server, std::move(message)}; }
    static PasskeyAuthError notLoggedIn() { return {Kind::notLoggedIn, {}}; }
    static PasskeyAuthError cancelled() { return {Kind::cancelled, {}}; }
    static PasskeyAuthError transport(QString message)
    {
        return {Kind::transport, std::move(message)};
    }

    Kind kind() const { return m_kind; }
    const QString& message() const { return m_message; }
    QString description() const;

    bool operator==(const PasskeyAuthError&) const = default;

private:
    PasskeyAuthError(Kind kind, QString message) : m_kind(kind), m_message(std::move(message)) {}
    Kind m_kind;
    QString m_message;
};

// A passkey operation fails with either: errors of the ceremony pass
// through the service exchange unchanged.
using PasskeyFailure = std::variant<PasskeyError, PasskeyAuthError>;
QString describe(const PasskeyFailure& failure);

// A value or the error that stopped it.
template <typename T, typename E> class Outcome {
public:
    Outcome(T value) : m_data(std::in_place_index<0>, std::move(value)) {} // NOLINT
    Outcome(E error) : m_data(std::in_place_index<1>, std::move(error)) {} // NOLINT

    bool ok() const { return m_data.index() == 0; }
    const T& value() const { return std::get<0>(m_data); }
    T& value() { return std::get<0>(m_data); }
    const E& error() const { return std::get<1>(m_data); }

private:
    std::variant<T, E> m_data;
};

template <typename T> using PasskeyResult = Outcome<T, PasskeyError>;
template <typename T> using PasskeyAuthResult = Outcome<T, PasskeyAuthError>;
template <typename T> using PasskeyOperationResult = Outcome<T, PasskeyFailure>;

} // namespace sorv
