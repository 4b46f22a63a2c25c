// The ceremony driver on its own: the client data it builds, one ceremony at
// a time, the PIN question and the touch prompt handed between the worker
// and the main thread, and shutting down in the middle of a ceremony. No
// network here, so that ThreadSanitizer can check the hand-overs.

#include "core/settings.h"
#include "service/passkeys/base64url.h"
#include "service/passkeys/passkeymanager.h"
#include "service/passkeys/softwareauthenticator.h"
#include "support/isolatedenvironment.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QtTest>

using namespace sorv;

namespace {

const QString kPin = QStringLiteral("2468");
const QString kOrigin = QStringLiteral("http://127.0.0.1:8765");

using Result = PasskeyResult<QJsonObject>;

Result wait(std::optional<Result>& slot)
{
    if (!QTest::qWaitFor([&] { return slot.has_value(); }, 20000))
        qFatal("the ceremony did not end");
    return *slot;
}

QByteArray responseBytes(const QJsonObject& credential, const char* member)
{
    return base64UrlDecode(credential.value("response").toObject().value(member).toString())
        .value_or(QByteArray());
}

struct Ceremonies {
    explicit Ceremonies(std::optional<QString> pin = kPin) : hasPin(pin.has_value())
    {
        SoftwareAuthenticator::Options options;
        options.pin = std::move(pin);
        authenticator = std::make_shared<SoftwareAuthenticator>(options);
        passkeys = std::make_unique<PasskeyManager>(authenticator);
        Settings::setServerOverride(kOrigin + "/");
    }
    ~Ceremonies() { Settings::setServerOverride({}); }

    Result registerWithPin()
    {
        std::optional<Result> made;
        passkeys->registerCredential("made", "demo", "user-1", passkeys.get(),
                                     [&made](Result r) { made = std::move(r); });
        if (hasPin && QTest::qWaitFor([this] { return passkeys->isPinRequested(); }))
            passkeys->providePin(kPin);
        return wait(made);
    }

    bool hasPin;
    test::IsolatedEnvironment env;
    std::shared_ptr<SoftwareAuthenticator> authenticator;
    std::unique_ptr<PasskeyManager> passkeys;
};

} // namespace

class TestPasskeyManager : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // What the client data and the authenticator data say is checked by the
    // local service in the passkeys' own test; here the prompt around it.
    void theTouchPromptComesAndGoes()
    {
        Ceremonies c(std::nullopt);
        QCOMPARE(c.passkeys->relyingPartyID(), QStringLiteral("127.0.0.1"));
        QSignalSpy touch(c.passkeys.get(), &PasskeyManager::isWaitingForTouchChanged);
        QVERIFY(c.registerWithPin().ok());
        QCOMPARE(touch.size(), 2);
        QVERIFY(!c.passkeys->isWaitingForTouch());
    }

    void secondCeremonyCancelsTheFirst()
    {
        Ceremonies c;
        QVERIFY(c.registerWithPin().ok());

        std::optional<Result> first;
        std::optional<Result> second;
        c.passkeys->signIn("one", {}, c.passkeys.get(), [&first](const Result& r) { first = r; });
        QTRY_VERIFY(c.passkeys->isPinRequested());
        QCOMPARE(c.passkeys->pinAttemptsLeft(), SoftwareAuthenticator::kPinAttempts);
        c.passkeys->signIn("two", {}, c.passkeys.get(), [&second](const Result& r) { second = r; });
        QCOMPARE(wait(first).error().description(),
                 QStringLiteral("Passkey sign-in was cancelled."));
        QVERIFY(!second);

        // The second asks for the PIN itself and completes.
        QTRY_VERIFY(c.passkeys->isPinRequested());
        c.passkeys->providePin(kPin);
        const Result signedIn = wait(second);
        QVERIFY(signedIn.ok());
        QCOMPARE(QJsonDocument::fromJson(responseBytes(signedIn.value(), "clientDataJSON"))
                     .object()
                     .value("challenge")
                     .toString(),
                 base64UrlEncode("two"));
        QVERIFY(!c.passkeys->isPinRequested());
        // The cancelled one never reached the key: one signature beyond the registration.
        QCOMPARE(c.authenticator->signCount(), 2u);
    }

    void shutdownDuringACeremony()
    {
        Ceremonies c;
        QVERIFY(c.registerWithPin().ok());
        bool called = false;
        QObject context;
        c.passkeys->signIn("one", {}, &context, [&called](const Result&) { called = true; });
        QTRY_VERIFY(c.passkeys->isPinRequested());
        // The worker waits on the PIN; going away must release it, not hang.
        QElapsedTimer timer;
        timer.start();
        c.passkeys.reset();
        QVERIFY(timer.elapsed() < 20000);
        QCoreApplication::processEvents();
        QVERIFY(!called);
    }

    void developmentAuthenticatorOnlyOnLoopback_data()
    {
        QTest::addColumn<QString>("origin");
        QTest::addColumn<bool>("allowed");
        QTest::newRow("127.0.0.1") << "http://127.0.0.1:8765" << true;
        QTest::newRow("a LAN address") << "http://192.168.1.10:8765" << false;
    }
    void developmentAuthenticatorOnlyOnLoopback()
    {
        QFETCH(QString, origin);
        QFETCH(bool, allowed);
        Ceremonies c(std::nullopt);
        Settings::setServerOverride(origin);
        QCOMPARE(!c.passkeys->refusal().has_value(), allowed);
        std::optional<Result> signedIn;
        c.passkeys->signIn("one", {}, c.passkeys.get(),
                           [&signedIn](const Result& r) { signedIn = r; });
        const Result r = wait(signedIn);
        if (!allowed) {
            QVERIFY(r.error().description().startsWith(
                "Passkey authorization failed: the software authenticator "
                "(SORVELANDRIX_SOFTWARE_AUTHENTICATOR) only works with a service on this "
                "computer"));
        } else {
            // Allowed, and then refused by the key, which has no passkey yet.
            QVERIFY(r.error().description().contains("no passkey for"));
        }
    }
};

QTEST_GUILESS_MAIN(TestPasskeyManager)
#include "tst_passkeymanager.moc"
