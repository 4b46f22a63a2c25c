#include "speechlanguages.h"

#include <QtGlobal>

namespace sorv {

const QList<SpeechLanguage>& speechLanguages()
{
    // The labels are English; SpeechLanguageModel shows them translated.
    static const QList<SpeechLanguage> languages = {
        {QStringLiteral("it-IT"),
         QStringLiteral(QT_TRANSLATE_NOOP("sorv::SpeechLanguageModel", "Italian"))},
        {QStringLiteral("en-US"),
         QStringLiteral(QT_TRANSLATE_NOOP("sorv::SpeechLanguageModel", "English (US)"))},
        {QStringLiteral("en-GB"),
         QStringLiteral(QT_TRANSLATE_NOOP("sorv::SpeechLanguageModel", "English (UK)"))},
        {QStringLiteral("af-ZA"),
         QStringLiteral(QT_TRANSLATE_NOOP("sorv::SpeechLanguageModel", "Afrikaans"))},
        {QStringLiteral("nl-NL"),
         QStringLiteral(QT_TRANSLATE_NOOP("sorv::SpeechLanguageModel", "Dutch"))},
        {QStringLiteral("de-DE"),
         QStringLiteral(QT_TRANSLATE_NOOP("sorv::SpeechLanguageModel", "German"))},
        {QStringLiteral("fr-FR"),
         QStringLiteral(QT_TRANSLATE_NOOP("sorv::SpeechLanguageModel", "French"))},
        {QStringLiteral("pt-BR"),
         QStringLiteral(QT_TRANSLATE_NOOP("sorv::SpeechLanguageModel", "Portuguese"))},
        {QStringLiteral("es-ES"),
         QStringLiteral(QT_TRANSLATE_NOOP("sorv::SpeechLanguageModel", "Spanish"))},
        {QStringLiteral("zu-ZA"),
         QStringLiteral(QT_TRANSLATE_NOOP("sorv::SpeechLanguageModel", "isiZulu"))},
    };
    return languages;
}

QString speechLanguageName(const QString& identifier)
{
    for (const SpeechLanguage& language : speechLanguages()) {
        if (language.identifier == identifier)
            return language.label;
    }
    return identifier;
}

} // namespace sorv
