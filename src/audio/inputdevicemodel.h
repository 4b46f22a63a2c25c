#pragma once

#include "audio/inputdevice.h"
#include "core/listmodel.h"

#include <QList>

namespace sorv {

// The microphones to choose from, default first, for the device picker.
class InputDeviceModel : public sorv::ListModel {
    Q_OBJECT
public:
    // LabelRole: the name as the picker shows it (the default one marked).
    enum Role { IdRole = Qt::UserRole + 1, NameRole, IsDefaultRole, LabelRole };
    Q_ENUM(Role)

    using ListModel::ListModel;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    const QList<InputDevice>& devices() const { return m_devices; }
    // Replaces the list when it differs; returns whether it did.
    bool setDevices(const QList<InputDevice>& devices);

private:
    QList<InputDevice> m_devices;
};

} // namespace sorv
