#include "speechmodel.h"

#include "core/settings.h"

#include <QDir>
#include <QFileInfo>

namespace sorv {

QString SpeechModelLocator::defaultModelDirectory()
{
    return QStringLiteral(SORV_POCKETSPHINX_MODELDIR);
}

QStringList SpeechModelLocator::searchRoots()
{
    QStringList roots;
    const QString configured = Settings::value(kModelDirKey).toString();
    if (!configured.isEmpty())
        roots << configured;
    roots << defaultModelDirectory();
    return roots;
}

std::optional<SpeechModel> SpeechModelLocator::inspect(const QString& languageDirectory)
{
    const QDir dir(languageDirectory);
    if (!dir.exists())
        return std::nullopt;
    SpeechModel model;
    model.languageDirectory = dir.absolutePath();

    // The acoustic model: the subdirectory with an mdef file, preferring the
    // one named like the language directory (Debian: en-us/en-us).
    const QString preferred = dir.filePath(dir.dirName());
    if (QFileInfo::exists(preferred + QStringLiteral("/mdef"))) {
        model.acousticModel = preferred;
    } else {
        const QStringList subdirs = dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
        for (const QString& sub : subdirs) {
            if (QFileInfo::exists(dir.filePath(sub) + QStringLiteral("/mdef"))) {
                model.acousticModel = dir.filePath(sub);
                break;
            }
        }
    }

    const QStringList dicts =
        dir.entryList({QStringLiteral("*.dict"), QStringLiteral("*.dic")}, QDir::Files, QDir::Name);
    if (!dicts.isEmpty())
        model.dictionary = dir.filePath(dicts.first());

    // Word language models in order of preference; the phonetic ones are
    // for phoneme recognition, not words.
    for (const QString& pattern :
         {QStringLiteral("*.lm.bin"), QStringLiteral("*.lm"), QStringLiteral("*.lm.DMP")}) {
        const QStringList lms = dir.entryList({pattern}, QDir::Files, QDir::Name);
        for (const QString& lm : lms) {
            if (!lm.contains(QStringLiteral("-phone"))) {
                model.languageModel = dir.filePath(lm);
                break;
            }
        }
        if (!model.languageModel.isEmpty())
            break;
    }

    if (model.acousticModel.isEmpty() || model.dictionary.isEmpty() ||
        model.languageModel.isEmpty())
        return std::nullopt;
    return model;
}

std::optional<SpeechModel> SpeechModelLocator::find(const QString& locale, const QStringList& roots)
{
    const QString exact = locale.toLower().replace(QLatin1Char('_'), QLatin1Char('-'));
    const QString language = exact.section(QLatin1Char('-'), 0, 0);
    if (language.isEmpty())
        return std::nullopt;

    for (const QString& root : roots) {
        const QDir dir(root);
        if (root.isEmpty() || !dir.exists())
            continue;
        QStringList candidates{exact, language};
        // Another region of the same language, in name order.
        const QStringList regions =
            dir.entryList({language + QStringLiteral("-*")}, QDir::Dirs, QDir::Name);
        for (const QString& r : regions) {
            if (!candidates.contains(r))
                candidates << r;
        }
        for (const QString& candidate : std::as_const(candidates)) {
            if (auto model = inspect(dir.filePath(candidate)))
                return model;
        }
    }
    return std::nullopt;
}

} // namespace sorv
