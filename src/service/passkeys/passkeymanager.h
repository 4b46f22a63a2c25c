#pragma once

#include "service/passkeys/authenticator.h"
#include "service/passkeys/passkeyerror.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <memory>

namespace sorv {

class SerialQueue;

// Drives one authenticator ceremony at a time as the WebAuthn client: builds
// the client data for the service's origin, hands its hash to the
// authenticator and turns the result into the credential JSON the service
// expects. Lives on the main thread; the authenticator's blocking calls run
// on the queue "com.sorvelandrix.passkeys". Starting a ceremony while one
// runs ends the first with `cancelled`.
//
// The PIN question and the touch prompt are published state, so that a view
// (the PIN dialog, the terminal) can show them and answer.
class PasskeyManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isWaitingForTouch READ isWaitingForTouch NOTIFY isWaitingForTouchChanged)
    Q_PROPERTY(bool isPinRequested READ isPinRequested NOTIFY isPinRequestedChanged)
    Q_PROPERTY(int pinAttemptsLeft READ pinAttemptsLeft NOTIFY isPinRequestedChanged)

public:
    static inline const char* kSoftwareAuthenticatorVariable =
        "SORVELANDRIX_SOFTWARE_AUTHENTICATOR";

    using CredentialCallback = std::function<void(PasskeyResult<QJsonObject>)>;

    // A null authenticator means the one the environment selects.
    explicit PasskeyManager(std::shared_ptr<Authenticator> authenticator = {},
                            QObject* parent = nullptr);
    ~PasskeyManager() override;

    // The security key (libfido2), or the software authenticator kept in the
    // file named by SORVELANDRIX_SOFTWARE_AUTHENTICATOR.
    static std::shared_ptr<Authenticator> authenticatorFromEnvironment();
    // The application's one manager, created on first use on the main thread.
    static PasskeyManager& shared();

    // The service domain the credentials are bound to: the host of the
    // current service origin.
    QString relyingPartyID() const;

    // Why no ceremony can run with the current origin (a development
    // authenticator and a service that is not on this computer), or none.
    std::optional<PasskeyError> refusal() const;

    // Callbacks run on the main thread, never synchronously, and not at all
    // once the context is destroyed.
    void signIn(const QByteArray& challenge, const QList<QByteArray>& allowedCredentialIDs,
                const QObject* context, CredentialCallback done);
    void registerCredential(const QByteArray& challenge, const QString& name,
                            const QByteArray& userID, const QObject* context,
                            CredentialCallback done);
    // Ends the running ceremony with `cancelled`.
    Q_INVOKABLE void cancel();

    bool isWaitingForTouch() const { return m_waitingForTouch; }
    bool isPinRequested() const { return m_pinRequested; }
    int pinAttemptsLeft() const { return m_pinAttemptsLeft; } // -1: the key does not say
    // Answers the PIN question of the running ceremony.
    Q_INVOKABLE void providePin(const QString& pin);
    // The user closed the PIN question: the ceremony ends with `cancelled`.
    Q_INVOKABLE void cancelPinRequest();

Q_SIGNALS:
    void isWaitingForTouchChanged();
    void isPinRequestedChanged();

private:
    class Channel;
    struct Running {
        quint64 id = 0;
        std::shared_ptr<Channel> channel;
        QPointer<const QObject> context;
        CredentialCallback done;
    };
    using Work = std::function<PasskeyResult<QJsonObject>(Authenticator&, AuthenticatorPrompts&)>;

    void perform(Work work, const QObject* context, CredentialCallback done);
    void finish(quint64 id, PasskeyResult<QJsonObject> result);
    void endRunning(PasskeyResult<QJsonObject> result);
    void setWaitingForTouch(bool value);
    void setPinRequest(bool requested, int attemptsLeft);
    // Made on first use, so that commands that only list say nothing about it.
    Authenticator& authenticator() const;

    mutable std::shared_ptr<Authenticator> m_authenticator;
    std::unique_ptr<SerialQueue> m_queue;
    std::optional<Running> m_running;
    quint64 m_nextId = 0;

    bool m_waitingForTouch = false;
    bool m_pinRequested = false;
    int m_pinAttemptsLeft = -1;
};

} // namespace sorv
