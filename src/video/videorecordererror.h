#pragma once

#include <QString>

namespace sorv {

// Why a video recording could not start or finish. The description is the
// text the user sees.
class VideoRecorderError {
public:
    enum class Code {
        ShareableContentFailed,
        ScStreamStartFailed,
        WriterSetupFailed,
        InvalidState,
        PermissionDenied,
        NoDisplay,
        NotRecording,
        SharingCancelled,
        NoScreenCastPortal,
    };

    // Listing what is on screen failed.
    static VideoRecorderError shareableContentFailed(const QString& message)
    {
        return {Code::ShareableContentFailed, message};
    }
    // The screen capture (X connection, shared memory) could not start.
    static VideoRecorderError scStreamStartFailed(const QString& message)
    {
        return {Code::ScStreamStartFailed, message};
    }
    static VideoRecorderError writerSetupFailed(const QString& message)
    {
        return {Code::WriterSetupFailed, message};
    }
    static VideoRecorderError invalidState(const QString& message)
    {
        return {Code::InvalidState, message};
    }
    static VideoRecorderError permissionDenied() { return {Code::PermissionDenied, {}}; }
    static VideoRecorderError noDisplay() { return {Code::NoDisplay, {}}; }
    static VideoRecorderError notRecording() { return {Code::NotRecording, {}}; }
    // Wayland: the user cancelled the desktop's sharing dialog.
    static VideoRecorderError sharingCancelled() { return {Code::SharingCancelled, {}}; }
    // Wayland: nothing answers for the desktop's ScreenCast portal.
    static VideoRecorderError noScreenCastPortal() { return {Code::NoScreenCastPortal, {}}; }

    Code code() const { return m_code; }
    const QString& message() const { return m_message; }
    QString description() const;

    friend bool operator==(const VideoRecorderError&, const VideoRecorderError&) = default;

private:
    VideoRecorderError(Code code, QString message) : m_code(code), m_message(std::move(message)) {}

    Code m_code;
    QString m_message;
};

} // namespace sorv
