#include "speechlanguagemodel.h"

#include "transcript/speechlanguages.h"

namespace sorv {

int SpeechLanguageModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(speechLanguages().size());
}

QVariant SpeechLanguageModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const SpeechLanguage& language = speechLanguages().at(index.row());
    switch (role) {
    case IdentifierRole:
        return language.identifier;
    case Qt::DisplayRole:
    case LabelRole:
        return tr(language.label.toUtf8().constData());
    default:
        return {};
    }
}

QHash<int, QByteArray> SpeechLanguageModel::roleNames() const
{
    return {{IdentifierRole, "identifier"}, {LabelRole, "label"}};
}

} // namespace sorv

#include "moc_speechlanguagemodel.cpp"
