#include "screencapturetargetmodel.h"

namespace sorv {

int ScreenCaptureTargetModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_options.size());
}

QVariant ScreenCaptureTargetModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const ScreenCaptureTargetOption& option = m_options.at(index.row());
    switch (role) {
    case IdRole:
        return option.id;
    case Qt::DisplayRole:
    case TitleRole:
        return option.title;
    case SubtitleRole:
        return option.subtitle;
    case SectionRole:
        return section(option);
    case FirstInSectionRole:
        return index.row() == 0 || section(m_options.at(index.row() - 1)) != section(option);
    default:
        return {};
    }
}

QHash<int, QByteArray> ScreenCaptureTargetModel::roleNames() const
{
    return {{IdRole, "targetId"},
            {TitleRole, "title"},
            {SubtitleRole, "subtitle"},
            {SectionRole, "section"},
            {FirstInSectionRole, "firstInSection"}};
}

void ScreenCaptureTargetModel::setOptions(const QList<ScreenCaptureTargetOption>& options)
{
    replaceRows(m_options, options);
}

QString ScreenCaptureTargetModel::section(const ScreenCaptureTargetOption& option)
{
    using Type = ScreenCaptureTargetOption::Kind::Type;
    switch (option.kind.type) {
    case Type::MainDisplay:
    case Type::Display:
    case Type::PortalMonitor:
        return tr("Displays");
    case Type::Application:
        return tr("Applications");
    case Type::Window:
    case Type::PortalWindow:
        return tr("Windows");
    }
    return {};
}

} // namespace sorv

#include "moc_screencapturetargetmodel.cpp"
