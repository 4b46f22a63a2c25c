#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace sorv {

// The files of one language's pocketsphinx model.
//
// Models live in a model root, one directory per language named after the
// locale in lower case ("en-us") or after the language alone ("de"). A
// language directory holds the acoustic model (a subdirectory with an `mdef`
// file), a pronunciation dictionary (`*.dict`) and a language model
// (`*.lm.bin`, `*.lm` or `*.lm.DMP`; phonetic `*-phone.*` models are skipped).
// This is the layout of Debian's pocketsphinx-en-us and of the CMU Sphinx
// downloads for other languages.
struct SpeechModel {
    QString languageDirectory;
    QString acousticModel;
    QString dictionary;
    QString languageModel;

    friend bool operator==(const SpeechModel&, const SpeechModel&) = default;
};

class SpeechModelLocator {
public:
    // The setting naming a model root searched before pocketsphinx's own.
    static inline const QString kModelDirKey = QStringLiteral("speech_model_dir");

    // The roots searched, in order: the `speech_model_dir` setting (when
    // set), then pocketsphinx's default model directory.
    static QStringList searchRoots();
    static QString defaultModelDirectory();

    // The model for a locale such as "en-GB": the directory of the exact
    // locale, else of its language, else of another region of the same
    // language ("en-us" serves "en-GB"). nullopt when no root has one.
    static std::optional<SpeechModel> find(const QString& locale, const QStringList& roots);
    static std::optional<SpeechModel> find(const QString& locale)
    {
        return find(locale, searchRoots());
    }

    // The files of one language directory, or nullopt when one is missing.
    static std::optional<SpeechModel> inspect(const QString& languageDirectory);
};

} // namespace sorv
