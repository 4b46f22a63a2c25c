#pragma once

#include <QRect>
#include <QSize>
#include <QString>

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace sorv {

struct Yuv420Layout;

// Writes H.264 video and AAC audio into an MP4 file with FFmpeg. While
// recording the file is fragmented (a fragment at least twice a second), so
// a process killed at any moment leaves a file that plays up to its last
// fragment; finishing rewrites it as a plain MP4 with its index at the front
// (a stream copy, see finalise()). Not thread-safe: one thread (the video
// queue) does everything.
class Mp4Writer {
public:
    struct Settings {
        QSize videoSize;
        int frameRate = 30;
        std::int64_t videoBitRate = 4'000'000;
        int keyFrameInterval = 60;
        // superfast + zerolatency: see kVideoPreset in the .cpp for why.
        QString preset;
        QString tune;
        int inputSampleRate = 48000;
        int audioSampleRate = 44100;
        std::int64_t audioBitRate = 128'000;
    };

    struct Statistics {
        std::int64_t videoFrames = 0;
        std::int64_t videoPackets = 0;
        std::int64_t audioPackets = 0;
        std::int64_t audioSamples = 0; // at the output rate, incl. leading silence
    };

    Mp4Writer();
    ~Mp4Writer();
    Mp4Writer(const Mp4Writer&) = delete;
    Mp4Writer& operator=(const Mp4Writer&) = delete;

    static Settings defaultSettings(QSize videoSize);

    // Creates the file (truncating one that is there, which stays the same
    // file, so a lock on it holds) and writes its header.
    // The messages: "writer rejected video input", "writer rejected audio
    // input", or FFmpeg's reason the file could not be written.
    bool open(const QString& path, const Settings& settings, QString* error);
    bool isOpen() const;

    // One picture of bgr0 pixels, scaled into `destination` of the video frame
    // (black around it). `ptsNs` counts from the start of the file; a picture
    // not later than the previous one is skipped.
    bool writeVideo(const std::uint8_t* bgr0, QSize size, int stride, QRect destination,
                    std::int64_t ptsNs, QString* error);
    // A whole video frame already in YUV 4:2:0 at `layout` (the video's
    // size), read in place: nothing refers to `frame` once this returns.
    bool writeVideoYuv(const std::uint8_t* frame, const Yuv420Layout& layout, std::int64_t ptsNs,
                       QString* error);
    // A black picture (the window went away).
    bool writeBlackVideo(std::int64_t ptsNs, QString* error);

    // Mono samples at the input rate whose first sample is at `ptsNs`. The
    // first call pads the audio with silence from zero; later timestamps that
    // drift from the samples are followed by stretching or squeezing a little
    // (jumps of more than 80 ms: filling or trimming).
    bool writeAudio(const float* samples, int count, std::int64_t ptsNs, QString* error);

    // Drains the encoders and closes the fragmented file.
    bool finish(QString* error);
    // Closes without draining; what was written stays playable.
    void cancel();

    const Statistics& statistics() const { return m_stats; }

    // Copies the streams of `from` into a plain MP4 at `to` whose index (moov)
    // comes first. With the number of packets known, space for the index is
    // reserved up front and the file is written once; otherwise, or when the
    // reservation falls short, the muxer's own second pass (+faststart) moves
    // the index to the front. Video packets stamped at or after `videoEndNs`
    // (from the start of the file) are left out, though never the first.
    static bool
    remuxWithIndexFirst(const QString& from, const QString& to, std::int64_t packets,
                        QString* error,
                        std::int64_t videoEndNs = std::numeric_limits<std::int64_t>::max());

private:
    struct Impl;
    std::unique_ptr<Impl> d;
    Statistics m_stats;
};

// FFmpeg's text for an error code.
QString ffmpegErrorText(int code);

} // namespace sorv
