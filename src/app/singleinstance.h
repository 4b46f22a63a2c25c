#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

namespace sorv {

// One application per user session: the first start listens on a local
// socket in the user's runtime directory; a later start finds it, hands it
// its request (show the window, or a recording command from --toggle,
// --start, --stop) and ends. The socket works without a session bus, so the
// command-line switches do too.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    // `name`: the socket's file name (tests give their own).
    explicit SingleInstance(QString name = defaultName(), QObject* parent = nullptr);

    static QString defaultName();
    // $XDG_RUNTIME_DIR/NAME, or a per-user name in the temporary directory.
    QString socketPath() const;

    // True: this is the first instance and now listens. False: another one
    // runs and has been sent `command` ("start", "stop", "toggle"), or asked
    // to show itself when `command` is empty.
    bool claim(const QString& command = {});

Q_SIGNALS:
    // A later start asked this instance to show its window.
    void activationRequested();
    // A later start passed a recording command on.
    void commandReceived(const QString& command);

private:
    QString m_name;
    QLocalServer m_server;
};

} // namespace sorv
