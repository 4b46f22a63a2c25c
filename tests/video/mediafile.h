#pragma once

#include <QRect>
#include <QSize>
#include <QString>

#include <vector>

namespace sorv::test {

// What FFmpeg's own demuxer and decoders make of a media file: the checks of
// the video tests, independent of the writer's code.
struct MediaFile {
    bool opened = false;
    QString error;

    QString videoCodec;
    int videoProfile = -1; // FF_PROFILE_H264_*
    QSize videoSize;
    QString audioCodec;
    int audioChannels = 0;
    int audioSampleRate = 0;

    double duration = 0.0; // the container's

    // The top-level boxes in file order ("ftyp", "moov", "mdat", ...).
    std::vector<QString> boxes;

    // Decoded: every packet read and decoded without error to the end.
    int readErrors = 0;
    int decodeErrors = 0;
    std::vector<double> framePts;  // seconds
    std::vector<double> frameLuma; // mean Y (0–255) inside `lumaRegion`
    // Per frame, the mean Y inside each of `moreRegions`.
    std::vector<std::vector<double>> moreLuma;
    double videoEnd = 0.0;    // last frame's pts + its duration
    std::vector<float> audio; // decoded, mono
    double audioStart = 0.0;  // pts of the first decoded sample
    double audioEnd = 0.0;

    // Reads the file; with `decode`, decodes every packet (from `startAt`
    // seconds on, when given). `lumaRegion` is in video pixels (empty: the
    // whole frame).
    static MediaFile read(const QString& path, bool decode, QRect lumaRegion = {},
                          double startAt = 0.0, const std::vector<QRect>& moreRegions = {});

    // Onsets of clicks in the audio: the first sample above `threshold` after
    // at least `quiet` seconds below it.
    std::vector<double> clickTimes(float threshold, double quiet) const;
    // Times of the frames where the picture turns white: inside
    // `moreRegions[region]`, or inside `lumaRegion` when `region` is -1.
    std::vector<double> flashTimes(int region = -1) const;
};

} // namespace sorv::test
