#pragma once

#include "transcript/speechmodel.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct ps_decoder_s;
struct cmd_ln_s;

namespace sorv {

// One pocketsphinx decoder on a continuous stream of 16 kHz, 16-bit audio.
// The decoder's voice-activity detection splits the stream into utterances;
// each one reports partial hypotheses while speech goes on and a final
// hypothesis when it ends. Not thread-safe: it lives on one queue.
class PocketsphinxDecoder {
public:
    struct Config {
        SpeechModel model;
        // A JSGF grammar file; replaces the language model when set (tests
        // decode known phrases exactly with one).
        QString grammarFile;
    };

    struct Event {
        enum class Kind {
            Partial,
            Final,
            // Speech started and ended, but no words came out of it.
            EndedWithoutWords,
        };
        Kind kind = Kind::Partial;
        // Counts utterances from 0 in the order the stream has them.
        std::int64_t utterance = 0;
        // The decoder's words: lower case, single spaces, no punctuation.
        QString text;

        friend bool operator==(const Event&, const Event&) = default;
    };

    static constexpr int kSampleRate = 16000;
    // Speech that never pauses (music, a running tap) is closed at this length.
    static constexpr int kMaxUtteranceSeconds = 30;

    // Loads the model: from a fraction of a second to a few, so never on the
    // main thread. nullptr with `error` set when pocketsphinx refuses it.
    static std::unique_ptr<PocketsphinxDecoder> load(const Config& config, QString* error);
    ~PocketsphinxDecoder();
    PocketsphinxDecoder(const PocketsphinxDecoder&) = delete;
    PocketsphinxDecoder& operator=(const PocketsphinxDecoder&) = delete;

    // Feeds audio; appends what it gives to `events`: a Final (or
    // EndedWithoutWords) for every utterance that ends, then, with
    // `reportPartials`, one Partial for the open utterance when its text
    // changed. False when the decoder rejects the audio.
    bool process(std::span<const std::int16_t> samples, bool reportPartials,
                 std::vector<Event>& events);

    // Ends the open utterance now, as if speech had stopped.
    bool endUtterance(std::vector<Event>& events);

    bool inUtterance() const { return m_inUtterance; }
    std::int64_t currentUtterance() const { return m_utterance; }

private:
    struct DecoderFree {
        void operator()(ps_decoder_s* d) const;
    };
    struct ConfigFree {
        void operator()(cmd_ln_s* c) const;
    };

    PocketsphinxDecoder() = default;
    bool closeUtterance(std::vector<Event>& events);
    QString hypothesis() const;
    void keepForSecondPass(std::span<const std::int16_t> samples);

    std::unique_ptr<cmd_ln_s, ConfigFree> m_config;
    std::unique_ptr<ps_decoder_s, DecoderFree> m_decoder;
    bool m_inUtterance = false;
    std::int64_t m_utterance = 0;
    std::int64_t m_utteranceSamples = 0;
    QString m_lastPartial;

    // The decoder normalises features by a cepstral mean that starts from
    // the model's defaults and adapts at the end of each utterance, so the
    // first utterance of a stream comes out wrong or empty. Until one has
    // been recognised, each utterance is decoded a second time, after the
    // mean has taken it in; its audio is kept for that.
    bool m_meanSettled = false;
    std::vector<std::int16_t> m_secondPassAudio;

    // Digital near-silence (a virtual microphone, a muted input) gives the
    // voice-activity detection no noise floor to measure against, and it
    // then takes quantisation noise for speech. A faint noise floor of our
    // own, below any real microphone's, makes every input behave like one.
    std::span<const std::int16_t> withNoiseFloor(std::span<const std::int16_t> input);
    std::uint32_t m_noiseState = 12345;
    std::vector<std::int16_t> m_slice;
};

} // namespace sorv
