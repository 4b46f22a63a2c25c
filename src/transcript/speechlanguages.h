#pragma once

#include <QList>
#include <QString>

namespace sorv {

// A transcription language the user can choose: its locale identifier and the
// label shown for it.
struct SpeechLanguage {
    QString identifier;
    QString label;

    friend bool operator==(const SpeechLanguage&, const SpeechLanguage&) = default;
};

// The speech languages offered, in the order the language picker shows them.
const QList<SpeechLanguage>& speechLanguages();

// The label of a locale identifier ("isiZulu" for "zu-ZA"), or the identifier
// itself when it is not one of the languages offered.
QString speechLanguageName(const QString& identifier);

} // namespace sorv
