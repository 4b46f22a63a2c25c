#include "uploadretryscheduler.h"

#include "core/log.h"
#include "recording/pendingrecordings.h"
#include "recording/uploadfailurelog.h"
#include "service/authmanager.h"

#include <QFileInfo>
#include <QNetworkInformation>

#include <algorithm>

namespace sorv {

UploadRetryScheduler::UploadRetryScheduler(AuthManager* auth, DelayedCall delays, QObject* parent)
    : QObject(parent), m_auth(auth), m_delays(std::move(delays))
{
    m_uploader.setAuthManager(auth);
    connect(&m_uploader, &RecordingUploader::finished, this, &UploadRetryScheduler::ended);
    if (auth)
        connect(auth, &AuthManager::isLoggedInChanged, this, [this] {
            if (m_paused && m_auth->isLoggedIn()) {
                m_paused = false;
                retryAllNow();
            }
        });
}

std::chrono::minutes UploadRetryScheduler::delayBefore(int attempt)
{
    using std::chrono::minutes;
    switch (attempt) {
    case 1:
        return minutes(1);
    case 2:
        return minutes(5);
    case 3:
        return minutes(15);
    default:
        return minutes(60);
    }
}

void UploadRetryScheduler::add(const RecordingUploader::Outcome& failure)
{
    if (failure.kind == RecordingUploader::Outcome::Kind::SignInRequired) {
        m_paused = true;
        m_waiting.try_emplace(failure.path);
        return;
    }
    if (failure.kind != RecordingUploader::Outcome::Kind::Failed || !failure.transient ||
        failure.path.isEmpty())
        return;
    if (m_waiting.contains(failure.path))
        return; // already on its schedule
    m_waiting[failure.path] = {};
    arm(failure.path);
}

void UploadRetryScheduler::addRemembered()
{
    for (const QString& path : uploadfailurelog::transientPaths()) {
        RecordingUploader::Outcome failure;
        failure.path = path;
        failure.transient = true;
        add(failure);
    }
}

void UploadRetryScheduler::arm(const QString& path)
{
    Waiting& waiting = m_waiting[path];
    const std::uint64_t turn = waiting.turn = ++m_turns;
    m_delays(delayBefore(waiting.attempts + 1), [self = QPointer(this), path, turn] {
        if (!self)
            return;
        const auto it = self->m_waiting.find(path);
        if (it != self->m_waiting.end() && it->second.turn == turn)
            self->enqueue(path);
    });
}

void UploadRetryScheduler::retryAllNow()
{
    for (auto& [path, waiting] : m_waiting)
        enqueue(path);
}

void UploadRetryScheduler::retryNow(const QString& path)
{
    m_waiting.try_emplace(path);
    enqueue(path);
}

void UploadRetryScheduler::enqueue(const QString& path)
{
    // The timer that would have sent it is void now.
    m_waiting[path].turn = ++m_turns;
    if (std::find(m_due.begin(), m_due.end(), path) == m_due.end())
        m_due.push_back(path);
    next();
}

void UploadRetryScheduler::next()
{
    if (m_uploader.isRunning() || m_paused || m_due.empty())
        return;
    const QString path = m_due.front();
    m_due.pop_front();
    if (!QFileInfo::exists(path)) {
        // Sent or deleted by someone else meanwhile.
        m_waiting.erase(path);
        return next();
    }
    consoleLog(QStringLiteral("🔁 Trying the upload of %1 again").arg(QFileInfo(path).fileName()));
    m_uploader.upload(path, recordingCompanions(path));
}

void UploadRetryScheduler::ended(const RecordingUploader::Outcome& outcome)
{
    using Kind = RecordingUploader::Outcome::Kind;
    const auto it = m_waiting.find(outcome.path);
    if (outcome.kind == Kind::SignInRequired) {
        m_paused = true;
    } else if (outcome.kind == Kind::Failed && outcome.transient && it != m_waiting.end()) {
        ++it->second.attempts;
        arm(outcome.path);
    } else if (it != m_waiting.end()) {
        m_waiting.erase(it);
    }
    Q_EMIT finished(outcome);
    next();
}

void UploadRetryScheduler::followNetworkReachability()
{
    if (!QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability))
        return;
    connect(QNetworkInformation::instance(), &QNetworkInformation::reachabilityChanged, this,
            [this](QNetworkInformation::Reachability reachability) {
                if (reachability == QNetworkInformation::Reachability::Online)
                    retryAllNow();
            });
}

} // namespace sorv

#include "moc_uploadretryscheduler.cpp"
