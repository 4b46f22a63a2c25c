#include "inputdevicelist.h"

#include <QCollator>

#include <algorithm>

namespace sorv {

std::optional<InputDevice> inputDeviceForSource(const CaptureBackend::SourceInfo& source,
                                                const QString& defaultSourceName)
{
    if (source.isMonitor || source.channels == 0 || source.name.isEmpty() ||
        source.description.isEmpty())
        return std::nullopt;
    return InputDevice{inputDeviceIdForSourceName(source.name), source.description,
                       source.name == defaultSourceName};
}

void sortInputDevices(QList<InputDevice>& devices)
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(devices.begin(), devices.end(),
                     [&collator](const InputDevice& a, const InputDevice& b) {
                         if (a.isDefault != b.isDefault)
                             return a.isDefault;
                         return collator.compare(a.name, b.name) < 0;
                     });
}

QList<InputDevice> inputDevicesFromSources(const QList<CaptureBackend::SourceInfo>& sources,
                                           const QString& defaultSourceName)
{
    QList<InputDevice> devices;
    for (const auto& source : sources)
        if (auto device = inputDeviceForSource(source, defaultSourceName))
            devices.append(*device);
    sortInputDevices(devices);
    return devices;
}

std::optional<QString> sourceNameForInputDevice(const QList<CaptureBackend::SourceInfo>& sources,
                                                std::uint32_t id)
{
    for (const auto& source : sources)
        if (!source.isMonitor && inputDeviceIdForSourceName(source.name) == id)
            return source.name;
    return std::nullopt;
}

} // namespace sorv
