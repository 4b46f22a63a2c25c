#include "audiofilereader.h"

#include <QFile>
#include <QFileInfo>

#include <sndfile.h>

namespace sorv {

AudioFileReader::~AudioFileReader()
{
    if (m_file)
        sf_close(m_file);
}

bool AudioFileReader::open(const QString& path)
{
    if (m_file) {
        sf_close(m_file);
        m_file = nullptr;
    }
    const QFileInfo fi(path);
    if (!fi.exists()) {
        m_error = QStringLiteral("%1: no such file").arg(path);
        return false;
    }
    if (!fi.isFile() || !fi.isReadable()) {
        m_error = QStringLiteral("%1: cannot be read").arg(path);
        return false;
    }
    SF_INFO info{};
    m_file = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!m_file) {
        m_error = QStringLiteral("%1: not a readable audio file (%2)")
                      .arg(path, QString::fromUtf8(sf_strerror(nullptr)));
        return false;
    }
    m_sampleRate = info.samplerate;
    m_channels = info.channels;
    m_frames = info.frames;
    return true;
}

std::int64_t AudioFileReader::readMono(std::span<float> out)
{
    if (!m_file || out.empty())
        return 0;
    if (m_channels == 1)
        return sf_readf_float(m_file, out.data(), static_cast<sf_count_t>(out.size()));

    const std::size_t needed = out.size() * static_cast<std::size_t>(m_channels);
    if (m_interleavedCapacity < needed) {
        m_interleaved = std::make_unique<float[]>(needed);
        m_interleavedCapacity = needed;
    }
    const sf_count_t got =
        sf_readf_float(m_file, m_interleaved.get(), static_cast<sf_count_t>(out.size()));
    const float scale = 1.0f / static_cast<float>(m_channels);
    for (sf_count_t f = 0; f < got; ++f) {
        float sum = 0.0f;
        const float* frame = m_interleaved.get() + f * m_channels;
        for (int c = 0; c < m_channels; ++c)
            sum += frame[c];
        out[static_cast<std::size_t>(f)] = sum * scale;
    }
    return got;
}

} // namespace sorv
