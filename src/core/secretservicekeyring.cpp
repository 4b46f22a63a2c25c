#include "secretservicekeyring.h"

#include <QFileInfo>

#include <libsecret/secret.h>

namespace sorv {

namespace {

const SecretSchema* schema()
{
    static const SecretSchema s = {
        "com.sorvelandrix.recorder.Secret",
        SECRET_SCHEMA_NONE,
        {
            {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
        },
        0,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
    };
    return &s;
}

// Takes ownership of a GError and returns its text.
QString takeError(GError* error)
{
    QString text = error ? QString::fromUtf8(error->message) : QStringLiteral("unknown error");
    if (error)
        g_error_free(error);
    return text;
}

} // namespace

bool SecretServiceKeyring::sessionBusConfigured()
{
    if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"))
        return true;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (runtime.isEmpty())
        return false;
    const QFileInfo bus(runtime + QStringLiteral("/bus"));
    return bus.exists() && !bus.isFile() && !bus.isDir();
}

SecretServiceKeyring::SecretServiceKeyring() : m_cancellable(g_cancellable_new()) {}

SecretServiceKeyring::~SecretServiceKeyring()
{
    g_object_unref(m_cancellable);
}

void SecretServiceKeyring::cancel()
{
    g_cancellable_cancel(m_cancellable);
}

SecretServiceKeyring::LoadResult SecretServiceKeyring::loadAll()
{
    LoadResult result;
    GError* error = nullptr;
    const auto flags = static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK |
                                                      SECRET_SEARCH_LOAD_SECRETS);
    GList* items = secret_password_search_sync(schema(), flags, m_cancellable, &error, nullptr);
    if (error) {
        result.error = takeError(error);
        return result;
    }
    for (GList* node = items; node; node = node->next) {
        // An item the keyring did not unlock (a prompt dismissed) holds a
        // value we cannot see: reading on as if it were not there would
        // lose it.
        if (SECRET_IS_ITEM(node->data) && secret_item_get_locked(SECRET_ITEM(node->data))) {
            result.error = QStringLiteral("the keyring is locked");
            break;
        }
        auto* item = static_cast<SecretRetrievable*>(node->data);
        GHashTable* attributes = secret_retrievable_get_attributes(item);
        const auto* account = static_cast<const char*>(g_hash_table_lookup(attributes, "account"));
        GError* itemError = nullptr;
        SecretValue* value =
            secret_retrievable_retrieve_secret_sync(item, m_cancellable, &itemError);
        if (itemError) {
            result.error = takeError(itemError);
        } else if (account && value) {
            // Only values that are UTF-8 text count; anything else is not ours.
            if (const char* text = secret_value_get_text(value))
                result.values.insert(QString::fromUtf8(account), QString::fromUtf8(text));
        }
        if (value)
            secret_value_unref(value);
        g_hash_table_unref(attributes);
        if (!result.error.isEmpty())
            break;
    }
    g_list_free_full(items, g_object_unref);
    if (!result.error.isEmpty())
        result.values.clear();
    return result;
}

std::optional<QString> SecretServiceKeyring::store(const QString& account, const QString& value)
{
    GError* error = nullptr;
    const QByteArray label = "Sorvelandrix Recorder: " + account.toUtf8();
    const QByteArray accountBytes = account.toUtf8();
    const QByteArray valueBytes = value.toUtf8();
    // Storing an item with the same attributes replaces it.
    const gboolean stored = secret_password_store_sync(
        schema(), SECRET_COLLECTION_DEFAULT, label.constData(), valueBytes.constData(),
        m_cancellable, &error, "account", accountBytes.constData(), nullptr);
    if (error)
        return takeError(error);
    // A prompt that was dismissed ends the call without an error.
    if (!stored)
        return QStringLiteral("the keyring did not store it");
    return std::nullopt;
}

SecretServiceKeyring::LookupResult SecretServiceKeyring::lookup(const QString& account)
{
    LookupResult result;
    GError* error = nullptr;
    const QByteArray accountBytes = account.toUtf8();
    gchar* value = secret_password_lookup_sync(schema(), m_cancellable, &error, "account",
                                               accountBytes.constData(), nullptr);
    if (error)
        result.error = takeError(error);
    else if (value)
        result.value = QString::fromUtf8(value);
    if (value)
        secret_password_free(value);
    return result;
}

std::optional<QString> SecretServiceKeyring::clear(const QString& account)
{
    GError* error = nullptr;
    const QByteArray accountBytes = account.toUtf8();
    secret_password_clear_sync(schema(), m_cancellable, &error, "account", accountBytes.constData(),
                               nullptr);
    if (error)
        return takeError(error);
    return std::nullopt;
}

} // namespace sorv
