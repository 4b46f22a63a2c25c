#include "keyringbus.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <csignal>
#include <sys/prctl.h>
#include <sys/types.h>

namespace sorv::test {

namespace {

bool writeFile(const QString& path, const QByteArray& text, bool executable = false)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(text);
    file.close();
    return !executable || file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                              QFileDevice::ExeOwner);
}

} // namespace

bool KeyringBus::toolsAvailable()
{
    return !QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty() &&
           !QStandardPaths::findExecutable(QStringLiteral("gnome-keyring-daemon")).isEmpty();
}

KeyringBus::KeyringBus(Prompter prompter)
{
    if (!toolsAvailable()) {
        m_error = QStringLiteral("dbus-daemon or gnome-keyring-daemon missing");
        return;
    }
    const QString root = m_dir.path();
    for (const char* sub : {"run", "services", "home", "data"})
        QDir(root).mkpath(QString::fromLatin1(sub));
    QFile::setPermissions(root + QStringLiteral("/run"),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    const QByteArray dir = QFile::encodeName(root);

    // Every process the bus starts notes its id, so that none outlives the test.
    const QByteArray keyring = "#!/bin/sh\necho $$ >>" + dir +
                               "/pids\nexec gnome-keyring-daemon --start --foreground "
                               "--components=secrets\n";
    QByteArray prompterScript = "#!/bin/sh\necho prompt >>" + dir + "/prompts\n";
    if (prompter == Prompter::Cancels)
        prompterScript += "exit 1\n";
    else
        prompterScript += "echo $$ >>" + dir + "/pids\nexec sleep 600\n";
    const QByteArray config =
        "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
        " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
        "<busconfig>\n"
        "  <type>session</type>\n"
        "  <listen>unix:path=" +
        dir + "/run/bus</listen>\n  <servicedir>" + dir +
        "/services</servicedir>\n"
        // A prompter that never answers keeps its prompt pending this long.
        "  <limit name=\"service_start_timeout\">600000</limit>\n"
        "  <policy context=\"default\">\n"
        "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
        "    <allow eavesdrop=\"true\"/>\n"
        "    <allow own=\"*\"/>\n"
        "  </policy>\n"
        "</busconfig>\n";
    if (!writeFile(root + QStringLiteral("/keyring.sh"), keyring, true) ||
        !writeFile(root + QStringLiteral("/prompter.sh"), prompterScript, true) ||
        !writeFile(root + QStringLiteral("/services/org.freedesktop.secrets.service"),
                   "[D-BUS Service]\nName=org.freedesktop.secrets\nExec=" + dir +
                       "/keyring.sh\n") ||
        !writeFile(root + QStringLiteral("/services/org.gnome.keyring.SystemPrompter.service"),
                   "[D-BUS Service]\nName=org.gnome.keyring.SystemPrompter\nExec=" + dir +
                       "/prompter.sh\n") ||
        !writeFile(root + QStringLiteral("/session.conf"), config)) {
        m_error = QStringLiteral("cannot write the bus's files in ") + root;
        return;
    }

    // What the bus starts inherits its environment: a home of its own, no
    // display, no other bus.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS"})
        env.remove(QString::fromLatin1(name));
    env.insert(QStringLiteral("HOME"), root + QStringLiteral("/home"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), root + QStringLiteral("/data"));
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), root + QStringLiteral("/run"));
    m_daemon.setProcessEnvironment(env);
    m_daemon.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    m_daemon.start(QStringLiteral("dbus-daemon"),
                   {QStringLiteral("--config-file=") + root + QStringLiteral("/session.conf"),
                    QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
    while (!m_daemon.canReadLine() && m_daemon.waitForReadyRead(10000)) {
    }
    m_address = QString::fromUtf8(m_daemon.readLine()).trimmed();
    if (m_address.isEmpty()) {
        m_error = QStringLiteral("dbus-daemon did not start: ") +
                  QString::fromUtf8(m_daemon.readAllStandardError());
        return;
    }
    m_running = true;
}

KeyringBus::~KeyringBus()
{
    QFile pids(m_dir.filePath(QStringLiteral("pids")));
    if (pids.open(QIODevice::ReadOnly)) {
        for (const QByteArray& line : pids.readAll().split('\n')) {
            if (const int pid = line.trimmed().toInt(); pid > 0)
                ::kill(pid, SIGTERM);
        }
    }
    if (m_daemon.state() != QProcess::NotRunning) {
        m_daemon.terminate();
        if (!m_daemon.waitForFinished(5000))
            m_daemon.kill();
        m_daemon.waitForFinished(5000);
    }
}

void KeyringBus::addTo(QProcessEnvironment& env) const
{
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), m_address);
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_dir.filePath(QStringLiteral("run")));
}

int KeyringBus::prompts() const
{
    QFile file(m_dir.filePath(QStringLiteral("prompts")));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return int(file.readAll().count('\n'));
}

} // namespace sorv::test
