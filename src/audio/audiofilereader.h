#pragma once

#include <QString>

#include <cstdint>
#include <memory>
#include <span>

using SNDFILE = struct sf_private_tag;

namespace sorv {

// Reads an audio file (anything libsndfile opens) as mono float samples:
// multi-channel frames are averaged.
class AudioFileReader {
public:
    AudioFileReader() = default;
    ~AudioFileReader();
    AudioFileReader(const AudioFileReader&) = delete;
    AudioFileReader& operator=(const AudioFileReader&) = delete;

    bool open(const QString& path);
    const QString& errorString() const { return m_error; }

    int sampleRate() const { return m_sampleRate; }
    int channels() const { return m_channels; }
    std::int64_t frames() const { return m_frames; }

    // Fills `out` with up to out.size() mono frames; returns how many were read
    // (0 at the end of the file).
    std::int64_t readMono(std::span<float> out);

private:
    SNDFILE* m_file = nullptr;
    QString m_error;
    int m_sampleRate = 0;
    int m_channels = 0;
    std::int64_t m_frames = 0;
    std::unique_ptr<float[]> m_interleaved;
    std::size_t m_interleavedCapacity = 0;
};

} // namespace sorv
