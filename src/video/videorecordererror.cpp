#include "videorecordererror.h"

#include "video/screencaptureaccess.h"

namespace sorv {

QString VideoRecorderError::description() const
{
    switch (m_code) {
    case Code::ShareableContentFailed:
        return QStringLiteral("Could not enumerate displays: ") + m_message;
    case Code::ScStreamStartFailed:
        return QStringLiteral("Could not start screen capture: ") + m_message;
    case Code::WriterSetupFailed:
        return QStringLiteral("Could not set up video writer: ") + m_message;
    case Code::InvalidState:
        return QStringLiteral("VideoRecorder in invalid state: ") + m_message;
    case Code::PermissionDenied:
        return QStringLiteral("Permission denied — allow screen sharing for Sorvelandrix "
                              "Recorder when your desktop asks, or in its privacy settings.");
    case Code::NoDisplay:
        return QStringLiteral("No display found for screen capture.");
    case Code::SharingCancelled:
        return QStringLiteral("Screen sharing was cancelled.");
    case Code::NoScreenCastPortal:
        return screenCastPortalMissingText();
    case Code::NotRecording:
        break;
    }
    return QStringLiteral("VideoRecorder is not recording.");
}

} // namespace sorv
