#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

namespace sorv::test {

// A private D-Bus session bus (dbus-daemon --session with its own runtime
// directory and service directory) on which the first Secret Service call
// activates gnome-keyring-daemon, as on a minimal desktop or an auto-login
// session where nobody set up a login keyring: storing a secret makes the
// keyring prompt for a new keyring's password. The prompter is a stand-in
// that counts the prompts and either gives up at once (the prompt cancelled)
// or never answers (a prompt nobody sees). Programs reach the bus through
// the environment from addTo(); nothing here touches this process's own
// D-Bus connections.
class KeyringBus {
public:
    enum class Prompter { Cancels, NeverAnswers };

    explicit KeyringBus(Prompter prompter);
    ~KeyringBus();
    KeyringBus(const KeyringBus&) = delete;
    KeyringBus& operator=(const KeyringBus&) = delete;

    bool isRunning() const { return m_running; }
    const QString& errorString() const { return m_error; }

    // Points a program at the bus: DBUS_SESSION_BUS_ADDRESS and an
    // XDG_RUNTIME_DIR of the bus's own.
    void addTo(QProcessEnvironment& env) const;
    // The prompts the keyring has asked for so far.
    int prompts() const;

    // dbus-daemon and gnome-keyring-daemon are installed.
    static bool toolsAvailable();

private:
    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_address;
    bool m_running = false;
    QString m_error;
};

} // namespace sorv::test
