#include "uploadreporter.h"

#include "core/format.h"
#include "service/requestrules.h"

#include <QFileInfo>
#include <QJsonObject>

#include <algorithm>

namespace sorv::cli {

UploadReporter::UploadReporter(CommandContext& ctx, RecordingUploader& uploader,
                               const QString& path, std::function<void(bool uploaded)> done)
    : m_ctx(ctx), m_done(std::move(done)), m_path(path), m_size(QFileInfo(path).size())
{
    connect(&uploader, &RecordingUploader::progress, this, &UploadReporter::onProgress);
    connect(&uploader, &RecordingUploader::finished, this, &UploadReporter::onFinished);
}

void UploadReporter::drawProgress(double fraction, bool final)
{
    const double sent = fraction * static_cast<double>(m_size);
    const double seconds = std::max(0.001, static_cast<double>(m_clock.elapsed()) / 1000.0);
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
    if (!m_ctx.terminal || (permille == m_lastPermille && !final))
        return;
    m_lastPermille = permille;
    constexpr int kWidth = 30;
    const int filled = std::clamp(static_cast<int>(fraction * kWidth), 0, kWidth);
    const QString bar =
        QString(filled, QLatin1Char('#')) + QString(kWidth - filled, QLatin1Char('-'));
    m_ctx.draw(QStringLiteral("Uploading [%1] %2 %  %3 / %4  %5 ")
                   .arg(bar)
                   .arg(fraction * 100.0, 5, 'f', 1)
                   .arg(formatBytes(sent), formatBytes(static_cast<double>(m_size)),
                        formatRate(sent / seconds)));
    m_barShown = true;
}

void UploadReporter::onProgress(double fraction)
{
    if (!m_clock.isValid())
        m_clock.start();
    drawProgress(fraction, false);
}

void UploadReporter::onFinished(const RecordingUploader::Outcome& outcome)
{
    using Kind = RecordingUploader::Outcome::Kind;
    if (outcome.kind == Kind::Uploaded) {
        if (m_clock.isValid())
            drawProgress(1.0, true);
        if (m_barShown)
            m_ctx.endDrawnLine();
        const QString id = outcome.id.value_or(QString());
        const QString address = id.isEmpty() ? QString() : recordingWebAddress(id);
        m_ctx.print(id.isEmpty() ? QStringLiteral("Uploaded %1").arg(outcome.name)
                                 : QStringLiteral("Uploaded %1\nRecording id: %2\n%3")
                                       .arg(outcome.name, id, address));
        QJsonObject e{{QStringLiteral("event"), QStringLiteral("uploaded")},
                      {QStringLiteral("name"), outcome.name}};
        if (!id.isEmpty()) {
            e.insert(QStringLiteral("id"), id);
            e.insert(QStringLiteral("url"), address);
        }
        m_ctx.event(e);
        end(true);
        return;
    }
    if (m_barShown)
        m_ctx.endDrawnLine();
    const QString retry = m_ctx.commandLine({QStringLiteral("upload"), m_path});
    // The window's wording points at its own sign-in form; a terminal
    // needs the commands to run.
    if (outcome.kind == Kind::SignInRequired)
        m_ctx.error(QStringLiteral("Sign-in required: the session has ended.\nSign in with: %1")
                        .arg(m_ctx.commandLine({QStringLiteral("login")})));
    else
        m_ctx.error(outcome.message);
    if (QFileInfo::exists(m_path))
        m_ctx.error(
            QStringLiteral("The recording is kept at %1\nRetry with: %2").arg(m_path, retry));
    end(false);
}

void UploadReporter::end(bool uploaded)
{
    if (m_done)
        m_done(uploaded);
    else
        m_ctx.finish(uploaded ? kExitOk : kExitFailure);
}

} // namespace sorv::cli
