#pragma once

#include <QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

struct ps_decoder_s;
struct cmd_ln_s;

namespace sorv::local {

// The live endpoint's speech recognition: pocketsphinx on the 16 kHz stream
// a client sends, split into utterances by the decoder's voice-activity
// detection. One per connection, used on the connection's thread.
class StreamRecognizer {
public:
    struct Model {
        QString acousticModel;
        QString dictionary;
        QString languageModel;
        // Replaces the language model when set (tests know their phrases).
        QString grammar;
    };

    struct Result {
        bool isFinal = false;
        // The decoder's words, lower case; for a partial, the whole
        // utterance so far.
        QString text;
        std::int64_t startMs = 0;
        std::int64_t endMs = 0;
    };

    static constexpr int kSampleRate = 16000;

    // English, from `modelDirectory` (empty: pocketsphinx's own), laid out
    // as Debian's pocketsphinx-en-us: en-us/{en-us/, cmudict-en-us.dict,
    // en-us.lm.bin}. None when it is not installed.
    static std::optional<Model> findEnglish(const QString& modelDirectory, const QString& grammar);
    static std::unique_ptr<StreamRecognizer> load(const Model& model, QString* error);
    ~StreamRecognizer();
    StreamRecognizer(const StreamRecognizer&) = delete;
    StreamRecognizer& operator=(const StreamRecognizer&) = delete;

    // Appends a partial when the open utterance's text changed, and a final
    // for every utterance that ended (an utterance without words ends with
    // an empty final).
    bool process(std::span<const std::int16_t> samples, std::vector<Result>& results);
    // Ends the open utterance, if any.
    bool finish(std::vector<Result>& results);

private:
    struct DecoderFree {
        void operator()(ps_decoder_s* d) const;
    };
    struct ConfigFree {
        void operator()(cmd_ln_s* c) const;
    };

    StreamRecognizer() = default;
    bool endUtterance(std::vector<Result>& results);
    QString hypothesis() const;

    std::unique_ptr<cmd_ln_s, ConfigFree> m_config;
    std::unique_ptr<ps_decoder_s, DecoderFree> m_decoder;
    bool m_inSpeech = false;
    std::int64_t m_samples = 0;        // of the whole stream
    std::int64_t m_utteranceStart = 0; // in samples
    QString m_lastPartial;
    // The decoder's cepstral mean starts from a guess and learns from each
    // utterance, so the first ones of a stream are decoded poorly. Until an
    // utterance has given words, it is decoded again once it ended, with
    // the mean it taught; its audio (and a little before it) is kept for that.
    bool m_meanLearned = false;
    std::vector<std::int16_t> m_utteranceAudio;
    std::vector<std::int16_t> m_slice;
    std::uint32_t m_dither = 1;
};

} // namespace sorv::local
