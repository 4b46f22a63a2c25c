#include "singleinstance.h"

#include <QDir>
#include <QLocalSocket>
#include <QStandardPaths>

#include <unistd.h>

namespace sorv {

namespace {
constexpr int kConnectTimeoutMs = 1000;
const QStringList kCommands = {QStringLiteral("start"), QStringLiteral("stop"),
                               QStringLiteral("toggle")};
} // namespace

SingleInstance::SingleInstance(QString name, QObject* parent)
    : QObject(parent), m_name(std::move(name))
{
    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (!socket->canReadLine())
                    return;
                const QString line = QString::fromUtf8(socket->readLine()).trimmed();
                socket->disconnectFromServer();
                if (line == QLatin1String("show"))
                    Q_EMIT activationRequested();
                else if (kCommands.contains(line))
                    Q_EMIT commandReceived(line);
            });
        }
    });
}

QString SingleInstance::defaultName()
{
    return QStringLiteral("sorvelandrix-recorder.socket");
}

QString SingleInstance::socketPath() const
{
    QString dir = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (dir.isEmpty() || !QDir(dir).exists())
        return QDir::temp().filePath(QStringLiteral("%1-%2").arg(getuid()).arg(m_name));
    return QDir(dir).filePath(m_name);
}

bool SingleInstance::claim(const QString& command)
{
    const QString path = socketPath();
    QLocalSocket probe;
    probe.connectToServer(path);
    if (probe.waitForConnected(kConnectTimeoutMs)) {
        probe.write((command.isEmpty() ? QStringLiteral("show") : command).toUtf8() + '\n');
        probe.waitForBytesWritten(kConnectTimeoutMs);
        probe.disconnectFromServer();
        return false;
    }
    // Nobody answers: a socket file left by a crashed run is in the way.
    QLocalServer::removeServer(path);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    return m_server.listen(path);
}

} // namespace sorv

#include "moc_singleinstance.cpp"
