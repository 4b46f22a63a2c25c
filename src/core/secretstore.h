#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace sorv {

// The session secrets (tokens, device id), account-keyed. They live in the
// desktop keyring (Secret Service) when one answers, else in a private file
// ($XDG_DATA_HOME/sorvelandrix/secrets, 0600, replaced atomically).
//
// Everything is loaded once at construction with a bounded wait, then read
// from memory; writes update memory at once. Several programs share the
// secrets, so nothing is ever written from a copy: the file is changed under
// a short lock of its own, on what it holds at that moment, by the entries
// this program changed; keyring items are written one by one.
//
// The keyring is asked on a worker thread, and every wait for it is bounded:
// a call that fails, or that has not answered in time (a prompt nobody
// sees), ends its use for the rest of the run and what had not reached it
// goes to the file. A keyring write counts only once it has been read back.
// Secrets that went to the file while the keyring was away move into it on a
// later start, and leave the file only once the keyring has them.
class SecretStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool usingKeyring READ usingKeyring NOTIFY usingKeyringChanged)
    Q_PROPERTY(QString storageError READ storageError NOTIFY storageErrorChanged)

public:
    enum class Backend {
        Automatic, // keyring, else the file (SORVELANDRIX_SECRETS=file forces the file)
        FileOnly,
    };
    struct Options {
        Backend backend = Backend::Automatic;
        std::chrono::milliseconds loadWait{2000}; // the start-up load
        std::chrono::milliseconds callWait{5000}; // any later keyring call (at exit: 2 s at most)
        QString directory;                        // default: dataDirectory()

        static Options fileOnly()
        {
            Options o;
            o.backend = Backend::FileOnly;
            return o;
        }
    };

    explicit SecretStore(QObject* parent = nullptr);
    explicit SecretStore(Options options, QObject* parent = nullptr);
    ~SecretStore() override;

    std::optional<QString> read(const QString& account) const;
    void write(const QString& account, const QString& value);
    void remove(const QString& account);

    bool usingKeyring() const { return m_usingKeyring; }
    QString filePath() const;
    // The lock file that programs sharing these secrets take around changes
    // that must not interleave (the refresh-token rotation).
    QString lockFilePath() const;
    // Why the last write could not be kept (it names the file), empty when
    // it was.
    QString storageError() const { return m_storageError; }

    // Reads the secrets again from where they live (another program may have
    // changed them), then calls `done` on the main thread. Never synchronous.
    void reload(const QObject* context, std::function<void()> done);

    // Runs `fn` on the main thread once the writes made so far are kept:
    // read back from the keyring, or in the file (at once when they went
    // there).
    void whenWritten(std::function<void()> fn);
    // The same, later (never synchronously), with storageError() then.
    void whenStored(const QObject* context, std::function<void(const QString& error)> done);

    // Waits (at most `bound`) for the writes handed to the keyring; what has
    // not reached it by then goes to the file. For the end of a run.
    void flush(std::chrono::milliseconds bound);

Q_SIGNALS:
    void usingKeyringChanged();
    void storageErrorChanged();
    // The stored values changed other than through write()/remove(): a late
    // keyring answer or a reload.
    void valuesChanged();

private:
    struct Shared;
    struct Job;
    struct Outcome;
    // Entries of the file: a value, or none for a removal the keyring has
    // not seen yet.
    using Entries = QHash<QString, std::optional<QString>>;
    struct FileEdit {
        Entries set;
        Entries dropIfStill; // entries removed only while they still hold this
        QStringList drop;
    };
    struct Unconfirmed {
        quint64 seq = 0;
        std::optional<QString> value;
        bool fromFile = false; // moving from the file into the keyring
    };

    quint64 post(Job job);
    void takeOutcomes();
    void handle(const Outcome& outcome);
    void confirm(const Outcome& outcome);
    void adoptKeyring(const QHash<QString, QString>& keyringValues);
    void giveUpKeyring(const QString& reason);
    void warnOnce(const QString& text);
    void runWrittenWaiters();
    QHash<QString, QString> withFileOver(const QHash<QString, QString>& base) const;
    Entries readFile() const;
    bool editFile(const FileEdit& edit);
    void setStorageError(const QString& error);
    void setUsingKeyring(bool on);
    void replaceValues(const QHash<QString, QString>& values);

    Options m_options;
    QHash<QString, QString> m_values;
    // What the keyring held at the last load; the file's entries go over it.
    QHash<QString, QString> m_keyringValues;
    QHash<QString, Unconfirmed> m_unconfirmed;
    std::map<quint64, std::vector<std::function<void()>>> m_reloads;
    std::vector<std::pair<quint64, std::function<void()>>> m_writtenWaiters;
    QString m_storageError;
    bool m_warned = false;
    bool m_usingKeyring = false;
    bool m_keyringPending = false; // the start-up load may still answer
    quint64 m_lastSeq = 0;
    quint64 m_startSeq = 0;
    int m_outstanding = 0; // calls handed to the keyring, not answered yet
    QTimer m_watchdog;
    std::shared_ptr<Shared> m_shared;
};

} // namespace sorv
