#include "livetranscriptmanager.h"

#include "core/log.h"
#include "core/notify.h"
#include "service/network.h"
#include "service/requestrules.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace sorv {

namespace {

bool isRedirect(int status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

SSEConnectionStatus httpError(int status)
{
    return SSEConnectionStatus::error(
        QCoreApplication::translate("LiveTranscriptManager", "HTTP %1").arg(status));
}

// "text/event-stream", in any case, with or without parameters.
bool isEventStream(const QByteArray& contentType)
{
    return contentType.split(';').first().trimmed().toLower() == "text/event-stream";
}

} // namespace

LiveTranscriptManager::LiveTranscriptManager(QObject* parent)
    : LiveTranscriptManager(timerDelayedCall(), parent)
{}

LiveTranscriptManager::LiveTranscriptManager(DelayedCall after, QObject* parent)
    : QObject(parent), m_after(std::move(after))
{
    qRegisterMetaType<TranscriptSegment>();
    qRegisterMetaType<SSEConnectionStatus>();
}

LiveTranscriptManager::~LiveTranscriptManager()
{
    ++m_generation;
    dropReply();
}

QVariantMap LiveTranscriptManager::speakerNamesMap() const
{
    QVariantMap map;
    for (auto it = speakerNames().cbegin(); it != speakerNames().cend(); ++it)
        map.insert(it.key(), it.value());
    return map;
}

std::optional<QUrl> LiveTranscriptManager::streamUrl(const QString& serverURL,
                                                     const QString& meetingId)
{
    return endpointUrl(serverURL, QStringLiteral("/api/meetings/") +
                                      QString::fromLatin1(QUrl::toPercentEncoding(meetingId)) +
                                      QStringLiteral("/live"));
}

// ---- Connect and disconnect ---------------------------------------------------------

void LiveTranscriptManager::connect(const QString& meetingId, const QString& serverURL,
                                    const QString& token)
{
    disconnect();
    const bool hadSegments = !segments().isEmpty();
    const bool hadNames = !speakerNames().isEmpty();
    const bool hadStatus = !meetingStatus().isEmpty();
    m_transcript.clear();
    if (hadSegments) {
        Q_EMIT segmentsCleared();
        Q_EMIT segmentsChanged();
    }
    if (hadNames)
        Q_EMIT speakerNamesChanged();
    if (hadStatus)
        Q_EMIT meetingStatusChanged();
    setAndNotify(this, m_meetingId, meetingId, &LiveTranscriptManager::meetingIdChanged);
    m_serverURL = serverURL;
    m_token = token;
    m_attempts = 0;
    setStatus(SSEConnectionStatus::connecting());
    setActive(true);
    startAttempt();
}

void LiveTranscriptManager::disconnect()
{
    ++m_generation;
    dropReply();
    m_reader.reset();
    setActive(false);
    setStatus(SSEConnectionStatus::disconnected());
}

// ---- The stream -------------------------------------------------------------------

void LiveTranscriptManager::startAttempt()
{
    const std::optional<QUrl> url = streamUrl(m_serverURL, m_meetingId);
    if (!url) {
        consoleLog(
            QStringLiteral("❌ Live transcript: no usable URL for the origin %1").arg(m_serverURL));
        endStream(SSEConnectionStatus::error(
            QCoreApplication::translate("LiveTranscriptManager", "Invalid URL")));
        return;
    }
    QNetworkRequest request(*url);
    // The stream stays open as long as the meeting runs, quiet or not.
    request.setTransferTimeout(0);
    request.setRawHeader("Accept", "text/event-stream");
    request.setRawHeader("Authorization", bearerHeaderValue(m_token));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    request.setMaximumRedirectsAllowed(kMaxRedirects);

    ++m_attempts;
    m_streamOpen = false;
    m_reader.reset();
    // As a custom verb: Qt resends a plain GET by itself when the connection
    // breaks, and the attempts are to be ours, 3 s apart.
    m_reply = sharedNetworkAccess().sendCustomRequest(request, "GET");
    // Qt's network thread reads no further ahead of us than this: a service
    // that sends faster than the payloads are handled waits in its socket,
    // not in our memory.
    m_reply->setReadBufferSize(kReadBufferBytes);
    guardReply(m_reply, true);
    QObject::connect(m_reply, &QNetworkReply::metaDataChanged, this,
                     &LiveTranscriptManager::readMetaData);
    QObject::connect(m_reply, &QNetworkReply::readyRead, this, &LiveTranscriptManager::readBody);
    QObject::connect(m_reply, &QNetworkReply::finished, this, &LiveTranscriptManager::finished);
    consoleLog(QStringLiteral("🌐 Live transcript of meeting %1: connecting (attempt %2)")
                   .arg(m_meetingId, QString::number(m_attempts)));
}

void LiveTranscriptManager::readMetaData()
{
    if (!m_reply || m_streamOpen)
        return;
    const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid() || isRedirect(status.toInt()))
        return;
    if (status.toInt() != 200) {
        consoleLog(QStringLiteral("❌ Live transcript of meeting %1: HTTP %2")
                       .arg(m_meetingId, QString::number(status.toInt())));
        endStream(httpError(status.toInt()));
        return;
    }
    // A captive portal's sign-in page, or a proxy's error page, also comes
    // with 200: it is not the stream, and another attempt may reach it.
    const QByteArray contentType =
        m_reply->header(QNetworkRequest::ContentTypeHeader).toByteArray();
    if (!isEventStream(contentType)) {
        const QString what =
            contentType.isEmpty()
                ? QCoreApplication::translate("LiveTranscriptManager", "no content type")
                : QString::fromLatin1(contentType.left(100));
        dropReply();
        retryLater(QCoreApplication::translate("LiveTranscriptManager",
                                               "Not an event stream: the answer was %1 (HTTP 200)")
                       .arg(what));
        return;
    }
    m_streamOpen = true;
    consoleLog(QStringLiteral("✅ Live transcript of meeting %1: connected").arg(m_meetingId));
    setStatus(SSEConnectionStatus::connected());
}

void LiveTranscriptManager::readBody()
{
    if (!m_reply || !m_streamOpen)
        return;
    QList<QByteArray> payloads;
    // Read as it comes, so the reply never holds more than one read's worth.
    m_reader.feed(m_reply->readAll(), payloads);
    handlePayloads(payloads, m_generation);
}

void LiveTranscriptManager::finished()
{
    if (!m_reply)
        return;
    QNetworkReply* reply = m_reply;
    const QVariant statusAttribute = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const int status = statusAttribute.isValid() ? statusAttribute.toInt() : 0;
    bool failed = reply->error() != QNetworkReply::NoError;
    QString errorText = reply->errorString();
    const std::uint64_t generation = m_generation;

    if (!m_streamOpen && (!failed || statusAttribute.isValid())) {
        // An answer that was never the stream: a refusal, a redirect we
        // would not follow, or no HTTP at all (status 0).
        endStream(httpError(status));
        return;
    }

    // Whole lines that arrived before the end still count; a line cut off
    // does not, and tells a drop that was reported as an end.
    QList<QByteArray> payloads;
    if (m_streamOpen) {
        m_reader.feed(reply->readAll(), payloads);
        if (!failed && m_reader.midLine()) {
            failed = true;
            errorText = QCoreApplication::translate("LiveTranscriptManager",
                                                    "Connection closed mid-stream");
        }
    }
    dropReply();
    handlePayloads(payloads, generation);
    if (generation != m_generation)
        return;

    if (!failed) {
        consoleLog(
            QStringLiteral("🌐 Live transcript of meeting %1: the stream ended").arg(m_meetingId));
        endStream(SSEConnectionStatus::disconnected());
        return;
    }
    retryLater(errorText);
}

void LiveTranscriptManager::retryLater(const QString& errorText)
{
    const std::uint64_t generation = m_generation;
    m_reader.reset();
    consoleLog(QStringLiteral("🔄 Live transcript of meeting %1: %2; trying again in %3 s")
                   .arg(m_meetingId, errorText, QString::number(kRetryDelay.count() / 1000)));
    setStatus(SSEConnectionStatus::error(errorText));
    m_after(kRetryDelay, [self = QPointer<LiveTranscriptManager>(this), generation] {
        if (self && self->m_generation == generation)
            self->startAttempt();
    });
}

void LiveTranscriptManager::handlePayloads(const QList<QByteArray>& payloads,
                                           std::uint64_t generation)
{
    for (const QByteArray& payload : payloads) {
        // Whoever follows the signals may have disconnected or started over.
        if (generation != m_generation)
            return;
        const MeetingTranscript::Changes changes = m_transcript.apply(payload);
        if (changes.trimmed > 0)
            Q_EMIT segmentsTrimmed(static_cast<int>(changes.trimmed));
        if (changes.grownRow >= 0)
            Q_EMIT segmentTextChanged(static_cast<int>(changes.grownRow));
        if (changes.firstAppended >= 0) {
            for (qsizetype row = changes.firstAppended; row < segments().size(); ++row) {
                if (generation != m_generation)
                    return;
                Q_EMIT segmentAppended(static_cast<int>(row));
            }
        }
        if (generation != m_generation)
            return;
        if (changes.segmentsChanged())
            Q_EMIT segmentsChanged();
        if (changes.speakerNames)
            Q_EMIT speakerNamesChanged();
        if (changes.meetingStatus)
            Q_EMIT meetingStatusChanged();
    }
}

void LiveTranscriptManager::endStream(const SSEConnectionStatus& status)
{
    ++m_generation;
    dropReply();
    m_reader.reset();
    // Settled before the signals, so that whoever follows the status sees
    // that no retry comes.
    const bool wasActive = m_active;
    m_active = false;
    setStatus(status);
    if (wasActive)
        Q_EMIT activeChanged();
    Q_EMIT streamEnded();
}

void LiveTranscriptManager::dropReply()
{
    if (!m_reply)
        return;
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    m_streamOpen = false;
    QObject::disconnect(reply, nullptr, this, nullptr);
    if (!reply->isFinished())
        reply->abort();
    reply->deleteLater();
}

void LiveTranscriptManager::setStatus(const SSEConnectionStatus& status)
{
    setAndNotify(this, m_status, status, &LiveTranscriptManager::connectionStatusChanged);
}

void LiveTranscriptManager::setActive(bool active)
{
    setAndNotify(this, m_active, active, &LiveTranscriptManager::activeChanged);
}

} // namespace sorv

#include "moc_livetranscriptmanager.cpp"
