#pragma once

#include "audio/capturebackend.h"
#include "audio/inputdevice.h"

#include <QList>
#include <QString>

#include <optional>

namespace sorv {

// The microphone a source is for the device picker: named by its
// description, marked when it is the server's default source. Monitors of
// sinks, sources without channels and sources without a description are no
// microphones and give nothing.
std::optional<InputDevice> inputDeviceForSource(const CaptureBackend::SourceInfo& source,
                                                const QString& defaultSourceName);

// Default first; then by name, locale-aware and case-insensitive. Stable:
// names that compare equal ("mic", "Mic") keep the server's order.
void sortInputDevices(QList<InputDevice>& devices);

// The picker's list from the server's sources, in the server's order.
QList<InputDevice> inputDevicesFromSources(const QList<CaptureBackend::SourceInfo>& sources,
                                           const QString& defaultSourceName);

// The name of the microphone source with this id, if the server has one.
std::optional<QString> sourceNameForInputDevice(const QList<CaptureBackend::SourceInfo>& sources,
                                                std::uint32_t id);

} // namespace sorv
