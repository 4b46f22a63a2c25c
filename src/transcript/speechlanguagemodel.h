#pragma once

#include "core/listmodel.h"

namespace sorv {

// The speech languages offered, for the language picker.
class SpeechLanguageModel : public sorv::ListModel {
    Q_OBJECT
public:
    enum Role { IdentifierRole = Qt::UserRole + 1, LabelRole };
    Q_ENUM(Role)

    using ListModel::ListModel;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;
};

} // namespace sorv
