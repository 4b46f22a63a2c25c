#pragma once

#include "audio/audiotypes.h"

#include <QString>

#include <functional>
#include <memory>
#include <variant>

namespace sorv {

// What a recognition task reports while its utterance goes on: the whole
// utterance so far (each result replaces the previous one), and whether it is
// the last result of the task.
struct SpeechRecognitionResult {
    QString text;
    bool isFinal = false;

    friend bool operator==(const SpeechRecognitionResult&,
                           const SpeechRecognitionResult&) = default;
};

// Why a recognition task ended without a final result. The description is the
// user-facing text.
class SpeechRecognitionError {
public:
    enum class Code {
        // The task's audio ended before anything was recognised in it.
        AudioEnded = 1,
        // The recogniser closed the utterance on its own (speech ended with no
        // words in it). The caller starts the next task, as after a final.
        EndedByItself = 216,
        // The language's speech model could not be loaded.
        ModelUnavailable = 300,
        // The decoder rejected the audio.
        DecoderFailed = 301,
    };

    SpeechRecognitionError(Code code, QString description)
        : m_code(code), m_description(std::move(description))
    {}

    static SpeechRecognitionError audioEnded();
    static SpeechRecognitionError endedByItself();

    Code code() const { return m_code; }
    const QString& description() const { return m_description; }

    friend bool operator==(const SpeechRecognitionError&, const SpeechRecognitionError&) = default;

private:
    Code m_code;
    QString m_description;
};

using SpeechRecognitionUpdate = std::variant<SpeechRecognitionResult, SpeechRecognitionError>;

// The audio of recognition tasks: mixed buffers (32-bit float, 48 kHz, mono)
// are appended on the main thread until endAudio(). A recogniser attaches to
// it when a task starts on it; until then, and after endAudio(), appended
// audio is dropped.
class SpeechAudioBufferRequest {
public:
    // Where the audio goes; installed by a recogniser, called on the main thread.
    struct Sink {
        std::function<void(AudioBuffer&&)> append;
        std::function<void()> endAudio;
    };

    SpeechAudioBufferRequest() = default;
    SpeechAudioBufferRequest(const SpeechAudioBufferRequest&) = delete;
    SpeechAudioBufferRequest& operator=(const SpeechAudioBufferRequest&) = delete;

    // Interim results while the utterance goes on, not only the final one.
    bool shouldReportPartialResults = true;
    // Sentence case and a full stop at the end of an utterance.
    bool addsPunctuation = true;

    void append(AudioBuffer buffer);
    void endAudio();
    bool isAudioEnded() const { return m_ended; }

    void attach(Sink sink) { m_sink = std::move(sink); }

private:
    Sink m_sink;
    bool m_ended = false;
};

// One recognition task: one utterance, ended by a final result or an error.
// Destroying a task cancels it.
class SpeechRecognitionTask {
public:
    virtual ~SpeechRecognitionTask() = default;
    // No update reaches the handler after this, the audio already appended
    // included. The recogniser's stream of audio goes on for the next task.
    virtual void cancel() = 0;
};

// A speech recogniser for one language, used on the main thread. Recognition
// runs elsewhere; updates reach the handler on the main thread, never from
// inside the call that started the task, and a handler may cancel or destroy
// its task and start the next one from inside itself.
class SpeechRecognizer {
public:
    using UpdateHandler = std::function<void(const SpeechRecognitionUpdate&)>;

    virtual ~SpeechRecognizer() = default;

    virtual QString localeIdentifier() const = 0;
    // False when this language cannot be recognised on this computer.
    virtual bool isAvailable() const = 0;

    // Starts a task on the request's audio. Consecutive tasks on consecutive
    // requests share one continuous stream of audio: nothing is lost between
    // the final result of one task and the start of the next.
    virtual std::unique_ptr<SpeechRecognitionTask>
    recognitionTask(SpeechAudioBufferRequest& request, UpdateHandler handler) = 0;
};

} // namespace sorv
