#pragma once

#include "video/videorecorder.h"

#include <QTest>

#include <optional>

namespace sorv::test {

// A video recorder's start and stop, waited for with the event loop running.
inline std::optional<VideoRecorderError> startAndWait(VideoRecorder& recorder, const QString& path,
                                                      const ScreenCaptureTargetOption& target)
{
    bool done = false;
    std::optional<VideoRecorderError> result;
    recorder.start(path, target, [&](const std::optional<VideoRecorderError>& error) {
        result = error;
        done = true;
    });
    if (!QTest::qWaitFor([&] { return done; }, 30000))
        return VideoRecorderError::invalidState(QStringLiteral("start did not complete"));
    return result;
}

inline VideoRecorder::StopResult stopAndWait(VideoRecorder& recorder)
{
    bool done = false;
    VideoRecorder::StopResult result;
    recorder.stop([&](const VideoRecorder::StopResult& r) {
        result = r;
        done = true;
    });
    if (!QTest::qWaitFor([&] { return done; }, 30000))
        result.error = VideoRecorderError::invalidState(QStringLiteral("stop did not complete"));
    return result;
}

} // namespace sorv::test
