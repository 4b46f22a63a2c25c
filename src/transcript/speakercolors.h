#pragma once

#include "transcript/transcriptsegment.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>

namespace sorv {

// The colours transcript bubbles give their speakers, shared by every list
// that shows a transcript. Entry 0 is blue, 1 red, 2 green, and so on.
inline constexpr int kSpeakerPaletteSize = 15;

// The palette entry as "#RRGGBB" (what QML takes for a colour) and as 0xRRGGBB.
QString speakerPaletteColorName(int index);
std::uint32_t speakerPaletteRgb(int index);

// The speakers of the segments in the order they first speak.
QStringList speakersInOrder(const QList<TranscriptSegment>& segments);

// The palette entry for a speaker label, given the speakers on screen in the
// order they first spoke: the n-th of them gets entry n (mod the palette),
// so colours follow who spoke first rather than the labels. A label not on
// screen that is a decimal integer gets its value (mod the palette, never
// negative); any other label a hash of its text that is the same in every
// run.
int speakerColorIndex(const QString& label, const QStringList& speakersOnScreen);

} // namespace sorv
