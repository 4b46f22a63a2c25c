#include "localtranscriptmanager.h"

#include "core/notify.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"
#include "transcript/mainthreadinbox.h"
#include "transcript/pocketsphinxrecognizer.h"
#include "transcript/speechlanguages.h"

#include <QCoreApplication>
#include <QThread>

namespace sorv {

LocalTranscriptManager::LocalTranscriptManager(QObject* parent)
    : LocalTranscriptManager(PocketsphinxRecognizer::factory(), parent)
{}

LocalTranscriptManager::LocalTranscriptManager(RecognizerFactory factory, QObject* parent)
    : QObject(parent), m_factory(std::move(factory)),
      m_audioInbox(std::make_shared<MainThreadInbox<AudioBuffer>>())
{
    m_audioInbox->setDeliver([this](AudioBuffer&& buffer) { appendOnMain(std::move(buffer)); });
    qRegisterMetaType<TranscriptSegment>();
    qRegisterMetaType<TranscriptStatus>();
    const QString stored = Settings::value(Settings::kSpeechLocaleKey).toString();
    m_currentLocale = stored.isEmpty() ? kDefaultLocale : stored;
}

LocalTranscriptManager::~LocalTranscriptManager()
{
    // The recorder may go on calling its tap: nothing reaches us any more.
    m_audioInbox->setDeliver({});
    // The task before the recogniser that runs it.
    m_recognitionTask.reset();
    m_recognitionRequest.reset();
    m_recognizer.reset();
}

QString LocalTranscriptManager::unavailableText(const QString& locale)
{
    return QCoreApplication::translate(
               "LocalTranscriptManager",
               "Live preview only: on-device recognition does not have \u201c%1\u201d on "
               "this computer. Install its speech model, or pick another language "
               "above. Your recording still uploads for full server transcription and "
               "speaker diarization when you stop.")
        .arg(speechLanguageName(locale));
}

// --- Start, locale, stop ----------------------------------------------------------

void LocalTranscriptManager::start(AudioRecorder& recorder)
{
    start();
    recorder.setOnMixedAudioBuffer(
        [inbox = m_audioInbox](const AudioBuffer& buffer) { inbox->post(AudioBuffer(buffer)); });
}

void LocalTranscriptManager::start()
{
    if (m_stopServerTranscript)
        m_stopServerTranscript();
    clearSegments();
    stop();
    setStatus(TranscriptStatus::connecting());
    m_usesMixedAudio = true;
    requestAuthorization();
}

void LocalTranscriptManager::changeLocale(const QString& locale)
{
    Settings::setValue(Settings::kSpeechLocaleKey, locale);
    switchLocale(locale);
}

void LocalTranscriptManager::overrideLocale(const QString& locale)
{
    switchLocale(locale);
}

void LocalTranscriptManager::switchLocale(const QString& locale)
{
    setAndNotify(this, m_currentLocale, locale, &LocalTranscriptManager::currentLocaleChanged);
    if (!m_status.isActive())
        return;
    stop();
    setStatus(TranscriptStatus::connecting());
    m_usesMixedAudio = true;
    requestAuthorization();
}

void LocalTranscriptManager::stop()
{
    ++m_startGeneration;
    ++m_taskSerial;
    if (m_recognitionTask) {
        m_recognitionTask->cancel();
        m_recognitionTask.reset();
    }
    if (m_recognitionRequest) {
        m_recognitionRequest->endAudio();
        m_recognitionRequest.reset();
    }
    m_recognizer.reset();
    m_taskSegmentId.reset();
    setStatus(TranscriptStatus::idle());
    m_usesMixedAudio = false;
}

void LocalTranscriptManager::requestAuthorization()
{
    // On-device recognition needs no permission here: the answer is always
    // "authorised", and, like any answer, it arrives on a later turn of the
    // main thread.
    const std::uint64_t generation = ++m_startGeneration;
    QMetaObject::invokeMethod(
        this,
        [this, generation] {
            if (generation == m_startGeneration)
                startRecognition();
        },
        Qt::QueuedConnection);
}

void LocalTranscriptManager::startRecognition()
{
    m_recognizer = m_factory ? m_factory(m_currentLocale) : nullptr;
    if (!m_recognizer || !m_recognizer->isAvailable()) {
        m_recognizer.reset();
        setStatus(TranscriptStatus::error(unavailableText(m_currentLocale)));
        return;
    }
    m_recognitionRequest = std::make_unique<SpeechAudioBufferRequest>();
    setStatus(TranscriptStatus::active());
    m_recognitionTask = startTask(&LocalTranscriptManager::handleFirstTask);
}

std::unique_ptr<SpeechRecognitionTask> LocalTranscriptManager::startTask(
    void (LocalTranscriptManager::*handler)(const SpeechRecognitionUpdate&))
{
    const std::uint64_t serial = ++m_taskSerial;
    m_taskSegmentId.reset();
    return m_recognizer->recognitionTask(
        *m_recognitionRequest, [this, serial, handler](const SpeechRecognitionUpdate& update) {
            if (serial == m_taskSerial)
                (this->*handler)(update);
        });
}

// A new utterance: the next task on a fresh request, on the same recogniser.
void LocalTranscriptManager::restart()
{
    ++m_taskSerial;
    if (m_recognitionTask) {
        m_recognitionTask->cancel();
        m_recognitionTask.reset();
    }
    if (m_recognitionRequest)
        m_recognitionRequest->endAudio();
    m_recognitionRequest = std::make_unique<SpeechAudioBufferRequest>();
    if (!m_recognizer)
        return;
    m_recognitionTask = startTask(&LocalTranscriptManager::handleNextTask);
}

// --- Results -------------------------------------------------------------------

void LocalTranscriptManager::handleFirstTask(const SpeechRecognitionUpdate& update)
{
    if (const auto* result = std::get_if<SpeechRecognitionResult>(&update)) {
        if (result->text.isEmpty())
            return;
        // The recogniser sends the whole utterance so far each time.
        if (m_segments.isEmpty() || m_segments.last().speaker != kSpeaker)
            appendSegment(result->text);
        else
            replaceText(m_segments.size() - 1, result->text);
        if (result->isFinal)
            restart();
        return;
    }
    const auto& error = std::get<SpeechRecognitionError>(update);
    using Code = SpeechRecognitionError::Code;
    if (error.code() == Code::EndedByItself)
        restart();
    else if (error.code() != Code::AudioEnded)
        setStatus(TranscriptStatus::error(error.description()));
}

void LocalTranscriptManager::handleNextTask(const SpeechRecognitionUpdate& update)
{
    if (const auto* result = std::get_if<SpeechRecognitionResult>(&update)) {
        if (!result->text.isEmpty()) {
            if (!m_taskSegmentId) {
                appendSegment(result->text);
                m_taskSegmentId = m_segments.last().id;
            } else {
                for (qsizetype row = m_segments.size() - 1; row >= 0; --row) {
                    if (m_segments.at(row).id == *m_taskSegmentId) {
                        replaceText(row, result->text);
                        break;
                    }
                }
            }
        }
        if (result->isFinal)
            restart();
        return;
    }
    // Anything but the recogniser ending the utterance leaves the status alone.
    if (std::get<SpeechRecognitionError>(update).code() ==
        SpeechRecognitionError::Code::EndedByItself)
        restart();
}

// --- Audio ---------------------------------------------------------------------

void LocalTranscriptManager::appendMixedBuffer(const AudioBuffer& buffer)
{
    if (QThread::currentThread() == thread())
        appendOnMain(AudioBuffer(buffer));
    else
        m_audioInbox->post(AudioBuffer(buffer));
}

void LocalTranscriptManager::appendOnMain(AudioBuffer&& buffer)
{
    if (m_recognitionRequest)
        m_recognitionRequest->append(std::move(buffer));
}

// --- Published fields ------------------------------------------------------------

void LocalTranscriptManager::setStatus(const TranscriptStatus& status)
{
    setAndNotify(this, m_status, status, &LocalTranscriptManager::statusChanged);
}

void LocalTranscriptManager::appendSegment(const QString& text)
{
    m_segments.append(TranscriptSegment{m_nextSegmentId++, kSpeaker, displayName(), text, {}});
    Q_EMIT segmentAppended(static_cast<int>(m_segments.size() - 1));
    Q_EMIT segmentsChanged();
}

void LocalTranscriptManager::replaceText(qsizetype row, const QString& text)
{
    if (m_segments.at(row).text == text)
        return;
    m_segments[row].text = text;
    Q_EMIT segmentTextChanged(static_cast<int>(row));
    Q_EMIT segmentsChanged();
}

void LocalTranscriptManager::clearSegments()
{
    if (m_segments.isEmpty())
        return;
    m_segments.clear();
    Q_EMIT segmentsCleared();
    Q_EMIT segmentsChanged();
}

} // namespace sorv

#include "moc_localtranscriptmanager.cpp"
