#include "onceonlybody.h"

#include <cstring>

namespace sorv {

OnceOnlyBody::OnceOnlyBody(QByteArray data, QObject* parent)
    : QIODevice(parent), m_data(std::move(data))
{
    open(QIODevice::ReadOnly);
}

qint64 OnceOnlyBody::bytesAvailable() const
{
    return m_data.size() - m_offset + QIODevice::bytesAvailable();
}

bool OnceOnlyBody::atEnd() const
{
    return m_offset >= m_data.size() && QIODevice::bytesAvailable() == 0;
}

qint64 OnceOnlyBody::readData(char* data, qint64 maxSize)
{
    const qint64 n = std::min(maxSize, m_data.size() - m_offset);
    if (n <= 0)
        return m_offset >= m_data.size() ? -1 : 0;
    std::memcpy(data, m_data.constData() + m_offset, static_cast<size_t>(n));
    m_offset += n;
    return n;
}

} // namespace sorv
