#include "transcriptmode.h"

namespace sorv {

QString TranscriptMode::caseName() const
{
    switch (m_kind) {
    case Kind::None:
        return QStringLiteral("none");
    case Kind::Server:
        return QStringLiteral("server");
    case Kind::OnDevice:
        return QStringLiteral("onDevice");
    }
    return {};
}

std::optional<TranscriptMode> TranscriptMode::fromCaseName(const QString& name)
{
    for (const TranscriptMode mode : {none(), server(), onDevice()}) {
        if (mode.caseName() == name)
            return mode;
    }
    return std::nullopt;
}

} // namespace sorv

#include "moc_transcriptmode.cpp"
