#pragma once

#include <QString>

namespace sorv {

// Screen-capture consent on Linux. On X11 any client may capture, so the
// preflight is true and the probe succeeds at once. Wayland needs the
// desktop portal's ScreenCast consent; until that is supported, a Wayland
// session counts as "not yet allowed".
bool screenCapturePreflight();

// The advice shown when capture was refused: the platform says it is allowed
// (preflight true) but this running copy has not picked it up, or it is not
// allowed at all.
QString screenCaptureAllowedButNotAppliedText();
QString screenCaptureNotAllowedText();
inline QString screenCaptureAdviceText()
{
    return screenCapturePreflight() ? screenCaptureAllowedButNotAppliedText()
                                    : screenCaptureNotAllowedText();
}

} // namespace sorv
