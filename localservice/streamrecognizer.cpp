#include "streamrecognizer.h"

#include <pocketsphinx.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

#ifndef SORV_LOCAL_POCKETSPHINX_MODELDIR
#define SORV_LOCAL_POCKETSPHINX_MODELDIR "/usr/share/pocketsphinx/model"
#endif

namespace sorv::local {

namespace {

// The voice-activity detection is looked at after each slice.
constexpr std::size_t kSlice = 800;
// Audio kept from before speech begins, for the second decoding.
constexpr std::size_t kPreRoll = StreamRecognizer::kSampleRate / 2;
// Speech that never pauses is cut here.
constexpr std::int64_t kMaxUtterance = std::int64_t{30} * StreamRecognizer::kSampleRate;
// Too short to be worth decoding twice: a click, a breath.
constexpr std::size_t kSecondPassMin = StreamRecognizer::kSampleRate / 4;
// Digital silence (a virtual microphone) gives the speech detector no noise
// floor to measure, and it then takes rounding noise for speech; a faint
// dither below any real microphone's noise makes it behave.
constexpr int kDither = 24;

std::int64_t toMs(std::int64_t samples)
{
    return samples * 1000 / StreamRecognizer::kSampleRate;
}

} // namespace

void StreamRecognizer::DecoderFree::operator()(ps_decoder_s* d) const
{
    ps_free(d);
}

void StreamRecognizer::ConfigFree::operator()(cmd_ln_s* c) const
{
    cmd_ln_free_r(c);
}

std::optional<StreamRecognizer::Model> StreamRecognizer::findEnglish(const QString& modelDirectory,
                                                                     const QString& grammar)
{
    const QDir root(modelDirectory.isEmpty() ? QStringLiteral(SORV_LOCAL_POCKETSPHINX_MODELDIR)
                                             : modelDirectory);
    Model model;
    model.acousticModel = root.filePath(QStringLiteral("en-us/en-us"));
    model.dictionary = root.filePath(QStringLiteral("en-us/cmudict-en-us.dict"));
    model.languageModel = root.filePath(QStringLiteral("en-us/en-us.lm.bin"));
    model.grammar = grammar;
    if (!QFileInfo::exists(model.acousticModel + QStringLiteral("/mdef")) ||
        !QFileInfo::exists(model.dictionary) || !QFileInfo::exists(model.languageModel))
        return std::nullopt;
    if (!grammar.isEmpty() && !QFileInfo::exists(grammar))
        return std::nullopt;
    return model;
}

std::unique_ptr<StreamRecognizer> StreamRecognizer::load(const Model& model, QString* error)
{
    const QByteArray hmm = QFile::encodeName(model.acousticModel);
    const QByteArray dict = QFile::encodeName(model.dictionary);
    const QByteArray lm = QFile::encodeName(model.languageModel);
    const QByteArray jsgf = QFile::encodeName(model.grammar);
    cmd_ln_t* config = model.grammar.isEmpty()
                           ? cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.constData(), "-dict",
                                         dict.constData(), "-lm", lm.constData(), "-vad_threshold",
                                         "3.0", "-logfn", "/dev/null", nullptr)
                           : cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.constData(), "-dict",
                                         dict.constData(), "-jsgf", jsgf.constData(),
                                         "-vad_threshold", "3.0", "-logfn", "/dev/null", nullptr);
    if (!config) {
        if (error)
            *error = QStringLiteral("pocketsphinx refused its configuration");
        return nullptr;
    }
    std::unique_ptr<StreamRecognizer> r(new StreamRecognizer);
    r->m_config.reset(config);
    r->m_decoder.reset(ps_init(config));
    if (!r->m_decoder || ps_start_utt(r->m_decoder.get()) < 0) {
        if (error)
            *error = QStringLiteral("pocketsphinx could not load %1").arg(model.acousticModel);
        return nullptr;
    }
    return r;
}

StreamRecognizer::~StreamRecognizer()
{
    // The decoder holds on to the configuration; it goes first.
    m_decoder.reset();
}

QString StreamRecognizer::hypothesis() const
{
    const char* hyp = ps_get_hyp(m_decoder.get(), nullptr);
    return hyp ? QString::fromUtf8(hyp).simplified() : QString();
}

bool StreamRecognizer::process(std::span<const std::int16_t> samples, std::vector<Result>& results)
{
    ps_decoder_t* ps = m_decoder.get();
    while (!samples.empty()) {
        const std::size_t n = std::min(samples.size(), kSlice);
        m_slice.resize(n);
        for (std::size_t i = 0; i < n; ++i) {
            m_dither = m_dither * 1664525u + 1013904223u;
            const int noise = static_cast<int>((m_dither >> 16) % (2 * kDither + 1)) - kDither;
            m_slice[i] = static_cast<std::int16_t>(std::clamp(samples[i] + noise, -32768, 32767));
        }
        samples = samples.subspan(n);
        if (ps_process_raw(ps, m_slice.data(), n, FALSE, FALSE) < 0)
            return false;
        m_samples += static_cast<std::int64_t>(n);
        if (!m_meanLearned) {
            m_utteranceAudio.insert(m_utteranceAudio.end(), m_slice.begin(), m_slice.end());
            if (!m_inSpeech && m_utteranceAudio.size() > kPreRoll)
                m_utteranceAudio.erase(m_utteranceAudio.begin(),
                                       m_utteranceAudio.end() - std::ptrdiff_t(kPreRoll));
        }
        const bool speech = ps_get_in_speech(ps) != 0;
        if (speech && !m_inSpeech) {
            m_inSpeech = true;
            m_utteranceStart = m_samples - static_cast<std::int64_t>(n);
            m_lastPartial.clear();
        } else if (m_inSpeech && (!speech || m_samples - m_utteranceStart >= kMaxUtterance)) {
            if (!endUtterance(results))
                return false;
        }
    }
    if (m_inSpeech) {
        const QString text = hypothesis();
        if (!text.isEmpty() && text != m_lastPartial) {
            m_lastPartial = text;
            results.push_back({false, text, toMs(m_utteranceStart), toMs(m_samples)});
        }
    }
    return true;
}

bool StreamRecognizer::finish(std::vector<Result>& results)
{
    return !m_inSpeech || endUtterance(results);
}

bool StreamRecognizer::endUtterance(std::vector<Result>& results)
{
    ps_decoder_t* ps = m_decoder.get();
    if (ps_end_utt(ps) < 0)
        return false;
    QString text = hypothesis();
    if (!m_meanLearned && m_utteranceAudio.size() >= kSecondPassMin) {
        if (ps_start_utt(ps) < 0 ||
            ps_process_raw(ps, m_utteranceAudio.data(), m_utteranceAudio.size(), FALSE, FALSE) <
                0 ||
            ps_end_utt(ps) < 0)
            return false;
        if (const QString again = hypothesis(); !again.isEmpty()) {
            text = again;
            m_meanLearned = true;
            m_utteranceAudio = {};
        }
    }
    if (!m_meanLearned)
        m_utteranceAudio.clear();
    results.push_back({true, text, toMs(m_utteranceStart), toMs(m_samples)});
    m_inSpeech = false;
    m_lastPartial.clear();
    return ps_start_utt(ps) >= 0;
}

} // namespace sorv::local
