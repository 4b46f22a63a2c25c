#include "pocketsphinxdecoder.h"

#include <pocketsphinx.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QFileInfo>

#include <algorithm>

namespace sorv {

namespace {

// Audio handed to the decoder at a time: the voice-activity detection is
// checked after each slice, so an utterance ends within 50 ms of the
// decoder's decision.
constexpr std::size_t kSliceSamples = 800;
// Audio kept from before speech starts, for the second pass: more than the
// decoder's own pre-speech window (0.2 s).
constexpr std::size_t kPreRollSamples = PocketsphinxDecoder::kSampleRate / 2;
// Shorter utterances are clicks and breaths: not worth a second pass.
constexpr std::int64_t kSecondPassMinSamples = PocketsphinxDecoder::kSampleRate / 4;
// The noise floor added to the input: uniform, ±24 of 32 768 (about −67 dBFS
// RMS), below any real microphone's own noise.
constexpr int kNoiseFloor = 24;
constexpr std::int64_t kMaxUtteranceSamples =
    std::int64_t{PocketsphinxDecoder::kMaxUtteranceSeconds} * PocketsphinxDecoder::kSampleRate;

} // namespace

void PocketsphinxDecoder::DecoderFree::operator()(ps_decoder_s* d) const
{
    ps_free(d);
}

void PocketsphinxDecoder::ConfigFree::operator()(cmd_ln_s* c) const
{
    cmd_ln_free_r(c);
}

std::unique_ptr<PocketsphinxDecoder> PocketsphinxDecoder::load(const Config& config, QString* error)
{
    auto fail = [error](const QString& message) {
        if (error)
            *error = message;
        return nullptr;
    };
    const QByteArray hmm = QFile::encodeName(config.model.acousticModel);
    const QByteArray dict = QFile::encodeName(config.model.dictionary);
    const QByteArray lm = QFile::encodeName(config.model.languageModel);
    const QByteArray jsgf = QFile::encodeName(config.grammarFile);
    if (!config.grammarFile.isEmpty() && !QFileInfo::exists(config.grammarFile))
        return fail(
            QCoreApplication::translate("SpeechRecognizer", "The speech grammar %1 does not exist")
                .arg(config.grammarFile));

    // A threshold of 3 (not 2) keeps the detector from taking the first
    // moments of digital silence for speech.
    cmd_ln_t* raw = nullptr;
    if (config.grammarFile.isEmpty()) {
        raw = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.constData(), "-dict",
                          dict.constData(), "-lm", lm.constData(), "-vad_threshold", "3.0",
                          "-logfn", "/dev/null", nullptr);
    } else {
        raw = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.constData(), "-dict",
                          dict.constData(), "-jsgf", jsgf.constData(), "-vad_threshold", "3.0",
                          "-logfn", "/dev/null", nullptr);
    }
    if (!raw)
        return fail(QCoreApplication::translate("SpeechRecognizer",
                                                "The speech decoder refused its configuration"));

    std::unique_ptr<PocketsphinxDecoder> decoder(new PocketsphinxDecoder);
    decoder->m_config.reset(raw);
    decoder->m_decoder.reset(ps_init(raw));
    if (!decoder->m_decoder)
        return fail(
            QCoreApplication::translate("SpeechRecognizer", "Could not load the speech model in %1")
                .arg(config.model.languageDirectory));
    if (ps_start_utt(decoder->m_decoder.get()) < 0)
        return fail(
            QCoreApplication::translate("SpeechRecognizer", "The speech decoder could not start"));
    return decoder;
}

PocketsphinxDecoder::~PocketsphinxDecoder()
{
    // The decoder goes before the configuration it holds a reference to.
    m_decoder.reset();
}

QString PocketsphinxDecoder::hypothesis() const
{
    const char* hyp = ps_get_hyp(m_decoder.get(), nullptr);
    return hyp ? QString::fromUtf8(hyp).simplified() : QString();
}

void PocketsphinxDecoder::keepForSecondPass(std::span<const std::int16_t> samples)
{
    if (m_meanSettled)
        return;
    m_secondPassAudio.insert(m_secondPassAudio.end(), samples.begin(), samples.end());
    // Before speech only the pre-roll matters.
    if (!m_inUtterance && m_secondPassAudio.size() > kPreRollSamples) {
        m_secondPassAudio.erase(m_secondPassAudio.begin(),
                                m_secondPassAudio.end() -
                                    static_cast<std::ptrdiff_t>(kPreRollSamples));
    }
}

std::span<const std::int16_t>
PocketsphinxDecoder::withNoiseFloor(std::span<const std::int16_t> input)
{
    m_slice.resize(input.size());
    for (std::size_t i = 0; i < input.size(); ++i) {
        // A linear congruential generator: cheap, and the same every run.
        m_noiseState = m_noiseState * 1103515245u + 12345u;
        const int noise =
            static_cast<int>((m_noiseState >> 16) % (2 * kNoiseFloor + 1)) - kNoiseFloor;
        m_slice[i] = static_cast<std::int16_t>(std::clamp(input[i] + noise, -32768, 32767));
    }
    return m_slice;
}

bool PocketsphinxDecoder::process(std::span<const std::int16_t> samples, bool reportPartials,
                                  std::vector<Event>& events)
{
    ps_decoder_t* ps = m_decoder.get();
    while (!samples.empty()) {
        const auto input = samples.first(std::min(samples.size(), kSliceSamples));
        samples = samples.subspan(input.size());
        const std::span<const std::int16_t> slice = withNoiseFloor(input);
        if (ps_process_raw(ps, slice.data(), slice.size(), FALSE, FALSE) < 0)
            return false;
        const bool speech = ps_get_in_speech(ps) != 0;
        if (speech && !m_inUtterance) {
            m_inUtterance = true;
            m_utteranceSamples = 0;
            m_lastPartial.clear();
        }
        keepForSecondPass(slice);
        if (m_inUtterance)
            m_utteranceSamples += static_cast<std::int64_t>(slice.size());
        if (m_inUtterance && (!speech || m_utteranceSamples >= kMaxUtteranceSamples)) {
            if (!closeUtterance(events))
                return false;
        }
    }
    if (reportPartials && m_inUtterance) {
        const QString text = hypothesis();
        if (!text.isEmpty() && text != m_lastPartial) {
            m_lastPartial = text;
            events.push_back({Event::Kind::Partial, m_utterance, text});
        }
    }
    return true;
}

bool PocketsphinxDecoder::endUtterance(std::vector<Event>& events)
{
    if (!m_inUtterance)
        return true;
    return closeUtterance(events);
}

bool PocketsphinxDecoder::closeUtterance(std::vector<Event>& events)
{
    ps_decoder_t* ps = m_decoder.get();
    if (ps_end_utt(ps) < 0)
        return false;
    QString text = hypothesis();

    if (!m_meanSettled && m_utteranceSamples >= kSecondPassMinSamples &&
        m_utteranceSamples < kMaxUtteranceSamples) {
        // Again, now that the mean has taken this utterance in.
        if (ps_start_utt(ps) < 0 ||
            ps_process_raw(ps, m_secondPassAudio.data(), m_secondPassAudio.size(), FALSE, FALSE) <
                0 ||
            ps_end_utt(ps) < 0)
            return false;
        const QString again = hypothesis();
        if (!again.isEmpty()) {
            text = again;
            m_meanSettled = true;
            m_secondPassAudio = {};
        }
    }
    if (!m_meanSettled)
        m_secondPassAudio.clear();

    events.push_back(
        {text.isEmpty() ? Event::Kind::EndedWithoutWords : Event::Kind::Final, m_utterance, text});
    ++m_utterance;
    m_inUtterance = false;
    m_utteranceSamples = 0;
    m_lastPartial.clear();
    return ps_start_utt(ps) >= 0;
}

} // namespace sorv
