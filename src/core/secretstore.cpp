#include "secretstore.h"

#include "log.h"
#include "mainthread.h"
#include "paths.h"
#include "secretservicekeyring.h"
#include "serialqueue.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaObject>
#include <QSaveFile>

#include <condition_variable>
#include <future>
#include <mutex>

#include <sys/stat.h>

namespace sorv {

// What the worker thread shares with the store: results are handed back only
// while the store exists (receiver is cleared under the lock as it goes).
struct SecretStore::Shared {
    std::mutex mutex;
    SecretStore* receiver = nullptr;
    QPointer<const QObject> guard; // made on the main thread, with the store
    SecretServiceKeyring keyring;

    void deliver(std::function<void(SecretStore&)> fn)
    {
        std::lock_guard lock(mutex);
        if (!receiver)
            return;
        SecretStore* store = receiver;
        postToMainThread(guard, [store, fn = std::move(fn)] { fn(*store); });
    }
};

namespace {
constexpr auto kFileName = "secrets";
}

SecretStore::SecretStore(QObject* parent) : SecretStore(Options{}, parent) {}

SecretStore::SecretStore(Options options, QObject* parent)
    : QObject(parent), m_options(std::move(options))
{
    if (m_options.directory.isEmpty())
        m_options.directory = dataDirectory();
    m_values = readFile(&m_removedInFile);

    const bool forcedFile = qEnvironmentVariable("SORVELANDRIX_SECRETS") == QLatin1String("file");
    if (m_options.backend == Backend::FileOnly || forcedFile)
        return;

    m_shared = std::make_shared<Shared>();
    m_shared->receiver = this;
    m_shared->guard = this;
    m_queue = std::make_unique<SerialQueue>(QStringLiteral("com.sorvelandrix.secrets"));

    // The load is the one place that waits, once, and never longer than the
    // bound: a hanging keyring must not hang the start. An answer that comes
    // later is handed over through the event loop.
    struct Load {
        std::mutex mutex;
        std::condition_variable answered;
        std::optional<SecretServiceKeyring::LoadResult> result;
        bool late = false;
    };
    auto load = std::make_shared<Load>();
    m_queue->post([shared = m_shared, load] {
        SecretServiceKeyring::LoadResult r = shared->keyring.loadAll();
        std::unique_lock lock(load->mutex);
        if (load->late) {
            lock.unlock();
            shared->deliver([r](SecretStore& store) {
                store.m_keyringPending = false;
                if (r.error.isEmpty())
                    store.adoptKeyring(r.values);
            });
            return;
        }
        load->result = std::move(r);
        load->answered.notify_all();
    });
    std::unique_lock lock(load->mutex);
    if (!load->answered.wait_for(lock, m_options.loadWait,
                                 [&] { return load->result.has_value(); })) {
        load->late = true;
        m_keyringPending = true;
        lock.unlock();
        fallBackToFile(QStringLiteral("no answer within %1 ms").arg(m_options.loadWait.count()));
        return;
    }
    const SecretServiceKeyring::LoadResult r = std::move(*load->result);
    lock.unlock();
    if (r.error.isEmpty())
        adoptKeyring(r.values);
    else
        fallBackToFile(r.error);
}

SecretStore::~SecretStore()
{
    if (!m_shared)
        return;
    flush(std::chrono::milliseconds(2000));
    {
        std::lock_guard lock(m_shared->mutex);
        m_shared->receiver = nullptr;
    }
    m_shared->keyring.cancel();
    m_queue->shutdown();
}

std::optional<QString> SecretStore::read(const QString& account) const
{
    const auto it = m_values.constFind(account);
    if (it == m_values.constEnd())
        return std::nullopt;
    return *it;
}

void SecretStore::write(const QString& account, const QString& value)
{
    m_values.insert(account, value);
    if (m_usingKeyring) {
        m_queue->post([shared = m_shared, account, value] {
            if (const std::optional<QString> error = shared->keyring.store(account, value))
                shared->deliver([error](SecretStore& store) { store.fallBackToFile(*error); });
        });
        return;
    }
    if (m_keyringPending)
        m_changedBeforeKeyring.insert(account);
    writeFile();
}

void SecretStore::remove(const QString& account)
{
    m_values.remove(account);
    if (m_usingKeyring) {
        m_queue->post([shared = m_shared, account] {
            if (const std::optional<QString> error = shared->keyring.clear(account))
                shared->deliver([error](SecretStore& store) { store.fallBackToFile(*error); });
        });
        return;
    }
    if (m_keyringPending)
        m_changedBeforeKeyring.insert(account);
    // Removals are remembered in the file, so that the keyring's older copy
    // is removed too once it answers (possibly at a later start).
    m_removedInFile.insert(account);
    writeFile();
}

void SecretStore::adoptKeyring(const QHash<QString, QString>& keyringValues)
{
    // What the file holds was written while the keyring was away, so it is
    // newer than the keyring's copy; everything else comes from the keyring.
    const QHash<QString, QString> fileValues = readFile();
    QSet<QString> moveToKeyring(fileValues.keyBegin(), fileValues.keyEnd());
    moveToKeyring += m_removedInFile;
    moveToKeyring += m_changedBeforeKeyring;
    const QHash<QString, QString> before = m_values;
    for (auto it = keyringValues.constBegin(); it != keyringValues.constEnd(); ++it) {
        if (!moveToKeyring.contains(it.key()))
            m_values.insert(it.key(), it.value());
    }
    setUsingKeyring(true);
    // A keyring that answered late may bring a session the start did not see.
    if (m_values != before)
        Q_EMIT valuesChanged();
    for (const QString& account : std::as_const(moveToKeyring)) {
        if (const auto it = m_values.constFind(account); it != m_values.constEnd())
            write(account, *it);
        else
            remove(account);
    }
    m_changedBeforeKeyring.clear();
    m_removedInFile.clear();
    if (QFile::exists(filePath())) {
        QFile::remove(filePath());
        consoleLog(QStringLiteral("🔑 Secrets moved from the private file into the keyring"));
    }
}

void SecretStore::fallBackToFile(const QString& reason)
{
    setUsingKeyring(false);
    if (!m_warned) {
        m_warned = true;
        consoleLog(
            QStringLiteral(
                "⚠️ No desktop keyring available (%1); keeping secrets in the private file %2")
                .arg(reason, filePath()));
    }
    // A keyring write that failed mid-run leaves memory as the only full copy.
    if (!m_values.isEmpty() || QFile::exists(filePath()))
        writeFile();
}

void SecretStore::setUsingKeyring(bool on)
{
    if (m_usingKeyring == on)
        return;
    m_usingKeyring = on;
    Q_EMIT usingKeyringChanged();
}

QString SecretStore::lockFilePath() const
{
    return m_options.directory + QStringLiteral("/secrets.lock");
}

void SecretStore::replaceValues(const QHash<QString, QString>& values)
{
    if (values == m_values)
        return;
    m_values = values;
    Q_EMIT valuesChanged();
}

void SecretStore::reload(const QObject* context, std::function<void()> done)
{
    const QPointer<const QObject> guard(context ? context : this);
    if (!m_usingKeyring || !m_shared) {
        // The file is the store: what another process wrote is in it.
        if (!m_keyringPending || QFile::exists(filePath()))
            replaceValues(readFile(&m_removedInFile));
        postToMainThread(guard, std::move(done));
        return;
    }
    m_queue->post([shared = m_shared, guard, done = std::move(done)] {
        SecretServiceKeyring::LoadResult r = shared->keyring.loadAll();
        shared->deliver([r, guard, done](SecretStore& store) {
            if (r.error.isEmpty())
                store.replaceValues(r.values);
            else
                consoleLog(
                    QStringLiteral("⚠️ Could not read the keyring again: %1").arg(r.error));
            if (guard)
                done();
        });
    });
}

void SecretStore::whenWritten(std::function<void()> fn)
{
    if (!m_queue) {
        fn();
        return;
    }
    m_queue->post(std::move(fn));
}

QString SecretStore::filePath() const
{
    return m_options.directory + QLatin1Char('/') + QLatin1String(kFileName);
}

QHash<QString, QString> SecretStore::readFile(QSet<QString>* removed) const
{
    QHash<QString, QString> values;
    QFile file(filePath());
    if (!file.open(QIODevice::ReadOnly))
        return values;
    const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        if (it.value().isString())
            values.insert(it.key(), it.value().toString());
        else if (it.value().isNull() && removed)
            removed->insert(it.key());
    }
    return values;
}

void SecretStore::writeFile()
{
    QDir().mkpath(m_options.directory);
    ::chmod(QFile::encodeName(m_options.directory).constData(), 0700);
    QJsonObject object;
    for (const QString& account : std::as_const(m_removedInFile))
        object.insert(account, QJsonValue::Null);
    for (auto it = m_values.constBegin(); it != m_values.constEnd(); ++it)
        object.insert(it.key(), it.value());
    QSaveFile file(filePath());
    if (!file.open(QIODevice::WriteOnly)) {
        consoleLog(QStringLiteral("❌ Cannot write %1: %2").arg(filePath(), file.errorString()));
        return;
    }
    // Private before the first byte is written; the rename keeps the mode.
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    file.write(QJsonDocument(object).toJson(QJsonDocument::Compact));
    if (!file.commit())
        consoleLog(QStringLiteral("❌ Cannot write %1: %2").arg(filePath(), file.errorString()));
}

void SecretStore::flush(std::chrono::milliseconds bound)
{
    if (!m_queue)
        return;
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    m_queue->post([done] { done->set_value(); });
    finished.wait_for(bound);
}

} // namespace sorv
