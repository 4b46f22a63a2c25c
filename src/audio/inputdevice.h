#pragma once

#include <QList>
#include <QMetaType>
#include <QString>

#include <cstdint>

namespace sorv {

// A microphone the user can choose. `id` is stable across restarts and
// re-plugging (a hash of the sound server's source name), never 0: 0 stands
// for "the system default input device".
struct InputDevice {
    Q_GADGET
    Q_PROPERTY(quint32 id MEMBER id)
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(bool isDefault MEMBER isDefault)

public:
    std::uint32_t id = 0;
    QString name;
    bool isDefault = false;

    friend bool operator==(const InputDevice&, const InputDevice&) = default;
};

// 32-bit FNV-1a of the source name; a hash of 0 becomes 1 so it never reads
// as "system default".
std::uint32_t inputDeviceIdForSourceName(const QString& sourceName);

} // namespace sorv

Q_DECLARE_METATYPE(sorv::InputDevice)
