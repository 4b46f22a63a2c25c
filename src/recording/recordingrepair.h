#pragma once

#include <QString>

#include <functional>

namespace sorv {

// What a look at a recording file found, after any repair.
struct RepairResult {
    bool ok = false;         // the file is usable (as it was or once repaired)
    bool repaired = false;   // it had to be put right: a crash left it
    bool needsRemux = false; // a fragmented MP4 that only the remuxer can put right
    double seconds = 0;
    QString error; // why it is not usable
};

// Copies the streams of `from` into a plain MP4 at `to` with its index
// first (the capture stack has it; a program without it passes none).
using Mp4Remuxer = std::function<bool(const QString& from, const QString& to, QString* error)>;

// Makes a WAV's header (RIFF or RF64) match the samples that reached the
// file: a process killed between a write and its header update leaves them
// apart. A trailing partial frame is cut off.
RepairResult repairWav(const QString& path);

// A fragmented MP4 (a recording that never finished) is rewritten with its
// index first, as a finished recording is, when `remux` is given; without
// it the result says needsRemux.
RepairResult repairMp4(const QString& path, const Mp4Remuxer& remux);

} // namespace sorv
