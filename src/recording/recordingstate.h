#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>

#include <optional>

namespace sorv {

// The state of a recording session, an enumeration with payloads. Compared by
// value: same kind and equal payloads.
class RecordingState {
    Q_GADGET
    Q_PROPERTY(Kind kind READ kind CONSTANT)
    Q_PROPERTY(double progress READ progress CONSTANT)
    Q_PROPERTY(QString name READ name CONSTANT)
    Q_PROPERTY(QString id READ idOrEmpty CONSTANT)
    Q_PROPERTY(QString message READ message CONSTANT)

public:
    enum class Kind {
        Idle,
        Preparing,
        Recording,
        Stopping,
        PendingSave,
        Uploading,
        Uploaded,
        Error
    };
    Q_ENUM(Kind)

    RecordingState() = default;

    static RecordingState idle() { return RecordingState(Kind::Idle); }
    static RecordingState preparing() { return RecordingState(Kind::Preparing); }
    static RecordingState recording() { return RecordingState(Kind::Recording); }
    static RecordingState stopping() { return RecordingState(Kind::Stopping); }
    static RecordingState pendingSave() { return RecordingState(Kind::PendingSave); }
    static RecordingState uploading(double progress)
    {
        RecordingState s(Kind::Uploading);
        s.m_progress = progress;
        return s;
    }
    static RecordingState uploaded(const QString& name, std::optional<QString> id)
    {
        RecordingState s(Kind::Uploaded);
        s.m_text = name;
        s.m_id = std::move(id);
        return s;
    }
    static RecordingState error(const QString& message)
    {
        RecordingState s(Kind::Error);
        s.m_text = message;
        return s;
    }

    Kind kind() const { return m_kind; }
    double progress() const { return m_progress; }
    QString name() const { return m_kind == Kind::Uploaded ? m_text : QString(); }
    const std::optional<QString>& id() const { return m_id; }
    QString idOrEmpty() const { return m_id.value_or(QString()); }
    QString message() const { return m_kind == Kind::Error ? m_text : QString(); }

    bool isRecording() const { return m_kind == Kind::Recording; }
    bool isProcessing() const
    {
        return m_kind == Kind::Uploading || m_kind == Kind::Preparing || m_kind == Kind::Stopping ||
               m_kind == Kind::PendingSave;
    }

    // "idle", "preparing", "recording", "stopping", "pendingSave", "uploading",
    // "uploaded", "error": the names views and the CLI's JSON use.
    QString caseName() const;

    friend bool operator==(const RecordingState&, const RecordingState&) = default;

private:
    explicit RecordingState(Kind kind) : m_kind(kind) {}

    Kind m_kind = Kind::Idle;
    double m_progress = 0.0;
    QString m_text; // name (uploaded) or message (error)
    std::optional<QString> m_id;
};

} // namespace sorv

Q_DECLARE_METATYPE(sorv::RecordingState)
