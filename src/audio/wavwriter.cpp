#include "wavwriter.h"

#include <QFile>

#include <sndfile.h>

#include <cerrno>

namespace sorv {

WavWriter::~WavWriter()
{
    close();
}

bool WavWriter::open(const QString& path, int sampleRate, int channels)
{
    close();
    m_path = path;
    m_error.clear();
    m_frames = 0;
    m_channels = channels;
    m_diskFull = false;

    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = SF_FORMAT_RF64 | SF_FORMAT_FLOAT;
    errno = 0;
    m_file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!m_file) {
        m_diskFull = errno == ENOSPC || errno == EDQUOT;
        m_error = QString::fromUtf8(sf_strerror(nullptr));
        return false;
    }
    sf_command(m_file, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);
    // sf_write_sync() flushes data but leaves the header's lengths stale; the
    // automatic header update rewrites them after each write instead.
    sf_command(m_file, SFC_SET_UPDATE_HEADER_AUTO, nullptr, SF_TRUE);
    sf_command(m_file, SFC_UPDATE_HEADER_NOW, nullptr, 0);
    return true;
}

bool WavWriter::write(std::span<const float> samples)
{
    if (!m_file) {
        m_error = QStringLiteral("file is not open");
        return false;
    }
    const auto wanted = static_cast<sf_count_t>(samples.size());
    errno = 0;
    const sf_count_t written = sf_write_float(m_file, samples.data(), wanted);
    m_frames += written / m_channels;
    if (written != wanted) {
        m_diskFull = errno == ENOSPC || errno == EDQUOT;
        const char* reason = sf_strerror(m_file);
        m_error = reason && *reason && QByteArrayView(reason) != "No Error."
                      ? QString::fromUtf8(reason)
                      : QStringLiteral("short write (%1 of %2 samples)").arg(written).arg(wanted);
        return false;
    }
    return true;
}

void WavWriter::close()
{
    if (m_file) {
        sf_close(m_file);
        m_file = nullptr;
    }
}

} // namespace sorv
