#include "passkeymanager.h"

#include "core/log.h"
#include "core/mainthread.h"
#include "core/notify.h"
#include "core/serialqueue.h"
#include "core/settings.h"
#include "service/passkeys/passkeyprotocol.h"
#include "service/passkeys/securitykeymodule.h"
#include "service/passkeys/softwareauthenticator.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFileInfo>

#include <condition_variable>
#include <mutex>

namespace sorv {

// What one ceremony's worker shares with the main thread: the cancellation
// and the PIN answer. The worker blocks in requestPin() until one of them.
class PasskeyManager::Channel : public AuthenticatorPrompts {
public:
    // Made on the main thread, where the manager lives and dies.
    Channel(quint64 id, PasskeyManager* manager) : m_id(id), m_manager(manager), m_alive(manager) {}

    std::optional<QString> requestPin(int attemptsLeft) override
    {
        {
            std::lock_guard lock(m_mutex);
            if (m_cancelled)
                return std::nullopt;
            m_pin.reset();
        }
        post([id = m_id, attemptsLeft](PasskeyManager& m) {
            if (m.m_running && m.m_running->id == id)
                m.setPinRequest(true, attemptsLeft);
        });
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_cancelled || m_pin.has_value(); });
        if (m_cancelled)
            return std::nullopt;
        std::optional<QString> pin = std::move(m_pin);
        m_pin.reset();
        return pin;
    }

    void waitingForTouch(bool waiting) override
    {
        post([id = m_id, waiting](PasskeyManager& m) {
            if (m.m_running && m.m_running->id == id)
                m.setWaitingForTouch(waiting);
        });
    }

    bool isCancelled() const override
    {
        std::lock_guard lock(m_mutex);
        return m_cancelled;
    }

    void cancel()
    {
        std::lock_guard lock(m_mutex);
        m_cancelled = true;
        m_changed.notify_all();
    }

    void answerPin(const QString& pin)
    {
        std::lock_guard lock(m_mutex);
        m_pin = pin;
        m_changed.notify_all();
    }

    // Runs `fn` on the main thread unless the manager is gone by then.
    void post(std::function<void(PasskeyManager&)> fn) const
    {
        postToMainThread(m_alive, [manager = m_manager, fn = std::move(fn)] { fn(*manager); });
    }

private:
    const quint64 m_id;
    PasskeyManager* const m_manager;
    const QPointer<const QObject> m_alive;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_cancelled = false;
    std::optional<QString> m_pin;
};

PasskeyManager::PasskeyManager(std::shared_ptr<Authenticator> authenticator, QObject* parent)
    : QObject(parent), m_authenticator(std::move(authenticator)),
      m_queue(std::make_unique<SerialQueue>(QStringLiteral("com.sorvelandrix.passkeys")))
{}

PasskeyManager::~PasskeyManager()
{
    if (m_running) {
        m_running->channel->cancel();
        m_authenticator->cancel();
    }
    // The running call has been told to end; wait for it so that the
    // authenticator is not in use when it goes.
    m_queue->shutdown();
}

std::shared_ptr<Authenticator> PasskeyManager::authenticatorFromEnvironment()
{
    const QString file = qEnvironmentVariable(kSoftwareAuthenticatorVariable);
    if (file.isEmpty())
        return loadSecurityKeyAuthenticator();
    SoftwareAuthenticator::Options options;
    options.file = QFileInfo(file).absoluteFilePath();
    consoleLog(
        QStringLiteral("⚠️ Passkeys use the software authenticator in %1 (for development "
                       "only)")
            .arg(options.file));
    return std::make_shared<SoftwareAuthenticator>(options);
}

PasskeyManager& PasskeyManager::shared()
{
    static QPointer<PasskeyManager> manager;
    if (!manager)
        manager = new PasskeyManager({}, QCoreApplication::instance());
    return *manager;
}

QString PasskeyManager::relyingPartyID() const
{
    const std::optional<passkeys::ServiceOrigin> origin =
        passkeys::serviceOrigin(Settings::serverOrigin());
    return origin ? origin->host : QString();
}

Authenticator& PasskeyManager::authenticator() const
{
    if (!m_authenticator)
        m_authenticator = authenticatorFromEnvironment();
    return *m_authenticator;
}

std::optional<PasskeyError> PasskeyManager::refusal() const
{
    if (!authenticator().isDevelopmentOnly())
        return std::nullopt;
    const std::optional<passkeys::ServiceOrigin> origin =
        passkeys::serviceOrigin(Settings::serverOrigin());
    if (origin && passkeys::isLoopbackHost(origin->host))
        return std::nullopt;
    return PasskeyError::authorizationFailed(
        QStringLiteral("the software authenticator (%1) only works with a service on this "
                       "computer, and %2 is not a loopback address")
            .arg(QString::fromLatin1(kSoftwareAuthenticatorVariable),
                 origin ? origin->origin : Settings::serverOrigin()));
}

void PasskeyManager::signIn(const QByteArray& challenge,
                            const QList<QByteArray>& allowedCredentialIDs, const QObject* context,
                            CredentialCallback done)
{
    const std::optional<passkeys::ServiceOrigin> origin =
        passkeys::serviceOrigin(Settings::serverOrigin());
    const QByteArray clientData = passkeys::clientDataJson(passkeys::kGetType, challenge,
                                                           origin ? origin->origin : QString());
    GetAssertionRequest request;
    request.clientDataHash = QCryptographicHash::hash(clientData, QCryptographicHash::Sha256);
    request.rpId = origin ? origin->host : QString();
    request.allowCredentialIds = allowedCredentialIDs;
    perform(
        [request, clientData](Authenticator& authenticator,
                              AuthenticatorPrompts& prompts) -> PasskeyResult<QJsonObject> {
            PasskeyResult<Assertion> assertion = authenticator.getAssertion(request, prompts);
            if (!assertion.ok())
                return assertion.error();
            return passkeys::assertionCredentialJson(assertion.value(), clientData);
        },
        context, std::move(done));
}

void PasskeyManager::registerCredential(const QByteArray& challenge, const QString& name,
                                        const QByteArray& userID, const QObject* context,
                                        CredentialCallback done)
{
    const std::optional<passkeys::ServiceOrigin> origin =
        passkeys::serviceOrigin(Settings::serverOrigin());
    const QByteArray clientData = passkeys::clientDataJson(passkeys::kCreateType, challenge,
                                                           origin ? origin->origin : QString());
    MakeCredentialRequest request;
    request.clientDataHash = QCryptographicHash::hash(clientData, QCryptographicHash::Sha256);
    request.rpId = origin ? origin->host : QString();
    request.rpName = QStringLiteral("Sorvelandrix");
    request.userId = userID;
    request.userName = name;
    request.userDisplayName = name;
    perform(
        [request, clientData](Authenticator& authenticator,
                              AuthenticatorPrompts& prompts) -> PasskeyResult<QJsonObject> {
            PasskeyResult<AttestedCredential> credential =
                authenticator.makeCredential(request, prompts);
            if (!credential.ok())
                return credential.error();
            return passkeys::registrationCredentialJson(credential.value(), clientData);
        },
        context, std::move(done));
}

void PasskeyManager::perform(Work work, const QObject* context, CredentialCallback done)
{
    if (m_running)
        cancel();

    const QObject* target = context ? context : this;
    std::optional<PasskeyError> refused = refusal();
    if (!refused && relyingPartyID().isEmpty())
        refused = PasskeyError::authorizationFailed(
            QCoreApplication::translate("PasskeyManager", "Invalid server URL"));
    if (refused) {
        consoleLog(QStringLiteral("❌ %1").arg(refused->description()));
        QMetaObject::invokeMethod(
            const_cast<QObject*>(target), [done, error = *refused] { done(error); },
            Qt::QueuedConnection);
        return;
    }

    const quint64 id = ++m_nextId;
    auto channel = std::make_shared<Channel>(id, this);
    m_running = Running{id, channel, target, std::move(done)};
    authenticator();
    m_queue->post([authenticator = m_authenticator, channel, work = std::move(work), id] {
        PasskeyResult<QJsonObject> result =
            channel->isCancelled() ? PasskeyResult<QJsonObject>(PasskeyError::cancelled())
                                   : work(*authenticator, *channel);
        channel->post(
            [id, result = std::move(result)](PasskeyManager& m) { m.finish(id, result); });
    });
}

void PasskeyManager::cancel()
{
    if (!m_running)
        return;
    // The channel first: a call that has not reached the key yet sees it,
    // one that already waits on the key is ended by the authenticator.
    m_running->channel->cancel();
    m_authenticator->cancel();
    endRunning(PasskeyError::cancelled());
}

void PasskeyManager::providePin(const QString& pin)
{
    if (!m_running || !m_pinRequested)
        return;
    setPinRequest(false, -1);
    m_running->channel->answerPin(pin);
}

void PasskeyManager::cancelPinRequest()
{
    if (m_pinRequested)
        cancel();
}

void PasskeyManager::finish(quint64 id, PasskeyResult<QJsonObject> result)
{
    // A ceremony that was cancelled has already ended.
    if (!m_running || m_running->id != id)
        return;
    endRunning(std::move(result));
}

void PasskeyManager::endRunning(PasskeyResult<QJsonObject> result)
{
    Running running = std::move(*m_running);
    m_running.reset();
    setPinRequest(false, -1);
    setWaitingForTouch(false);
    if (!result.ok() && result.error().kind() != PasskeyError::Kind::cancelled)
        consoleLog(QStringLiteral("❌ %1").arg(result.error().description()));
    if (!running.context)
        return;
    QMetaObject::invokeMethod(
        const_cast<QObject*>(running.context.data()),
        [done = std::move(running.done), result = std::move(result)] { done(result); },
        Qt::QueuedConnection);
}

void PasskeyManager::setWaitingForTouch(bool value)
{
    setAndNotify(this, m_waitingForTouch, value, &PasskeyManager::isWaitingForTouchChanged);
}

void PasskeyManager::setPinRequest(bool requested, int attemptsLeft)
{
    if (m_pinRequested == requested && m_pinAttemptsLeft == attemptsLeft)
        return;
    m_pinRequested = requested;
    m_pinAttemptsLeft = attemptsLeft;
    Q_EMIT isPinRequestedChanged();
}

} // namespace sorv

#include "moc_passkeymanager.cpp"
