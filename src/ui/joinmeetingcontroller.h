#pragma once

#include "core/delayedcall.h"

#include <QObject>
#include <QString>
#include <QVariantList>

#include <chrono>

namespace sorv {

class AccountSource;

// The "Join Meeting" tab's view-model: the link field, sending the
// service's bot into that meeting, and the outcome. After a bot was sent
// the tab says so and, 1.5 s later, asks to switch to the recordings list.
class JoinMeetingController : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString meetingUrl READ meetingUrl WRITE setMeetingUrl NOTIFY meetingUrlChanged)
    // The trimmed link is not empty and no join is under way.
    Q_PROPERTY(bool canJoin READ canJoin NOTIFY canJoinChanged)
    Q_PROPERTY(bool isJoining READ isJoining NOTIFY isJoiningChanged)
    // A bot was sent; the tab switches to the recordings list soon.
    Q_PROPERTY(bool succeeded READ succeeded NOTIFY succeededChanged)
    // Why the last join failed, else empty.
    Q_PROPERTY(QString errorMessage READ errorMessage NOTIFY errorMessageChanged)
    // The platforms the tab lists, in order: {"name": "Google Meet", "icon": "GoogleMeet"}, …
    Q_PROPERTY(QVariantList platforms READ platforms CONSTANT)

public:
    static inline const QString kBotName = QStringLiteral("Sorvelandrix Recorder");
    static constexpr std::chrono::milliseconds kSwitchDelay{1500};

    explicit JoinMeetingController(AccountSource& source, QObject* parent = nullptr);
    // With the pause before switching replaced (tests).
    JoinMeetingController(AccountSource& source, DelayedCall after, QObject* parent = nullptr);
    ~JoinMeetingController() override;

    QString meetingUrl() const { return m_meetingUrl; }
    void setMeetingUrl(const QString& url);
    bool canJoin() const;
    bool isJoining() const { return m_joining; }
    bool succeeded() const { return m_succeeded; }
    QString errorMessage() const { return m_errorMessage; }
    static QVariantList platforms();

    // Sends the bot into the meeting of the trimmed link; nothing happens
    // when it is empty or a join is under way.
    Q_INVOKABLE void join();

Q_SIGNALS:
    void meetingUrlChanged();
    void canJoinChanged();
    void isJoiningChanged();
    void succeededChanged();
    void errorMessageChanged();
    // The bot is on its way into the meeting.
    void joined(const QString& meetingId);
    // 1.5 s after joined(): time to show the recordings list.
    void switchToRecordings();

private:
    void setJoining(bool joining);
    void setSucceeded(bool succeeded);
    void setErrorMessage(const QString& message);
    void updateCanJoin();

    AccountSource& m_source;
    DelayedCall m_after;
    QString m_meetingUrl;
    bool m_joining = false;
    bool m_succeeded = false;
    QString m_errorMessage;
    bool m_canJoin = false;
};

} // namespace sorv
