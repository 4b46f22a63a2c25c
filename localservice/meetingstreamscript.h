#pragma once

#include <QByteArray>
#include <QJsonObject>

#include <chrono>
#include <vector>

namespace sorv::local {

// What a meeting's event stream sends on one connection instead of the
// bot's conversation, for tests: exact bytes in chunks of the test's
// choosing (a line may be cut anywhere), pauses, and how the stream ends.
// It runs after the token and the meeting were checked, once the 200 and
// its headers are out. A script that runs out without end() or drop()
// leaves the stream open and quiet until the client leaves.
struct MeetingStreamScript {
    struct Step {
        enum class Action { Write, Pause, End, Drop };
        Action action = Action::Write;
        QByteArray bytes;
        std::chrono::milliseconds pause{0};
    };
    std::vector<Step> steps;

    // One payload as an event of its own: "data: {compact JSON}\n\n".
    MeetingStreamScript& data(const QJsonObject& payload);
    // These bytes as they are, as one chunk.
    MeetingStreamScript& raw(const QByteArray& bytes);
    MeetingStreamScript& pause(std::chrono::milliseconds delay);
    // The last chunk: the stream ends cleanly.
    MeetingStreamScript& end();
    // The connection is cut without the last chunk.
    MeetingStreamScript& drop();
};

} // namespace sorv::local
