#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>

namespace sorv {

// The state of a live transcript as a view shows it: idle, connecting,
// active, or an error with its user-facing message. Compared by value: same
// case and, for an error, the same message.
class TranscriptStatus {
    Q_GADGET
    Q_PROPERTY(Kind kind READ kind CONSTANT)
    Q_PROPERTY(QString message READ message CONSTANT)

public:
    enum class Kind { Idle, Connecting, Active, Error };
    Q_ENUM(Kind)

    TranscriptStatus() = default;

    static TranscriptStatus idle() { return TranscriptStatus(Kind::Idle); }
    static TranscriptStatus connecting() { return TranscriptStatus(Kind::Connecting); }
    static TranscriptStatus active() { return TranscriptStatus(Kind::Active); }
    static TranscriptStatus error(const QString& message)
    {
        TranscriptStatus s(Kind::Error);
        s.m_message = message;
        return s;
    }

    Kind kind() const { return m_kind; }
    // Empty unless this is an error.
    QString message() const { return m_message; }

    bool isIdle() const { return m_kind == Kind::Idle; }
    bool isConnecting() const { return m_kind == Kind::Connecting; }
    bool isActive() const { return m_kind == Kind::Active; }
    bool isError() const { return m_kind == Kind::Error; }

    // "idle", "connecting", "active", "error": the names views and the CLI's
    // JSON use.
    QString caseName() const;

    friend bool operator==(const TranscriptStatus&, const TranscriptStatus&) = default;

private:
    explicit TranscriptStatus(Kind kind) : m_kind(kind) {}

    Kind m_kind = Kind::Idle;
    QString m_message;
};

} // namespace sorv

Q_DECLARE_METATYPE(sorv::TranscriptStatus)
