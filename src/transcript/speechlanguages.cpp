#include "speechlanguages.h"

namespace sorv {

const QList<SpeechLanguage>& speechLanguages()
{
    static const QList<SpeechLanguage> languages = {
        {QStringLiteral("it-IT"), QStringLiteral("Italian")},
        {QStringLiteral("en-US"), QStringLiteral("English (US)")},
        {QStringLiteral("en-GB"), QStringLiteral("English (UK)")},
        {QStringLiteral("af-ZA"), QStringLiteral("Afrikaans")},
        {QStringLiteral("nl-NL"), QStringLiteral("Dutch")},
        {QStringLiteral("de-DE"), QStringLiteral("German")},
        {QStringLiteral("fr-FR"), QStringLiteral("French")},
        {QStringLiteral("pt-BR"), QStringLiteral("Portuguese")},
        {QStringLiteral("es-ES"), QStringLiteral("Spanish")},
        {QStringLiteral("zu-ZA"), QStringLiteral("isiZulu")},
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
