#pragma once

#include <QHash>
#include <QString>

#include <optional>

using GCancellable = struct _GCancellable; // NOLINT(bugprone-reserved-identifier): glib's name

namespace sorv {

// The desktop keyring through libsecret's Secret Service client. Items are
// keyed by one attribute, "account". Every call blocks (D-Bus round trips,
// and a prompt the keyring may show): call it from a worker thread only.
// cancel() may be called from any thread and makes calls under way, and all
// later ones, fail.
class SecretServiceKeyring {
public:
    // A session bus is configured: DBUS_SESSION_BUS_ADDRESS, or the
    // $XDG_RUNTIME_DIR/bus socket. Without one, D-Bus would try to launch a
    // bus through X11 (dbus-launch --autolaunch) at the first call: the
    // keyring is then not to be touched at all.
    static bool sessionBusConfigured();

    SecretServiceKeyring();
    ~SecretServiceKeyring();
    SecretServiceKeyring(const SecretServiceKeyring&) = delete;
    SecretServiceKeyring& operator=(const SecretServiceKeyring&) = delete;

    struct LoadResult {
        QHash<QString, QString> values;
        QString error; // empty on success
    };
    LoadResult loadAll();
    // Each returns the error's text, or none on success.
    std::optional<QString> store(const QString& account, const QString& value);
    std::optional<QString> clear(const QString& account);
    // The value stored for the account (empty optional: none), or the error.
    struct LookupResult {
        std::optional<QString> value;
        QString error; // empty on success
    };
    LookupResult lookup(const QString& account);

    void cancel();

private:
    GCancellable* m_cancellable;
};

} // namespace sorv
