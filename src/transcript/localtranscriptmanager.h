#pragma once

#include "audio/audiotypes.h"
#include "transcript/speechrecognizer.h"
#include "transcript/transcriptsegment.h"
#include "transcript/transcriptstatus.h"

#include <QCoreApplication>
#include <QList>
#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace sorv {

class AudioRecorder;
template <typename T> class MainThreadInbox;

// The on-device live transcript: the recorder's mixed audio goes to a speech
// recogniser in the chosen speech language, and each utterance becomes one
// segment attributed to the local user that grows in place as the
// recogniser firms it up. A preview only: the full transcript comes from the
// uploaded recording. Lives on the main thread.
//
// Segments only ever get appended, change their text in place, or are all
// cleared; the three finer signals say which, so that a list model can
// follow without resetting.
class LocalTranscriptManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<sorv::TranscriptSegment> segments READ segments NOTIFY segmentsChanged)
    Q_PROPERTY(sorv::TranscriptStatus status READ status NOTIFY statusChanged)
    Q_PROPERTY(QString currentLocale READ currentLocale NOTIFY currentLocaleChanged)

public:
    using RecognizerFactory =
        std::function<std::unique_ptr<SpeechRecognizer>(const QString& locale)>;

    static inline const QString kDefaultLocale = QStringLiteral("af-ZA");
    static inline const QString kSpeaker = QStringLiteral("you");
    static QString displayName()
    {
        return QCoreApplication::translate("LocalTranscriptManager", "You");
    }

    // With the pocketsphinx recogniser.
    explicit LocalTranscriptManager(QObject* parent = nullptr);
    explicit LocalTranscriptManager(RecognizerFactory factory, QObject* parent = nullptr);
    ~LocalTranscriptManager() override;

    const QList<TranscriptSegment>& segments() const { return m_segments; }
    const TranscriptStatus& status() const { return m_status; }
    const QString& currentLocale() const { return m_currentLocale; }
    // True while fed from the recorder's mixed audio (from start to stop).
    bool usesMixedAudio() const { return m_usesMixedAudio; }

    // Called first thing on every start: the server transcript and this one
    // never run together. The recorder view connects it.
    void setStopServerTranscript(std::function<void()> hook)
    {
        m_stopServerTranscript = std::move(hook);
    }

    // The error shown when the language cannot be recognised on this computer.
    static QString unavailableText(const QString& locale);

    // Starts from the recorder's mixed audio: segments are cleared, the
    // recogniser for currentLocale starts, and the recorder's mixed buffers
    // come here.
    void start(AudioRecorder& recorder);
    // The same without a recorder: the caller feeds appendMixedBuffer().
    void start();

    // One mixed buffer (32-bit float, 48 kHz, mono), from any thread; the
    // samples are copied before it returns. Appended to the running
    // recognition on the main thread, or dropped when none runs. From
    // another thread, the manager must outlive the call.
    void appendMixedBuffer(const AudioBuffer& buffer);

    // The language for this run only (the command line's --language): like
    // changeLocale(), but nothing is stored.
    void overrideLocale(const QString& locale);

public Q_SLOTS:
    // Stores the locale under "speechLocale"; restarts recognition in it
    // when it is active.
    void changeLocale(const QString& locale);
    // Ends recognition; the segments stay.
    void stop();

Q_SIGNALS:
    void segmentsChanged();
    void segmentAppended(int row);
    void segmentTextChanged(int row);
    void segmentsCleared();
    void statusChanged();
    void currentLocaleChanged();

private:
    void switchLocale(const QString& locale);
    void requestAuthorization();
    void startRecognition();
    void restart();
    void handleFirstTask(const SpeechRecognitionUpdate& update);
    void handleNextTask(const SpeechRecognitionUpdate& update);
    std::unique_ptr<SpeechRecognitionTask>
    startTask(void (LocalTranscriptManager::*handler)(const SpeechRecognitionUpdate&));
    void appendOnMain(AudioBuffer&& buffer);

    void setStatus(const TranscriptStatus& status);
    void appendSegment(const QString& text);
    void replaceText(qsizetype row, const QString& text);
    void clearSegments();

    QList<TranscriptSegment> m_segments;
    TranscriptStatus m_status;
    QString m_currentLocale;
    RecognizerFactory m_factory;
    std::unique_ptr<SpeechRecognizer> m_recognizer;
    std::unique_ptr<SpeechAudioBufferRequest> m_recognitionRequest;
    std::unique_ptr<SpeechRecognitionTask> m_recognitionTask;
    std::int64_t m_nextSegmentId = 0;
    bool m_usesMixedAudio = false;

    std::function<void()> m_stopServerTranscript;
    // Mixed buffers from the audio queue, on their way here.
    std::shared_ptr<MainThreadInbox<AudioBuffer>> m_audioInbox;
    // The segment that the running follow-up task grows.
    std::optional<std::int64_t> m_taskSegmentId;
    // Bumped by every start and stop, so a late authorisation answer for an
    // abandoned start does nothing.
    std::uint64_t m_startGeneration = 0;
    // Bumped by every task started or dropped: updates of older tasks are ignored.
    std::uint64_t m_taskSerial = 0;
};

} // namespace sorv
