#include "screencaptureaccess.h"

#include "video/portalscreencast.h"

#include <QCoreApplication>
#include <QtGlobal>

#include <atomic>

namespace sorv {

namespace {

// What the last probe found; until one has run, a portal is assumed.
std::atomic<bool> g_portalAnswered{true};

} // namespace

ScreenCaptureBackend screenCaptureBackend()
{
    const QByteArray forced = qgetenv("SORVELANDRIX_SCREEN_CAPTURE");
    if (forced == "portal")
        return ScreenCaptureBackend::Portal;
    if (forced == "x11")
        return ScreenCaptureBackend::X11;
    const bool wayland =
        !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") || qgetenv("XDG_SESSION_TYPE") == "wayland";
    return wayland ? ScreenCaptureBackend::Portal : ScreenCaptureBackend::X11;
}

bool screenCapturePreflight()
{
    if (screenCaptureBackend() == ScreenCaptureBackend::X11)
        return true;
    return PortalScreenCast::hasRestoreToken(PortalScreenCast::Source::Monitor) ||
           PortalScreenCast::hasRestoreToken(PortalScreenCast::Source::Window);
}

void probeScreenCaptureAvailable(QObject* context, const std::function<void(bool)>& done)
{
    if (screenCaptureBackend() == ScreenCaptureBackend::X11) {
        done(true);
        return;
    }
    PortalScreenCast::probe(context, [done](bool available) {
        g_portalAnswered.store(available);
        done(available);
    });
}

QString screenCastPortalMissingText()
{
    return QCoreApplication::translate(
        "ScreenCaptureAccess",
        "Screen sharing needs xdg-desktop-portal and a portal for your desktop "
        "(GNOME, KDE or wlroots).");
}

QString screenCaptureAllowedButNotAppliedText()
{
    return QCoreApplication::translate(
        "ScreenCaptureAccess",
        "Screen recording was allowed, but this running copy has not picked it up yet.\n\n"
        "Quit Sorvelandrix Recorder completely (Ctrl+Q), open it again, then try again.\n\n"
        "If needed: remove Sorvelandrix Recorder's screen-sharing permission in your desktop's "
        "privacy settings, then quit and reopen once more.");
}

QString screenCaptureNotAllowedText()
{
    return QCoreApplication::translate(
        "ScreenCaptureAccess",
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
    if (screenCaptureBackend() == ScreenCaptureBackend::Portal && !g_portalAnswered.load())
        return screenCastPortalMissingText();
    return screenCapturePreflight() ? screenCaptureAllowedButNotAppliedText()
                                    : screenCaptureNotAllowedText();
}

} // namespace sorv
