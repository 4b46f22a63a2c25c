#pragma once

#include "cli/command.h"
#include "recording/recordinguploader.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>

#include <functional>

namespace sorv::cli {

// Shows an upload by RecordingUploader (on its own, or the one an
// AudioRecorder saves with): a progress bar (percentage, bytes,
// rate) on a terminal, `progress` events with --json, then the recording's id
// and web address, or the failure with the command that retries it. Ends the
// command's event loop once the upload has finished.
class UploadReporter : public QObject {
public:
    // `done`, when given, is called at the end instead of ending the
    // command (one upload of several).
    UploadReporter(CommandContext& ctx, RecordingUploader& uploader, const QString& path,
                   std::function<void(bool uploaded)> done = {});

private:
    void onProgress(double fraction);
    void onFinished(const RecordingUploader::Outcome& outcome);
    void drawProgress(double fraction, bool final);

    void end(bool uploaded);

    CommandContext& m_ctx;
    std::function<void(bool)> m_done;
    QString m_path;
    qint64 m_size = 0;
    QElapsedTimer m_clock;
    bool m_barShown = false;
    int m_lastPermille = -1;
};

} // namespace sorv::cli
