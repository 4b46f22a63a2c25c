#pragma once

#include "service/accountsource.h"

#include <QPointer>
#include <QStringList>

#include <vector>

namespace sorv::test {

// An account whose service answers from a script. A call takes the answer
// scripted when it is made, and it arrives only when the test calls
// answer(): a list can be seen loading, and an answer can come late. Every
// call is logged ("recordings", "stop ID", …). Main thread only.
class CannedAccount : public AccountSource {
public:
    RecordingsFetchResult recordings;
    ApiResult<QList<Meeting>> meetings = QList<Meeting>();
    ApiResult<Meeting> joined = Meeting();
    std::optional<APIError> stopError;
    PasskeyOperationResult<QList<Passkey>> passkeys = QList<Passkey>();
    PasskeyOperationResult<Passkey> added = Passkey();
    std::optional<PasskeyFailure> deleteFailure;
    QStringList calls;

    // Signed out, or another account signed in.
    void endSession()
    {
        ++m_generation;
        Q_EMIT sessionEnded();
    }
    // Delivers the answers waiting now, in order, to callers still there;
    // those of calls made meanwhile wait for the next answer().
    void answer()
    {
        std::vector<Pending> due;
        due.swap(m_pending);
        for (const Pending& p : due)
            if (p.context)
                p.deliver();
    }

    quint64 sessionGeneration() const override { return m_generation; }
    QString accessToken() const override { return QStringLiteral("token-%1").arg(m_generation); }
    void fetchRecordings(const QObject* context,
                         std::function<void(RecordingsFetchResult)> done) override
    {
        queue(context, QStringLiteral("recordings"), std::move(done), recordings);
    }
    void fetchMeetings(const QObject* context,
                       std::function<void(ApiResult<QList<Meeting>>)> done) override
    {
        queue(context, QStringLiteral("meetings"), std::move(done), meetings);
    }
    void joinMeeting(const QString& meetingUrl, const QString& botName, const QObject* context,
                     std::function<void(ApiResult<Meeting>)> done) override
    {
        queue(context, QStringLiteral("join %1 as %2").arg(meetingUrl, botName), std::move(done),
              joined);
    }
    void stopMeeting(const QString& id, const QObject* context,
                     std::function<void(std::optional<APIError>)> done) override
    {
        queue(context, QStringLiteral("stop ") + id, std::move(done), stopError);
    }
    void listPasskeys(const QObject* context,
                      std::function<void(PasskeyOperationResult<QList<Passkey>>)> done) override
    {
        queue(context, QStringLiteral("passkeys"), std::move(done), passkeys);
    }
    void registerPasskey(const QObject* context,
                         std::function<void(PasskeyOperationResult<Passkey>)> done) override
    {
        queue(context, QStringLiteral("add passkey"), std::move(done), added);
    }
    void deletePasskey(qint64 id, const QObject* context,
                       std::function<void(std::optional<PasskeyFailure>)> done) override
    {
        queue(context, QStringLiteral("delete passkey %1").arg(id), std::move(done), deleteFailure);
    }

private:
    struct Pending {
        QPointer<const QObject> context;
        std::function<void()> deliver;
    };

    template <typename Done, typename Answer>
    void queue(const QObject* context, const QString& call, Done done, Answer answer)
    {
        calls << call;
        m_pending.push_back(
            {context, [done = std::move(done), answer = std::move(answer)] { done(answer); }});
    }

    quint64 m_generation = 1;
    std::vector<Pending> m_pending;
};

} // namespace sorv::test
