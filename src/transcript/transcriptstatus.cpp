#include "transcriptstatus.h"

namespace sorv {

QString TranscriptStatus::caseName() const
{
    switch (m_kind) {
    case Kind::Idle:
        return QStringLiteral("idle");
    case Kind::Connecting:
        return QStringLiteral("connecting");
    case Kind::Active:
        return QStringLiteral("active");
    case Kind::Error:
        return QStringLiteral("error");
    }
    return {};
}

} // namespace sorv

#include "moc_transcriptstatus.cpp"
