#pragma once

#include <QMetaType>
#include <QObject>
#include <QString>

#include <optional>

namespace sorv {

// Which live transcript the recorder view runs: none, the service's
// (streamed audio, diarised), or the on-device preview.
class TranscriptMode {
    Q_GADGET
    Q_PROPERTY(Kind kind READ kind CONSTANT)

public:
    enum class Kind { None, Server, OnDevice };
    Q_ENUM(Kind)

    TranscriptMode() = default;
    constexpr TranscriptMode(Kind kind) : m_kind(kind) {} // NOLINT(google-explicit-constructor)

    static constexpr TranscriptMode none() { return TranscriptMode(Kind::None); }
    static constexpr TranscriptMode server() { return TranscriptMode(Kind::Server); }
    static constexpr TranscriptMode onDevice() { return TranscriptMode(Kind::OnDevice); }

    constexpr Kind kind() const { return m_kind; }

    // "none", "server", "onDevice".
    QString caseName() const;
    // The inverse of caseName(); nullopt for anything else.
    static std::optional<TranscriptMode> fromCaseName(const QString& name);

    friend constexpr bool operator==(TranscriptMode, TranscriptMode) = default;

private:
    Kind m_kind = Kind::None;
};

} // namespace sorv

Q_DECLARE_METATYPE(sorv::TranscriptMode)
