#include "videorecordererror.h"

#include "video/screencaptureaccess.h"

#include <QCoreApplication>

namespace sorv {

QString VideoRecorderError::description() const
{
    switch (m_code) {
    case Code::ShareableContentFailed:
        return QCoreApplication::translate("VideoRecorderError", "Could not enumerate displays: ") +
               m_message;
    case Code::ScStreamStartFailed:
        return QCoreApplication::translate("VideoRecorderError",
                                           "Could not start screen capture: ") +
               m_message;
    case Code::WriterSetupFailed:
        return QCoreApplication::translate("VideoRecorderError",
                                           "Could not set up video writer: ") +
               m_message;
    case Code::InvalidState:
        return QCoreApplication::translate("VideoRecorderError",
                                           "VideoRecorder in invalid state: ") +
               m_message;
    case Code::PermissionDenied:
        return QCoreApplication::translate(
            "VideoRecorderError", "Permission denied — allow screen sharing for Sorvelandrix "
                                  "Recorder when your desktop asks, or in its privacy settings.");
    case Code::NoDisplay:
        return QCoreApplication::translate("VideoRecorderError",
                                           "No display found for screen capture.");
    case Code::SharingCancelled:
        return QCoreApplication::translate("VideoRecorderError", "Screen sharing was cancelled.");
    case Code::NoScreenCastPortal:
        return screenCastPortalMissingText();
    case Code::NotRecording:
        break;
    }
    return QCoreApplication::translate("VideoRecorderError", "VideoRecorder is not recording.");
}

} // namespace sorv
