#pragma once

#include <QMap>
#include <QString>

#include <cstdint>
#include <variant>

namespace sorv {

// What the live-transcript service says, reduced to the protocol's events.
// The streamer reports these raw; the transcript model folds them into
// segments.
namespace LiveEvent {

struct Connected {
    QString transcriptionId;
    friend bool operator==(const Connected&, const Connected&) = default;
};

struct Segment {
    QString speaker;
    QString text;
    std::int64_t startMs = 0;
    std::int64_t endMs = 0;
    bool isFinal = false;
    friend bool operator==(const Segment&, const Segment&) = default;
};

// Interim text of one speaker; note the order: text first.
struct Partial {
    QString text;
    QString speaker;
    friend bool operator==(const Partial&, const Partial&) = default;
};

struct SpeakerNames {
    QMap<QString, QString> names;
    friend bool operator==(const SpeakerNames&, const SpeakerNames&) = default;
};

// "connecting" on each (re)connect, the service's own statuses, "completed".
struct Status {
    QString status;
    friend bool operator==(const Status&, const Status&) = default;
};

// A user-facing message: connection problems and the service's errors.
// Transient: the streamer is working through it by itself (reconnecting,
// refreshing the token); the stream goes on.
struct Error {
    QString message;
    bool transient = false;
    friend bool operator==(const Error&, const Error&) = default;
};

// An orderly close, or the end after a failed authentication.
struct Disconnected {
    friend bool operator==(const Disconnected&, const Disconnected&) = default;
};

} // namespace LiveEvent

using LiveTranscriptEvent =
    std::variant<LiveEvent::Connected, LiveEvent::Segment, LiveEvent::Partial,
                 LiveEvent::SpeakerNames, LiveEvent::Status, LiveEvent::Error,
                 LiveEvent::Disconnected>;

// One line for logs and test failures, e.g. `partial("Hel", "1")`.
QString describe(const LiveTranscriptEvent& event);

} // namespace sorv
