#include "fido2authenticator.h"

#include "core/log.h"
#include "service/passkeys/passkeycbor.h"

#include <QCoreApplication>

#include <fido.h>

#include <mutex>

namespace sorv {

namespace {

constexpr size_t kMaxDevices = 16;
// Keys give up on a touch after about 30 s themselves; this bounds a key
// that never answers.
constexpr int kDeviceTimeoutMs = 60000;

struct DeviceListFree {
    void operator()(fido_dev_info_t* list) const { fido_dev_info_free(&list, kMaxDevices); }
};
struct CredFree {
    void operator()(fido_cred_t* c) const { fido_cred_free(&c); }
};
struct AssertFree {
    void operator()(fido_assert_t* a) const { fido_assert_free(&a); }
};
struct CborInfoFree {
    void operator()(fido_cbor_info_t* i) const { fido_cbor_info_free(&i); }
};

QByteArray bytes(const unsigned char* data, size_t length)
{
    if (!data)
        return {};
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(length));
}

const unsigned char* raw(const QByteArray& a)
{
    return reinterpret_cast<const unsigned char*>(a.constData());
}

} // namespace

struct Fido2Authenticator::Device {
    fido_dev_t* dev = nullptr;
    bool residentKeys = false;
    bool builtInVerification = false; // fingerprint or similar, enrolled
    bool pinSet = false;
    QStringList transports;

    Device() : dev(fido_dev_new()) {}
    ~Device()
    {
        if (dev) {
            fido_dev_close(dev);
            fido_dev_free(&dev);
        }
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
};

Fido2Authenticator::Fido2Authenticator()
{
    static std::once_flag once;
    std::call_once(once, [] { fido_init(0); });
}

Fido2Authenticator::~Fido2Authenticator() = default;

std::optional<QString> Fido2Authenticator::describeFidoError(int code)
{
    switch (code) {
    case FIDO_ERR_KEEPALIVE_CANCEL:
    case FIDO_ERR_OPERATION_DENIED:
        return std::nullopt;
    case FIDO_ERR_PIN_INVALID:
        return QCoreApplication::translate("Fido2Authenticator", "PIN invalid");
    case FIDO_ERR_PIN_BLOCKED:
        return QCoreApplication::translate("Fido2Authenticator",
                                           "PIN blocked: the security key has to be reset");
    case FIDO_ERR_PIN_AUTH_BLOCKED:
        return QCoreApplication::translate(
            "Fido2Authenticator",
            "too many wrong PINs: unplug the security key and plug it in again");
    case FIDO_ERR_PIN_NOT_SET:
        return QCoreApplication::translate("Fido2Authenticator", "the security key has no PIN yet");
    case FIDO_ERR_PIN_POLICY_VIOLATION:
        return QCoreApplication::translate("Fido2Authenticator",
                                           "the PIN does not meet the security key's rules");
    case FIDO_ERR_PIN_REQUIRED:
        return QCoreApplication::translate("Fido2Authenticator", "the security key needs its PIN");
    case FIDO_ERR_TIMEOUT:
    case FIDO_ERR_ACTION_TIMEOUT:
    case FIDO_ERR_USER_ACTION_TIMEOUT:
        return QCoreApplication::translate("Fido2Authenticator", "operation timed out");
    case FIDO_ERR_NO_CREDENTIALS:
        return QCoreApplication::translate("Fido2Authenticator",
                                           "this security key holds no passkey for this account");
    case FIDO_ERR_CREDENTIAL_EXCLUDED:
        return QCoreApplication::translate("Fido2Authenticator",
                                           "this security key is already registered");
    case FIDO_ERR_KEY_STORE_FULL:
        return QCoreApplication::translate("Fido2Authenticator",
                                           "the security key has no room for another passkey");
    case FIDO_ERR_UNSUPPORTED_ALGORITHM:
        return QCoreApplication::translate("Fido2Authenticator",
                                           "the security key does not support ES256 keys");
    case FIDO_ERR_UV_BLOCKED:
        return QCoreApplication::translate("Fido2Authenticator",
                                           "the security key's built-in verification is blocked");
    case FIDO_ERR_UV_INVALID:
        return QCoreApplication::translate("Fido2Authenticator",
                                           "the security key did not recognise you");
    case FIDO_ERR_TX:
    case FIDO_ERR_RX:
        return QCoreApplication::translate("Fido2Authenticator",
                                           "lost contact with the security key");
    default:
        return QString::fromUtf8(fido_strerr(code));
    }
}

void Fido2Authenticator::setCurrent(fido_dev_t* device)
{
    std::lock_guard lock(m_mutex);
    m_current = device;
}

void Fido2Authenticator::cancel()
{
    std::lock_guard lock(m_mutex);
    // CTAPHID_CANCEL: the key ends the request it is waiting on.
    if (m_current)
        fido_dev_cancel(m_current);
}

PasskeyResult<std::shared_ptr<Fido2Authenticator::Device>> Fido2Authenticator::openDevice()
{
    std::unique_ptr<fido_dev_info_t, DeviceListFree> list(fido_dev_info_new(kMaxDevices));
    size_t found = 0;
    if (!list || fido_dev_info_manifest(list.get(), kMaxDevices, &found) != FIDO_OK || found == 0)
        return PasskeyError::notAvailable();

    std::shared_ptr<Device> chosen;
    std::shared_ptr<Device> u2fOnly;
    int lastError = FIDO_OK;
    for (size_t i = 0; i < found && !chosen; ++i) {
        const char* path = fido_dev_info_path(fido_dev_info_ptr(list.get(), i));
        auto device = std::make_shared<Device>();
        const int r = device->dev ? fido_dev_open(device->dev, path) : FIDO_ERR_INTERNAL;
        if (r != FIDO_OK) {
            consoleLog(QStringLiteral("⚠️ Cannot open security key %1: %2")
                           .arg(QString::fromUtf8(path), QString::fromUtf8(fido_strerr(r))));
            lastError = r;
            continue;
        }
        if (fido_dev_is_fido2(device->dev))
            chosen = device;
        else if (!u2fOnly)
            u2fOnly = device;
    }
    if (!chosen)
        chosen = u2fOnly;
    if (!chosen) {
        // Present but unusable, most often for want of access to its hidraw node.
        return lastError == FIDO_OK
                   ? PasskeyError::notAvailable()
                   : PasskeyError::authorizationFailed(
                         QCoreApplication::translate("Fido2Authenticator",
                                                     "cannot open the security key (%1)")
                             .arg(*describeFidoError(lastError)));
    }

    fido_dev_set_timeout(chosen->dev, kDeviceTimeoutMs);
    if (fido_dev_is_fido2(chosen->dev)) {
        chosen->builtInVerification = fido_dev_has_uv(chosen->dev);
        chosen->pinSet = fido_dev_has_pin(chosen->dev);
        std::unique_ptr<fido_cbor_info_t, CborInfoFree> info(fido_cbor_info_new());
        if (info && fido_dev_get_cbor_info(chosen->dev, info.get()) == FIDO_OK) {
            char** names = fido_cbor_info_options_name_ptr(info.get());
            const bool* values = fido_cbor_info_options_value_ptr(info.get());
            for (size_t i = 0; i < fido_cbor_info_options_len(info.get()); ++i) {
                if (qstrcmp(names[i], "rk") == 0)
                    chosen->residentKeys = values[i];
            }
            char** transports = fido_cbor_info_transports_ptr(info.get());
            for (size_t i = 0; i < fido_cbor_info_transports_len(info.get()); ++i)
                chosen->transports << QString::fromUtf8(transports[i]);
        }
    }
    // Found as a HID device, so it is on USB when it does not say otherwise.
    if (chosen->transports.isEmpty())
        chosen->transports << QStringLiteral("usb");
    return chosen;
}

namespace {

// Runs one request on the key: the PIN first when the key verifies users
// with it, the touch prompt around the wait, and the PIN once more if the
// key turns out to need one after all.
template <typename Call>
int runOnKey(bool askPinFirst, AuthenticatorPrompts& prompts, fido_dev_t* dev, Call call,
             bool* cancelledByUser)
{
    std::optional<QByteArray> pin;
    const auto askPin = [&]() -> bool {
        int attempts = -1;
        if (fido_dev_get_retry_count(dev, &attempts) != FIDO_OK)
            attempts = -1;
        const std::optional<QString> answer = prompts.requestPin(attempts);
        if (!answer) {
            *cancelledByUser = true;
            return false;
        }
        pin = answer->toUtf8();
        return true;
    };
    if (askPinFirst && !askPin())
        return FIDO_ERR_KEEPALIVE_CANCEL;
    prompts.waitingForTouch(true);
    int r = call(pin ? pin->constData() : nullptr);
    prompts.waitingForTouch(false);
    if (r == FIDO_ERR_PIN_REQUIRED && !pin && !prompts.isCancelled()) {
        if (!askPin())
            return FIDO_ERR_KEEPALIVE_CANCEL;
        prompts.waitingForTouch(true);
        r = call(pin->constData());
        prompts.waitingForTouch(false);
    }
    return r;
}

} // namespace

PasskeyResult<AttestedCredential>
Fido2Authenticator::makeCredential(const MakeCredentialRequest& request,
                                   AuthenticatorPrompts& prompts)
{
    if (prompts.isCancelled())
        return PasskeyError::cancelled();
    PasskeyResult<std::shared_ptr<Device>> opened = openDevice();
    if (!opened.ok())
        return opened.error();
    Device& device = *opened.value();

    std::unique_ptr<fido_cred_t, CredFree> cred(fido_cred_new());
    const QByteArray rpId = request.rpId.toUtf8();
    const QByteArray rpName = request.rpName.toUtf8();
    const QByteArray userName = request.userName.toUtf8();
    const QByteArray displayName = request.userDisplayName.toUtf8();
    if (!cred || fido_cred_set_type(cred.get(), COSE_ES256) != FIDO_OK ||
        fido_cred_set_clientdata_hash(cred.get(), raw(request.clientDataHash),
                                      static_cast<size_t>(request.clientDataHash.size())) !=
            FIDO_OK ||
        fido_cred_set_rp(cred.get(), rpId.constData(),
                         rpName.isEmpty() ? nullptr : rpName.constData()) != FIDO_OK ||
        fido_cred_set_user(cred.get(), raw(request.userId),
                           static_cast<size_t>(request.userId.size()), userName.constData(),
                           displayName.isEmpty() ? nullptr : displayName.constData(),
                           nullptr) != FIDO_OK)
        return PasskeyError::authorizationFailed(
            QCoreApplication::translate("Fido2Authenticator", "invalid credential request"));
    if (device.residentKeys)
        fido_cred_set_rk(cred.get(), FIDO_OPT_TRUE);
    if (device.builtInVerification)
        fido_cred_set_uv(cred.get(), FIDO_OPT_TRUE);

    setCurrent(device.dev);
    bool declined = false;
    int r = FIDO_ERR_KEEPALIVE_CANCEL;
    if (!prompts.isCancelled())
        r = runOnKey(
            device.pinSet && !device.builtInVerification, prompts, device.dev,
            [&](const char* pin) { return fido_dev_make_cred(device.dev, cred.get(), pin); },
            &declined);
    setCurrent(nullptr);
    if (r != FIDO_OK) {
        const std::optional<QString> text = describeFidoError(r);
        if (declined || prompts.isCancelled() || !text)
            return PasskeyError::cancelled();
        return PasskeyError::authorizationFailed(*text);
    }

    AttestedCredential credential;
    credential.credentialId = bytes(fido_cred_id_ptr(cred.get()), fido_cred_id_len(cred.get()));
    credential.authenticatorData =
        bytes(fido_cred_authdata_raw_ptr(cred.get()), fido_cred_authdata_raw_len(cred.get()));
    credential.format = QString::fromUtf8(fido_cred_fmt(cred.get()));
    credential.attestationStatementCbor =
        bytes(fido_cred_attstmt_ptr(cred.get()), fido_cred_attstmt_len(cred.get()));
    if (credential.attestationStatementCbor.isEmpty())
        credential.attestationStatementCbor = QByteArray(1, '\xa0'); // {}
    credential.transports = device.transports;
    if (credential.credentialId.isEmpty() || credential.authenticatorData.isEmpty() ||
        credential.format.isEmpty())
        return PasskeyError::authorizationFailed(QCoreApplication::translate(
            "Fido2Authenticator", "the security key returned an incomplete credential"));
    return credential;
}

PasskeyResult<Assertion> Fido2Authenticator::getAssertion(const GetAssertionRequest& request,
                                                          AuthenticatorPrompts& prompts)
{
    if (prompts.isCancelled())
        return PasskeyError::cancelled();
    PasskeyResult<std::shared_ptr<Device>> opened = openDevice();
    if (!opened.ok())
        return opened.error();
    Device& device = *opened.value();

    std::unique_ptr<fido_assert_t, AssertFree> assertion(fido_assert_new());
    const QByteArray rpId = request.rpId.toUtf8();
    if (!assertion ||
        fido_assert_set_clientdata_hash(assertion.get(), raw(request.clientDataHash),
                                        static_cast<size_t>(request.clientDataHash.size())) !=
            FIDO_OK ||
        fido_assert_set_rp(assertion.get(), rpId.constData()) != FIDO_OK)
        return PasskeyError::authorizationFailed(
            QCoreApplication::translate("Fido2Authenticator", "invalid sign-in request"));
    for (const QByteArray& id : request.allowCredentialIds) {
        if (fido_assert_allow_cred(assertion.get(), raw(id), static_cast<size_t>(id.size())) !=
            FIDO_OK)
            return PasskeyError::authorizationFailed(
                QCoreApplication::translate("Fido2Authenticator", "invalid credential id"));
    }
    if (device.builtInVerification)
        fido_assert_set_uv(assertion.get(), FIDO_OPT_TRUE);

    setCurrent(device.dev);
    bool declined = false;
    int r = FIDO_ERR_KEEPALIVE_CANCEL;
    if (!prompts.isCancelled())
        r = runOnKey(
            device.pinSet && !device.builtInVerification, prompts, device.dev,
            [&](const char* pin) { return fido_dev_get_assert(device.dev, assertion.get(), pin); },
            &declined);
    setCurrent(nullptr);
    if (r != FIDO_OK) {
        const std::optional<QString> text = describeFidoError(r);
        if (declined || prompts.isCancelled() || !text)
            return PasskeyError::cancelled();
        return PasskeyError::authorizationFailed(*text);
    }
    if (fido_assert_count(assertion.get()) == 0)
        return PasskeyError::authorizationFailed(*describeFidoError(FIDO_ERR_NO_CREDENTIALS));

    // With several accounts on the key, the first: keys list the most
    // recently used one first.
    Assertion result;
    result.credentialId =
        bytes(fido_assert_id_ptr(assertion.get(), 0), fido_assert_id_len(assertion.get(), 0));
    // A key may leave out the credential when only one was allowed.
    if (result.credentialId.isEmpty() && request.allowCredentialIds.size() == 1)
        result.credentialId = request.allowCredentialIds.constFirst();
    const std::optional<QByteArray> authData =
        unwrapCborByteString(bytes(fido_assert_authdata_ptr(assertion.get(), 0),
                                   fido_assert_authdata_len(assertion.get(), 0)));
    result.signature =
        bytes(fido_assert_sig_ptr(assertion.get(), 0), fido_assert_sig_len(assertion.get(), 0));
    const QByteArray user = bytes(fido_assert_user_id_ptr(assertion.get(), 0),
                                  fido_assert_user_id_len(assertion.get(), 0));
    if (!user.isEmpty())
        result.userHandle = user;
    if (!authData || result.credentialId.isEmpty() || result.signature.isEmpty())
        return PasskeyError::authorizationFailed(QCoreApplication::translate(
            "Fido2Authenticator", "the security key returned an incomplete answer"));
    result.authenticatorData = *authData;
    return result;
}

} // namespace sorv
