#pragma once

#include "core/listmodel.h"
#include "video/screencapturetargetoption.h"

#include <QList>

namespace sorv {

// What a video call can capture, for the capture-source picker: displays,
// then applications, then windows, each row with the heading of its group
// (shown above the group's first row).
class ScreenCaptureTargetModel : public sorv::ListModel {
    Q_OBJECT
public:
    enum Role {
        IdRole = Qt::UserRole + 1,
        TitleRole,
        SubtitleRole,
        SectionRole,
        FirstInSectionRole
    };
    Q_ENUM(Role)

    using ListModel::ListModel;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    void setOptions(const QList<ScreenCaptureTargetOption>& options);
    // The heading of an option's group ("Displays", …).
    static QString section(const ScreenCaptureTargetOption& option);

private:
    QList<ScreenCaptureTargetOption> m_options;
};

} // namespace sorv
