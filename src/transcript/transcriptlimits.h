#pragma once

#include <QString>

namespace sorv::TranscriptLimits {

// What a live transcript holds at most, however long it runs and whatever
// its source sends: past kMaxSegments the oldest kTrimBatch segments go at
// once; a segment's text stops at kMaxSegmentChars (later words start
// another segment); speaker labels and names stop at kMaxLabelChars; interim
// text is kept for kMaxSpeakers speakers at a time.
inline constexpr qsizetype kMaxSegments = 2000;
inline constexpr qsizetype kTrimBatch = 200;
inline constexpr qsizetype kMaxSegmentChars = 8192;
inline constexpr qsizetype kMaxLabelChars = 200;
inline constexpr qsizetype kMaxSpeakers = 64;

// How much of `text` fits in `max` characters without splitting a
// surrogate pair.
inline qsizetype fittingLength(const QString& text, qsizetype max)
{
    if (text.size() <= max)
        return text.size();
    return max > 0 && text.at(max - 1).isHighSurrogate() ? max - 1 : max;
}

inline QString fitted(const QString& text, qsizetype max)
{
    return text.left(fittingLength(text, max));
}

} // namespace sorv::TranscriptLimits
