#include "uploadreporter.h"

#include "core/paths.h"
#include "core/settings.h"
#include "recording/audiorecorder.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonObject>

#include <cstdio>

namespace sorv::cli {

UploadReporter::UploadReporter(CommandContext& ctx, AudioRecorder& recorder, const QString& path)
    : m_ctx(ctx), m_recorder(recorder), m_path(path), m_size(QFileInfo(path).size())
{
    connect(&recorder, &AudioRecorder::stateChanged, this, &UploadReporter::onStateChanged);
}

QString UploadReporter::formatBytes(double bytes)
{
    static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    int unit = 0;
    while (bytes >= 1024.0 && unit < 4) {
        bytes /= 1024.0;
        ++unit;
    }
    return unit == 0
               ? QStringLiteral("%1 B").arg(bytes, 0, 'f', 0)
               : QStringLiteral("%1 %2").arg(bytes, 0, 'f', 1).arg(QLatin1String(units[unit]));
}

void UploadReporter::drawProgress(double fraction, bool final)
{
    const double sent = fraction * static_cast<double>(m_size);
    const double seconds = std::max(0.001, m_clock.elapsed() / 1000.0);
    const int permille = static_cast<int>(fraction * 1000.0);
    if (m_ctx.json) {
        if (permille / 10 == m_lastPermille / 10 && !final)
            return; // at most one event per percent
        m_lastPermille = permille;
        m_ctx.event({{QStringLiteral("event"), QStringLiteral("progress")},
                     {QStringLiteral("fraction"), fraction},
                     {QStringLiteral("bytes"), static_cast<qint64>(sent)},
                     {QStringLiteral("total"), m_size}});
        return;
    }
    if (!CommandContext::stdoutIsTerminal() || (permille == m_lastPermille && !final))
        return;
    m_lastPermille = permille;
    constexpr int kWidth = 30;
    const int filled = std::clamp(static_cast<int>(fraction * kWidth), 0, kWidth);
    const QString bar =
        QString(filled, QLatin1Char('#')) + QString(kWidth - filled, QLatin1Char('-'));
    std::fprintf(stdout, "\rUploading [%s] %5.1f %%  %s / %s  %s/s ", qPrintable(bar),
                 fraction * 100.0, qPrintable(formatBytes(sent)),
                 qPrintable(formatBytes(static_cast<double>(m_size))),
                 qPrintable(formatBytes(sent / seconds)));
    std::fflush(stdout);
    m_barShown = true;
}

void UploadReporter::onStateChanged()
{
    const RecordingState state = m_recorder.state();
    switch (state.kind()) {
    case RecordingState::Kind::Uploading:
        if (!m_clock.isValid())
            m_clock.start();
        drawProgress(state.progress(), false);
        break;
    case RecordingState::Kind::Uploaded: {
        if (m_clock.isValid())
            drawProgress(1.0, true);
        if (m_barShown)
            std::fputs("\n", stdout);
        const QString id = state.idOrEmpty();
        QString origin = Settings::serverOrigin();
        while (origin.endsWith(QLatin1Char('/')))
            origin.chop(1);
        const QString address =
            id.isEmpty() ? QString() : origin + QStringLiteral("/recording/") + id;
        m_ctx.print(id.isEmpty() ? QStringLiteral("Uploaded %1").arg(state.name())
                                 : QStringLiteral("Uploaded %1\nRecording id: %2\n%3")
                                       .arg(state.name(), id, address));
        QJsonObject e{{QStringLiteral("event"), QStringLiteral("uploaded")},
                      {QStringLiteral("name"), state.name()}};
        if (!id.isEmpty()) {
            e.insert(QStringLiteral("id"), id);
            e.insert(QStringLiteral("url"), address);
        }
        m_ctx.event(e);
        QCoreApplication::exit(kExitOk);
        break;
    }
    case RecordingState::Kind::Error: {
        if (m_barShown)
            std::fputs("\n", stdout);
        m_ctx.error(state.message());
        if (QFileInfo::exists(m_path))
            m_ctx.error(
                QStringLiteral("The recording is kept at %1\nRetry with: sorvelandrix upload %1")
                    .arg(m_path));
        QCoreApplication::exit(kExitFailure);
        break;
    }
    default:
        break;
    }
}

} // namespace sorv::cli
