#include "inputdevicemodel.h"

namespace sorv {

int InputDeviceModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_devices.size());
}

QVariant InputDeviceModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const InputDevice& d = m_devices.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return d.name;
    case IdRole:
        return d.id;
    case IsDefaultRole:
        return d.isDefault;
    case LabelRole:
        return d.isDefault ? tr("%1 (default)").arg(d.name) : d.name;
    default:
        return {};
    }
}

QHash<int, QByteArray> InputDeviceModel::roleNames() const
{
    return {{IdRole, "deviceId"},
            {NameRole, "name"},
            {IsDefaultRole, "isDefault"},
            {LabelRole, "label"}};
}

bool InputDeviceModel::setDevices(const QList<InputDevice>& devices)
{
    if (devices == m_devices)
        return false;
    replaceRows(m_devices, devices);
    return true;
}

} // namespace sorv

#include "moc_inputdevicemodel.cpp"
