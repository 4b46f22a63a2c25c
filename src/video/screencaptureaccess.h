#pragma once

#include <QString>

namespace sorv {

// Screen-capture consent on Linux. On X11 any client may capture, so the
// preflight is true and the probe succeeds at once. A Wayland session gives
// no access to other clients' pixels: until the desktop portal's ScreenCast
// consent is supported, a Wayland session without an X server beside it
// (Xwayland, DISPLAY set) counts as "not allowed".
bool screenCapturePreflight();

// The advice shown beside a recording whose screen capture was refused: the
// platform says it is allowed (preflight true) but this running copy has not
// picked it up, or it is not allowed at all.
QString screenCaptureAllowedButNotAppliedText();
QString screenCaptureNotAllowedText();
QString screenCaptureAdviceText();

} // namespace sorv
