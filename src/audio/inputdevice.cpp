#include "inputdevice.h"

namespace sorv {

std::uint32_t inputDeviceIdForSourceName(const QString& sourceName)
{
    std::uint32_t hash = 2166136261u;
    for (const char byte : sourceName.toUtf8()) {
        hash ^= static_cast<std::uint8_t>(byte);
        hash *= 16777619u;
    }
    return hash == 0 ? 1 : hash;
}

} // namespace sorv

#include "moc_inputdevice.cpp"
