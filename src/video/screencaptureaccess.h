#pragma once

#include <QObject>
#include <QString>

#include <functional>

namespace sorv {

// How the screen is captured: X11 lets any client read the screen (xcb,
// MIT-SHM); a Wayland session only shares it through the desktop's
// ScreenCast portal and PipeWire, even when Xwayland's DISPLAY is set.
// SORVELANDRIX_SCREEN_CAPTURE=portal|x11 overrides the guess.
enum class ScreenCaptureBackend { X11, Portal };
ScreenCaptureBackend screenCaptureBackend();

// Screen-capture consent on Linux. X11: always true. Wayland: the desktop
// has been asked once and its consent is stored (a portal restore token).
bool screenCapturePreflight();

// Whether the screen can be captured at all: at once on X11; on Wayland once
// the session bus has said whether a ScreenCast portal answers. `done` runs
// later on `context`'s thread.
void probeScreenCaptureAvailable(QObject* context, const std::function<void(bool)>& done);

// The advice shown beside a recording whose screen capture was refused: the
// platform says it is allowed (preflight true) but this running copy has not
// picked it up, or it is not allowed at all; on Wayland without a portal,
// what is missing.
QString screenCaptureAllowedButNotAppliedText();
QString screenCaptureNotAllowedText();
QString screenCastPortalMissingText();
QString screenCaptureAdviceText();

} // namespace sorv
