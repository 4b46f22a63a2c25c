#include "secretstore.h"

#include "log.h"
#include "mainthread.h"
#include "paths.h"
#include "secretservicekeyring.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QSaveFile>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sorv {

struct SecretStore::Job {
    enum class Kind { Load, Store, Clear };
    Kind kind = Kind::Load;
    quint64 seq = 0;
    QString account;
    QString value;
};

struct SecretStore::Outcome {
    Job::Kind kind = Job::Kind::Load;
    quint64 seq = 0;
    QString account;
    QString error;
    QHash<QString, QString> values;
    bool skipped = false; // the keyring had been given up before it ran
};

// What the worker thread shares with the store. The worker is detached and
// owns this too: a call that never returns (a prompt nobody answers) keeps it
// alive without holding up the store's end or the process's exit. Outcomes
// are posted only while the store exists (receiver is cleared under the lock
// as it goes).
struct SecretStore::Shared {
    SecretServiceKeyring keyring;
    std::mutex mutex;
    std::condition_variable wake;    // work arrived, or the end
    std::condition_variable settled; // a job ended, or the worker did
    std::deque<Job> jobs;
    std::vector<Outcome> outcomes;
    bool busy = false;
    bool givenUp = false;
    bool stopping = false;
    bool finished = false;
    SecretStore* receiver = nullptr;
    QPointer<const QObject> guard; // made on the main thread, with the store

    static void run(const std::shared_ptr<Shared>& self);
    Outcome perform(const Job& job);
};

namespace {

constexpr auto kFileName = "secrets";
constexpr auto kWriteLockName = "secrets.write.lock";
// The file lock is held for one read and one small write: a holder that
// keeps it this long is stuck.
constexpr std::chrono::milliseconds kWriteLockWait{2000};

// An exclusive flock for the length of one change to the file. It is taken
// on the calling thread, in short steps and for a bounded time: holders
// keep it only for a moment.
class ShortLock {
public:
    explicit ShortLock(const QString& path)
        : m_fd(::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
        if (m_fd < 0) {
            m_error = QString::fromLocal8Bit(std::strerror(errno));
            return;
        }
        const auto deadline = std::chrono::steady_clock::now() + kWriteLockWait;
        while (::flock(m_fd, LOCK_EX | LOCK_NB) != 0) {
            if ((errno != EWOULDBLOCK && errno != EINTR) ||
                std::chrono::steady_clock::now() >= deadline) {
                m_error = errno == EWOULDBLOCK
                              ? QStringLiteral("another program holds %1").arg(path)
                              : QString::fromLocal8Bit(std::strerror(errno));
                ::close(m_fd);
                m_fd = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    ~ShortLock()
    {
        if (m_fd >= 0)
            ::close(m_fd); // releases the lock
    }
    ShortLock(const ShortLock&) = delete;
    ShortLock& operator=(const ShortLock&) = delete;

    bool held() const { return m_fd >= 0; }
    const QString& error() const { return m_error; }

private:
    int m_fd;
    QString m_error;
};

} // namespace

void SecretStore::Shared::run(const std::shared_ptr<Shared>& self)
{
    for (;;) {
        Job job;
        bool skip = false;
        {
            std::unique_lock lock(self->mutex);
            self->wake.wait(lock, [&] { return self->stopping || !self->jobs.empty(); });
            if (self->jobs.empty())
                break;
            job = std::move(self->jobs.front());
            self->jobs.pop_front();
            self->busy = true;
            skip = self->givenUp;
        }
        Outcome outcome;
        if (skip) {
            outcome.kind = job.kind;
            outcome.seq = job.seq;
            outcome.account = job.account;
            outcome.skipped = true;
        } else {
            outcome = self->perform(job);
        }
        {
            std::lock_guard lock(self->mutex);
            self->busy = false;
            // One failure is enough: the calls queued behind it would only
            // prompt again.
            if (!outcome.error.isEmpty())
                self->givenUp = true;
            self->outcomes.push_back(std::move(outcome));
            if (SecretStore* store = self->receiver)
                postToMainThread(self->guard, [store] { store->takeOutcomes(); });
        }
        self->settled.notify_all();
    }
    {
        std::lock_guard lock(self->mutex);
        self->finished = true;
    }
    self->settled.notify_all();
}

SecretStore::Outcome SecretStore::Shared::perform(const Job& job)
{
    Outcome outcome;
    outcome.kind = job.kind;
    outcome.seq = job.seq;
    outcome.account = job.account;
    switch (job.kind) {
    case Job::Kind::Load: {
        SecretServiceKeyring::LoadResult r = keyring.loadAll();
        outcome.values = std::move(r.values);
        outcome.error = std::move(r.error);
        break;
    }
    case Job::Kind::Store: {
        if (const std::optional<QString> error = keyring.store(job.account, job.value)) {
            outcome.error = *error;
            break;
        }
        // Only what can be read back counts as kept.
        const SecretServiceKeyring::LookupResult back = keyring.lookup(job.account);
        if (!back.error.isEmpty())
            outcome.error = back.error;
        else if (back.value != job.value)
            outcome.error = QStringLiteral("what was stored could not be read back");
        break;
    }
    case Job::Kind::Clear: {
        if (const std::optional<QString> error = keyring.clear(job.account)) {
            outcome.error = *error;
            break;
        }
        const SecretServiceKeyring::LookupResult back = keyring.lookup(job.account);
        if (!back.error.isEmpty())
            outcome.error = back.error;
        else if (back.value)
            outcome.error = QStringLiteral("an item that was removed is still there");
        break;
    }
    }
    return outcome;
}

SecretStore::SecretStore(QObject* parent) : SecretStore(Options{}, parent) {}

SecretStore::SecretStore(Options options, QObject* parent)
    : QObject(parent), m_options(std::move(options))
{
    // Made now, when it can be: the lock files live there even while the
    // keyring keeps the secrets. One that cannot be made is still named.
    if (m_options.directory.isEmpty())
        m_options.directory = dataDirectory();
    if (m_options.directory.isEmpty())
        m_options.directory = dataDirectoryLocation();
    m_values = withFileOver({});

    const bool forcedFile = qEnvironmentVariable("SORVELANDRIX_SECRETS") == QLatin1String("file");
    if (m_options.backend == Backend::FileOnly || forcedFile)
        return;
    if (!SecretServiceKeyring::sessionBusConfigured()) {
        warnOnce(QStringLiteral("no session bus"));
        return;
    }

    m_watchdog.setSingleShot(true);
    m_watchdog.setInterval(m_options.callWait);
    connect(&m_watchdog, &QTimer::timeout, this, [this] {
        giveUpKeyring(QStringLiteral("no answer within %1 ms").arg(m_options.callWait.count()));
    });

    m_shared = std::make_shared<Shared>();
    m_shared->receiver = this;
    m_shared->guard = this;
    std::thread([shared = m_shared] { Shared::run(shared); }).detach();

    // The load is the one place that waits, once, and never longer than the
    // bound: a hanging keyring must not hang the start. An answer that comes
    // later is taken up then.
    m_startSeq = ++m_lastSeq;
    std::optional<Outcome> answer;
    {
        std::unique_lock lock(m_shared->mutex);
        m_shared->jobs.push_back({Job::Kind::Load, m_startSeq, {}, {}});
        m_shared->wake.notify_one();
        const auto answered = [&] {
            auto& all = m_shared->outcomes;
            const auto it = std::find_if(all.begin(), all.end(),
                                         [&](const Outcome& o) { return o.seq == m_startSeq; });
            if (it == all.end())
                return false;
            answer = std::move(*it);
            all.erase(it);
            return true;
        };
        m_shared->settled.wait_for(lock, m_options.loadWait, answered);
    }
    if (!answer) {
        m_keyringPending = true;
        warnOnce(QStringLiteral("no answer within %1 ms").arg(m_options.loadWait.count()));
        return;
    }
    if (answer->error.isEmpty())
        adoptKeyring(answer->values);
    else
        giveUpKeyring(answer->error);
}

SecretStore::~SecretStore()
{
    if (!m_shared)
        return;
    flush(std::min<std::chrono::milliseconds>(m_options.callWait, std::chrono::seconds(2)));
    // Entries moving from the file get a moment more: those the keyring has
    // by then leave the file now instead of at the next start.
    {
        std::unique_lock lock(m_shared->mutex);
        m_shared->stopping = true;
        m_shared->wake.notify_all();
        m_shared->settled.wait_for(lock, std::chrono::milliseconds(500),
                                   [&] { return m_shared->finished; });
    }
    // Nothing new is asked of the keyring now, not even for a late start-up answer.
    m_keyringPending = false;
    m_watchdog.stop();
    takeOutcomes();
    {
        std::lock_guard lock(m_shared->mutex);
        m_shared->receiver = nullptr;
    }
    // A call still under way is left to the worker, which owns what it uses.
    m_shared->keyring.cancel();
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
        const quint64 seq = post({Job::Kind::Store, 0, account, value});
        m_unconfirmed.insert(account, {seq, value, false});
        return;
    }
    FileEdit edit;
    edit.set.insert(account, value);
    editFile(edit);
}

void SecretStore::remove(const QString& account)
{
    m_values.remove(account);
    if (m_usingKeyring) {
        const quint64 seq = post({Job::Kind::Clear, 0, account, {}});
        m_unconfirmed.insert(account, {seq, std::nullopt, false});
        return;
    }
    // Removals are remembered in the file, so that the keyring's older copy
    // is removed too once it answers (possibly at a later start).
    FileEdit edit;
    edit.set.insert(account, std::nullopt);
    editFile(edit);
}

quint64 SecretStore::post(Job job)
{
    job.seq = ++m_lastSeq;
    {
        std::lock_guard lock(m_shared->mutex);
        m_shared->jobs.push_back(job);
    }
    m_shared->wake.notify_one();
    if (m_outstanding++ == 0)
        m_watchdog.start();
    return job.seq;
}

void SecretStore::takeOutcomes()
{
    std::vector<Outcome> outcomes;
    {
        std::lock_guard lock(m_shared->mutex);
        outcomes.swap(m_shared->outcomes);
    }
    for (const Outcome& outcome : outcomes)
        handle(outcome);
}

void SecretStore::handle(const Outcome& outcome)
{
    if (outcome.seq == m_startSeq) {
        // The start-up load, after its wait (or already given up).
        if (!m_keyringPending)
            return;
        m_keyringPending = false;
        if (outcome.error.isEmpty())
            adoptKeyring(outcome.values);
        else
            giveUpKeyring(outcome.error);
        return;
    }
    if (m_outstanding > 0)
        --m_outstanding;
    if (m_usingKeyring && m_outstanding > 0)
        m_watchdog.start(); // the next call gets its own time
    else
        m_watchdog.stop();
    // After giving up, the file holds what these were about.
    if (outcome.skipped || !m_usingKeyring)
        return;
    if (!outcome.error.isEmpty()) {
        giveUpKeyring(outcome.error);
        return;
    }
    if (outcome.kind == Job::Kind::Load) {
        m_keyringValues = outcome.values;
        QHash<QString, QString> values = withFileOver(m_keyringValues);
        // This program's own writes still on their way are newer still.
        for (auto it = m_unconfirmed.constBegin(); it != m_unconfirmed.constEnd(); ++it) {
            if (it->value)
                values.insert(it.key(), *it->value);
            else
                values.remove(it.key());
        }
        replaceValues(values);
        const auto waiting = m_reloads.find(outcome.seq);
        if (waiting != m_reloads.end()) {
            const std::vector<std::function<void()>> done = std::move(waiting->second);
            m_reloads.erase(waiting);
            for (const auto& fn : done)
                fn();
        }
        return;
    }
    confirm(outcome);
}

void SecretStore::confirm(const Outcome& outcome)
{
    const auto it = m_unconfirmed.find(outcome.account);
    // A later write of the same entry is still on its way.
    if (it == m_unconfirmed.end() || it->seq != outcome.seq)
        return;
    const Unconfirmed done = *it;
    m_unconfirmed.erase(it);
    if (done.value)
        m_keyringValues.insert(outcome.account, *done.value);
    else
        m_keyringValues.remove(outcome.account);
    const Entries file = readFile();
    if (file.contains(outcome.account)) {
        FileEdit edit;
        if (done.fromFile) {
            // Another program may have changed it in the file meanwhile:
            // then that newer value stays and moves at a later start.
            edit.dropIfStill.insert(outcome.account, done.value);
        } else {
            // What the file holds is older than this write.
            edit.drop << outcome.account;
        }
        if (editFile(edit) && done.fromFile && !QFile::exists(filePath()))
            consoleLog(QStringLiteral("🔑 Secrets moved from the private file into the keyring"));
    }
    runWrittenWaiters();
}

void SecretStore::adoptKeyring(const QHash<QString, QString>& keyringValues)
{
    // What the file holds was written while the keyring was away, so it is
    // newer than the keyring's copy; it moves into the keyring, and leaves
    // the file once the keyring has it.
    m_keyringValues = keyringValues;
    setUsingKeyring(true);
    // A keyring that answered late may bring a session the start did not see.
    replaceValues(withFileOver(m_keyringValues));
    const Entries file = readFile();
    for (auto it = file.constBegin(); it != file.constEnd(); ++it) {
        const quint64 seq = it->has_value() ? post({Job::Kind::Store, 0, it.key(), **it})
                                            : post({Job::Kind::Clear, 0, it.key(), {}});
        m_unconfirmed.insert(it.key(), {seq, *it, true});
    }
}

void SecretStore::giveUpKeyring(const QString& reason)
{
    if (!m_shared)
        return;
    {
        std::lock_guard lock(m_shared->mutex);
        m_shared->givenUp = true;
    }
    // Whatever is still under way ends as it may; nothing new is asked.
    m_shared->keyring.cancel();
    m_watchdog.stop();
    m_keyringPending = false;
    setUsingKeyring(false);
    warnOnce(reason);
    // What had not reached the keyring goes to the file: only those entries,
    // over what the file holds now.
    FileEdit edit;
    for (auto it = m_unconfirmed.constBegin(); it != m_unconfirmed.constEnd(); ++it) {
        if (!it->fromFile)
            edit.set.insert(it.key(), it->value);
    }
    m_unconfirmed.clear();
    if (!edit.set.isEmpty())
        editFile(edit);
    if (!m_reloads.empty()) {
        replaceValues(withFileOver(m_keyringValues));
        auto reloads = std::move(m_reloads);
        m_reloads.clear();
        for (auto& [seq, done] : reloads)
            for (const auto& fn : done)
                fn();
    }
    runWrittenWaiters();
}

void SecretStore::warnOnce(const QString& reason)
{
    if (m_warned)
        return;
    m_warned = true;
    consoleLog(QStringLiteral(
                   "⚠️ No desktop keyring that keeps secrets (%1); keeping them in the private "
                   "file %2")
                   .arg(reason, filePath()));
}

void SecretStore::runWrittenWaiters()
{
    quint64 firstUnconfirmed = m_lastSeq + 1;
    for (const Unconfirmed& u : std::as_const(m_unconfirmed))
        firstUnconfirmed = std::min(firstUnconfirmed, u.seq);
    std::vector<std::function<void()>> ready;
    const auto kept = std::partition(m_writtenWaiters.begin(), m_writtenWaiters.end(),
                                     [&](const auto& w) { return w.first >= firstUnconfirmed; });
    for (auto it = kept; it != m_writtenWaiters.end(); ++it)
        ready.push_back(std::move(it->second));
    m_writtenWaiters.erase(kept, m_writtenWaiters.end());
    for (const auto& fn : ready)
        fn();
}

void SecretStore::setUsingKeyring(bool on)
{
    if (m_usingKeyring == on)
        return;
    m_usingKeyring = on;
    Q_EMIT usingKeyringChanged();
}

void SecretStore::setStorageError(const QString& error)
{
    if (m_storageError == error)
        return;
    m_storageError = error;
    if (!error.isEmpty())
        consoleLog(QStringLiteral("❌ ") + error);
    Q_EMIT storageErrorChanged();
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
    if (!m_usingKeyring) {
        // The file holds what another program wrote.
        replaceValues(withFileOver(m_keyringValues));
        postToMainThread(guard, std::move(done));
        return;
    }
    const quint64 seq = post({Job::Kind::Load, 0, {}, {}});
    m_reloads[seq].push_back([guard, done = std::move(done)] { postToMainThread(guard, done); });
}

void SecretStore::whenWritten(std::function<void()> fn)
{
    m_writtenWaiters.emplace_back(m_lastSeq, std::move(fn));
    runWrittenWaiters();
}

void SecretStore::whenStored(const QObject* context, std::function<void(const QString&)> done)
{
    const QPointer<const QObject> guard(context ? context : this);
    whenWritten([this, guard, done = std::move(done)] {
        postToMainThread(guard, [done, error = m_storageError] { done(error); });
    });
}

void SecretStore::flush(std::chrono::milliseconds bound)
{
    // Entries still moving from the file are safe where they are.
    const bool waiting = std::any_of(m_unconfirmed.cbegin(), m_unconfirmed.cend(),
                                     [](const Unconfirmed& u) { return !u.fromFile; });
    if (!m_shared || (!waiting && m_reloads.empty()))
        return;
    {
        std::unique_lock lock(m_shared->mutex);
        m_shared->settled.wait_for(lock, bound,
                                   [&] { return m_shared->jobs.empty() && !m_shared->busy; });
    }
    takeOutcomes();
    const bool stillWaiting = std::any_of(m_unconfirmed.cbegin(), m_unconfirmed.cend(),
                                          [](const Unconfirmed& u) { return !u.fromFile; });
    if (stillWaiting || !m_reloads.empty())
        giveUpKeyring(QStringLiteral("no answer within %1 ms").arg(bound.count()));
}

QString SecretStore::filePath() const
{
    return m_options.directory + QLatin1Char('/') + QLatin1String(kFileName);
}

QHash<QString, QString> SecretStore::withFileOver(const QHash<QString, QString>& base) const
{
    QHash<QString, QString> values = base;
    const Entries file = readFile();
    for (auto it = file.constBegin(); it != file.constEnd(); ++it) {
        if (it->has_value())
            values.insert(it.key(), **it);
        else
            values.remove(it.key());
    }
    return values;
}

SecretStore::Entries SecretStore::readFile() const
{
    Entries entries;
    QFile file(filePath());
    if (!file.open(QIODevice::ReadOnly))
        return entries;
    const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
    for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
        if (it.value().isString())
            entries.insert(it.key(), it.value().toString());
        else if (it.value().isNull())
            entries.insert(it.key(), std::nullopt);
    }
    return entries;
}

bool SecretStore::editFile(const FileEdit& edit)
{
    const auto fail = [this](const QString& why) {
        setStorageError(QStringLiteral("Cannot write the secrets to %1: %2").arg(filePath(), why));
        return false;
    };
    const QString& dir = m_options.directory;
    if (dir.isEmpty() || !QDir().mkpath(dir))
        return fail(QStringLiteral("the folder cannot be created"));
    ::chmod(QFile::encodeName(dir).constData(), 0700);

    const ShortLock lock(dir + QLatin1Char('/') + QLatin1String(kWriteLockName));
    if (!lock.held())
        return fail(lock.error());
    Entries entries = readFile();
    for (auto it = edit.set.constBegin(); it != edit.set.constEnd(); ++it)
        entries.insert(it.key(), *it);
    for (auto it = edit.dropIfStill.constBegin(); it != edit.dropIfStill.constEnd(); ++it) {
        const auto current = entries.constFind(it.key());
        if (current != entries.constEnd() && *current == *it)
            entries.remove(it.key());
    }
    for (const QString& account : edit.drop)
        entries.remove(account);

    if (entries.isEmpty()) {
        if (QFile::exists(filePath()) && !QFile::remove(filePath()))
            return fail(QStringLiteral("it cannot be removed"));
    } else {
        QJsonObject object;
        for (auto it = entries.constBegin(); it != entries.constEnd(); ++it)
            object.insert(it.key(), it->has_value() ? QJsonValue(**it) : QJsonValue::Null);
        QSaveFile file(filePath());
        if (!file.open(QIODevice::WriteOnly))
            return fail(file.errorString());
        // Private before the first byte is written; the rename keeps the mode.
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        file.write(QJsonDocument(object).toJson(QJsonDocument::Compact));
        if (!file.commit())
            return fail(file.errorString());
    }
    const Entries back = readFile();
    for (auto it = edit.set.constBegin(); it != edit.set.constEnd(); ++it) {
        if (back.value(it.key(), QStringLiteral("\n")) != *it)
            return fail(QStringLiteral("what was written could not be read back"));
    }
    setStorageError({});
    return true;
}

} // namespace sorv

#include "moc_secretstore.cpp"
