#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

namespace sorv {

// One application per user session: the first start listens on a local
// socket in the user's runtime directory; a later start finds it, asks the
// first to show its window and ends.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    // `name`: the socket's file name (tests give their own).
    explicit SingleInstance(QString name = defaultName(), QObject* parent = nullptr);

    static QString defaultName();
    // $XDG_RUNTIME_DIR/NAME, or a per-user name in the temporary directory.
    QString socketPath() const;

    // True: this is the first instance and now listens. False: another one
    // runs and has been asked to show itself.
    bool claim();

Q_SIGNALS:
    // A later start asked this instance to show its window.
    void activationRequested();

private:
    QString m_name;
    QLocalServer m_server;
};

} // namespace sorv
