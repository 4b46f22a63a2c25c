#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <vector>

namespace sorv::local {

// What the live endpoint does on one connection instead of transcribing,
// for tests: exact messages, closes and drops at chosen points of the
// stream. The end of the stream (the empty frame) is still answered with
// {"finished": true} and a close.
struct LiveScript {
    // Before the "connected" message (right after the token check).
    static constexpr int kBeforeConnected = -1;

    struct Step {
        enum class Action { Send, Close, Drop, Deafen };
        // Runs once this many audio frames have arrived (0: right after
        // "connected").
        int afterFrames = 0;
        Action action = Action::Send;
        QByteArray message;
        int closeCode = 1000;
        QByteArray reason;
        // Send: the message's frames (-1: as the channel cuts them; 0: one).
        qsizetype frameBytes = -1;
    };
    std::vector<Step> steps;

    LiveScript& send(const QJsonObject& message, int afterFrames = 0);
    LiveScript& sendText(const QByteArray& text, int afterFrames = 0);
    // The message in frames of `frameBytes` each (0: all in one frame).
    LiveScript& sendInFrames(const QByteArray& text, qsizetype frameBytes, int afterFrames = 0);
    LiveScript& close(int code, const QByteArray& reason = {}, int afterFrames = 0);
    // Ends the connection without a close frame, as a network failure would.
    LiveScript& drop(int afterFrames = 0);
    // Stops reading: no more audio is taken and no ping answered, and the
    // connection is held until the client goes away.
    LiveScript& deafen(int afterFrames = 0);
};

// One connection to the live endpoint, as the service saw it.
struct LiveSession {
    QString token;
    QStringList languageHints;
    QString transcriptionId; // empty when it never got "connected"
    // "recognition", "conversation" or "script".
    QString source;
    int frames = 0;    // binary messages with audio
    int oddFrames = 0; // of them, not exactly 3 840 bytes
    qint64 bytes = 0;
    int pings = 0;
    bool sentinel = false; // the empty frame that ends the stream
    int closeCodeSent = 0; // 0: none (dropped, or the client closed first)
    int clientCloseCode = 0;
    bool ended = false;
    // The audio itself (16 kHz, 16-bit), with Options::keepLiveAudio.
    QByteArray audio;
};

} // namespace sorv::local
