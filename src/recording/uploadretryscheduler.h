#pragma once

#include "core/delayedcall.h"
#include "recording/recordinguploader.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <deque>
#include <map>

namespace sorv {

class AuthManager;

// Sends again, by itself, the recordings whose upload failed for a network
// reason: after 1, 5 and 15 minutes, then every hour, and at once when the
// network comes back. A refusal (4xx) ends the tries; a session that ended
// (401 after a refresh) pauses them all until the user signs in again. The
// uploads go one at a time through its own uploader, whose file locks keep
// any other program from sending the same file meanwhile. Main thread only.
class UploadRetryScheduler : public QObject {
    Q_OBJECT
public:
    explicit UploadRetryScheduler(AuthManager* auth, DelayedCall delays = timerDelayedCall(),
                                  QObject* parent = nullptr);

    // The wait before try number `attempt` (1 is the first retry).
    static std::chrono::minutes delayBefore(int attempt);

    // A recording whose upload failed: tried again on the schedule. A
    // failure that is not a network one is ignored.
    void add(const RecordingUploader::Outcome& failure);
    // Every network failure remembered by any program of the user.
    void addRemembered();
    // Tries every waiting recording now (the network is back).
    void retryAllNow();
    // Tries this one now (the user asked).
    void retryNow(const QString& path);
    // Listens to the system's reachability, when the platform reports it.
    void followNetworkReachability();

    bool isWaiting(const QString& path) const { return m_waiting.contains(path); }
    bool isPaused() const { return m_paused; }
    RecordingUploader& uploader() { return m_uploader; }

Q_SIGNALS:
    // Each try's end, as the uploader reports it.
    void finished(const sorv::RecordingUploader::Outcome& outcome);

private:
    struct Waiting {
        int attempts = 0;       // retries made so far
        std::uint64_t turn = 0; // a timer armed for an older turn does nothing
    };

    void arm(const QString& path);
    void enqueue(const QString& path);
    void next();
    void ended(const RecordingUploader::Outcome& outcome);

    QPointer<AuthManager> m_auth;
    DelayedCall m_delays;
    RecordingUploader m_uploader;
    std::map<QString, Waiting> m_waiting;
    std::deque<QString> m_due;
    std::uint64_t m_turns = 0;
    bool m_paused = false;
};

} // namespace sorv
