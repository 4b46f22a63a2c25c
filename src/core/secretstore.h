#pragma once

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace sorv {

class SerialQueue;

// The three session secrets (tokens, device id), account-keyed. They live in
// the desktop keyring (Secret Service) when one answers, else in a private
// file ($XDG_DATA_HOME/sorvelandrix/secrets, 0600, replaced atomically).
//
// Everything is loaded once at construction with a bounded wait, then read
// from memory; writes update memory at once and go through to the keyring on a
// worker thread, so the main thread never waits on D-Bus. Secrets that had to
// go to the file while the keyring was away move into it as soon as it
// answers (a late answer to the start-up load, or the next start).
class SecretStore : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool usingKeyring READ usingKeyring NOTIFY usingKeyringChanged)

public:
    enum class Backend {
        Automatic, // keyring, else the file (SORVELANDRIX_SECRETS=file forces the file)
        FileOnly,
    };
    struct Options {
        Backend backend = Backend::Automatic;
        std::chrono::milliseconds loadWait{2000};
        QString directory; // default: dataDirectory()

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

    // Reads the secrets again from where they live (another program may have
    // changed them), then calls `done` on the main thread. Never synchronous.
    void reload(const QObject* context, std::function<void()> done);

    // Runs `fn` once the writes made so far have reached the keyring, on the
    // keyring's worker thread (at once, here, when there is no keyring).
    void whenWritten(std::function<void()> fn);

    // Waits (at most `bound`) until writes already handed to the keyring are
    // done. For the end of a command-line run, so a token is not lost at exit.
    void flush(std::chrono::milliseconds bound);

Q_SIGNALS:
    void usingKeyringChanged();
    // The stored values changed other than through write()/remove(): a late
    // keyring answer or a reload.
    void valuesChanged();

private:
    struct Shared;

    void adoptKeyring(const QHash<QString, QString>& keyringValues);
    void fallBackToFile(const QString& reason);
    void writeFile();
    QHash<QString, QString> readFile(QSet<QString>* removed = nullptr) const;
    void setUsingKeyring(bool on);
    void replaceValues(const QHash<QString, QString>& values);

    Options m_options;
    QHash<QString, QString> m_values;
    QSet<QString> m_changedBeforeKeyring; // changed while the keyring had not answered
    QSet<QString> m_removedInFile;        // removals the keyring has not seen yet
    bool m_warned = false;
    bool m_usingKeyring = false;
    bool m_keyringPending = false;
    std::shared_ptr<Shared> m_shared;
    std::unique_ptr<SerialQueue> m_queue;
};

} // namespace sorv
