#pragma once

#include <QString>

#include <cstdint>
#include <span>

using SNDFILE = struct sf_private_tag;

namespace sorv {

// The recording's WAV file: 32-bit float, 48 kHz, mono, written through
// libsndfile. It is opened as RF64 with auto-downgrade, so a file that stays
// under 4 GiB is closed as a plain RIFF WAV and a longer one keeps going as
// RF64. The header is rewritten after every write, so a process killed at any
// moment leaves a file that opens and holds everything written so far.
class WavWriter {
public:
    WavWriter() = default;
    ~WavWriter();
    WavWriter(const WavWriter&) = delete;
    WavWriter& operator=(const WavWriter&) = delete;

    // Creates (or truncates) the file. Returns false with errorString() set.
    bool open(const QString& path, int sampleRate = 48000, int channels = 1);
    bool isOpen() const { return m_file != nullptr; }

    // Appends the samples (interleaved when channels > 1). Returns false with
    // errorString() set when not everything could be written.
    bool write(std::span<const float> samples);

    // Frames written so far (the file's length in frames). After a short
    // write it counts what did reach the file, and the header says the same.
    std::int64_t frames() const { return m_frames; }
    const QString& path() const { return m_path; }
    const QString& errorString() const { return m_error; }
    // The last failure was the file system running out of space (or quota).
    bool diskFull() const { return m_diskFull; }

    void close();

private:
    SNDFILE* m_file = nullptr;
    QString m_path;
    QString m_error;
    int m_channels = 1;
    std::int64_t m_frames = 0;
    bool m_diskFull = false;
};

} // namespace sorv
