#pragma once

#include "transcript/speechmodel.h"
#include "transcript/speechrecognizer.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

namespace sorv {

class SerialQueue;

// How a PocketsphinxRecognizer decodes.
struct PocketsphinxOptions {
    // A JSGF grammar instead of the language's general language model.
    QString grammarFile;
    // Model roots searched instead of the usual ones (the
    // `speech_model_dir` setting, then pocketsphinx's default).
    std::optional<QStringList> modelRoots;
    // Audio waiting for the decoder beyond this is dropped, oldest first.
    double maxBacklogSeconds = 10.0;
};

// The on-device recogniser: pocketsphinx on the speech queue.
//
// Audio appended on the main thread is queued (bounded: when decoding falls
// behind, the oldest audio goes, and the log says so once), brought to
// 16 kHz 16-bit and decoded on the queue. The decoder's voice-activity
// detection splits the stream into utterances; each task gets the partial
// hypotheses of one utterance and its final one, or EndedByItself when the
// speech held no words. Results reach the main thread in order.
class PocketsphinxRecognizer : public SpeechRecognizer {
public:
    static inline const QString kQueueLabel = QStringLiteral("com.sorvelandrix.speech");

    using Options = PocketsphinxOptions;

    using Factory = std::function<std::unique_ptr<SpeechRecognizer>(const QString& locale)>;

    // Starts loading the model on `queue` at once when the language has one.
    PocketsphinxRecognizer(const QString& locale, std::shared_ptr<SerialQueue> queue,
                           const Options& options = {});
    ~PocketsphinxRecognizer() override;
    PocketsphinxRecognizer(const PocketsphinxRecognizer&) = delete;
    PocketsphinxRecognizer& operator=(const PocketsphinxRecognizer&) = delete;

    // Recognisers that share one speech queue, created with the first of
    // them and owned by the factory.
    static Factory factory(Options options = {});

    QString localeIdentifier() const override { return m_locale; }
    bool isAvailable() const override { return m_model.has_value(); }
    std::unique_ptr<SpeechRecognitionTask> recognitionTask(SpeechAudioBufferRequest& request,
                                                           UpdateHandler handler) override;

    const std::optional<SpeechModel>& model() const { return m_model; }

    // The decoder's words as shown: sentence case, "I" in capitals, and,
    // when `isFinal`, a full stop.
    static QString formatText(const QString& words, bool isFinal);

    class Session;
    class Router;
    class Mailbox;

private:
    QString m_locale;
    std::optional<SpeechModel> m_model;
    std::shared_ptr<SerialQueue> m_queue;
    std::shared_ptr<Mailbox> m_mailbox;
    std::shared_ptr<Session> m_session;
    std::shared_ptr<Router> m_router;
};

} // namespace sorv
