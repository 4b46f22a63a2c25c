#include "screencaptureaccess.h"

#include <QtGlobal>

namespace sorv {

bool screenCapturePreflight()
{
    // A saved portal restore token will make a Wayland session "allowed"
    // once the portal path exists.
    return qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           !qEnvironmentVariableIsEmpty("DISPLAY");
}

QString screenCaptureAllowedButNotAppliedText()
{
    return QStringLiteral(
        "Screen recording was allowed, but this running copy has not picked it up yet.\n\n"
        "Quit Sorvelandrix Recorder completely (Ctrl+Q), open it again, then try again.\n\n"
        "If needed: remove Sorvelandrix Recorder's screen-sharing permission in your desktop's "
        "privacy settings, then quit and reopen once more.");
}

QString screenCaptureNotAllowedText()
{
    return QStringLiteral(
        "Your desktop has not allowed this copy of Sorvelandrix Recorder to record the screen.\n\n"
        "1. Start recording again and choose a screen or window when your desktop asks, then "
        "press Share.\n"
        "2. If nothing asks, make sure xdg-desktop-portal and your desktop's portal backend are "
        "running.\n"
        "3. Quit this app completely (Ctrl+Q) and open it again.\n\n"
        "If it still fails, reset the permission in a terminal: flatpak permission-reset "
        "com.sorvelandrix.recorder\n"
        "then repeat steps 1–3.");
}

QString screenCaptureAdviceText()
{
    return screenCapturePreflight() ? screenCaptureAllowedButNotAppliedText()
                                    : screenCaptureNotAllowedText();
}

} // namespace sorv
