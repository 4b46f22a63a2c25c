#pragma once

#include <QHash>
#include <QString>

#include <optional>

using GCancellable = struct _GCancellable; // NOLINT(bugprone-reserved-identifier): glib's name

namespace sorv {

// The desktop keyring through libsecret's Secret Service client. Items are
// keyed by one attribute, "account". Every call blocks (D-Bus round trips):
// call it from a worker thread only. cancel() may be called from any thread
// and makes calls under way, and all later ones, fail at once.
class SecretServiceKeyring {
public:
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

    void cancel();

private:
    GCancellable* m_cancellable;
};

} // namespace sorv
