#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>

namespace sorv {

// The state of a meeting's transcript stream: disconnected, connecting,
// connected, or an error with its text ("HTTP 401", a transport error's
// description, "Invalid URL"). Compared by value: same case and, for an
// error, the same text.
class SSEConnectionStatus {
    Q_GADGET
    Q_PROPERTY(Kind kind READ kind CONSTANT)
    Q_PROPERTY(QString message READ message CONSTANT)
    Q_PROPERTY(QString caseName READ caseName CONSTANT)
    Q_PROPERTY(QString label READ label CONSTANT)
    Q_PROPERTY(bool isConnected READ isConnected CONSTANT)
    Q_PROPERTY(bool isError READ isError CONSTANT)

public:
    enum class Kind { Disconnected, Connecting, Connected, Error };
    Q_ENUM(Kind)

    SSEConnectionStatus() = default;

    static SSEConnectionStatus disconnected() { return SSEConnectionStatus(Kind::Disconnected); }
    static SSEConnectionStatus connecting() { return SSEConnectionStatus(Kind::Connecting); }
    static SSEConnectionStatus connected() { return SSEConnectionStatus(Kind::Connected); }
    static SSEConnectionStatus error(const QString& message)
    {
        SSEConnectionStatus s(Kind::Error);
        s.m_message = message;
        return s;
    }

    Kind kind() const { return m_kind; }
    // Empty unless this is an error.
    QString message() const { return m_message; }

    bool isDisconnected() const { return m_kind == Kind::Disconnected; }
    bool isConnecting() const { return m_kind == Kind::Connecting; }
    bool isConnected() const { return m_kind == Kind::Connected; }
    bool isError() const { return m_kind == Kind::Error; }

    // "disconnected", "connecting", "connected", "error": the names the
    // command line's JSON uses.
    QString caseName() const;
    // What the transcript panel's header says: "Disconnected",
    // "Connecting...", "Connected", "Error".
    QString label() const;

    friend bool operator==(const SSEConnectionStatus&, const SSEConnectionStatus&) = default;

private:
    explicit SSEConnectionStatus(Kind kind) : m_kind(kind) {}

    Kind m_kind = Kind::Disconnected;
    QString m_message;
};

} // namespace sorv

Q_DECLARE_METATYPE(sorv::SSEConnectionStatus)
