#include "recordingstate.h"

namespace sorv {

QString RecordingState::caseName() const
{
    switch (m_kind) {
    case Kind::Idle:
        return QStringLiteral("idle");
    case Kind::Preparing:
        return QStringLiteral("preparing");
    case Kind::Recording:
        return QStringLiteral("recording");
    case Kind::Stopping:
        return QStringLiteral("stopping");
    case Kind::PendingSave:
        return QStringLiteral("pendingSave");
    case Kind::Uploading:
        return QStringLiteral("uploading");
    case Kind::Uploaded:
        return QStringLiteral("uploaded");
    case Kind::Error:
        return QStringLiteral("error");
    }
    return {};
}

} // namespace sorv

#include "moc_recordingstate.cpp"
