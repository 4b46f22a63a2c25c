#include "pulsesandbox.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <sys/prctl.h>

namespace sorv::test {

namespace {

bool runTool(const QString& program, const QStringList& args, QString* output, int timeoutMs)
{
    QProcess p;
    p.start(program, args);
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished();
        return false;
    }
    if (output)
        *output = QString::fromUtf8(p.readAllStandardOutput());
    return p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

} // namespace

bool PulseSandbox::toolsAvailable()
{
    for (const char* tool : {"pulseaudio", "pactl", "paplay", "parec", "sox"})
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            return false;
    return true;
}

PulseSandbox::PulseSandbox(Options options) : m_options(options)
{
    m_hadPulseServer = qEnvironmentVariableIsSet("PULSE_SERVER");
    m_previousPulseServer = qgetenv("PULSE_SERVER");
    if (!m_dir.isValid() || !toolsAvailable()) {
        m_error = QStringLiteral("pulseaudio, pactl, paplay or sox missing");
        return;
    }
    // For a post-mortem: keep the daemon's directory and a verbose log.
    if (qEnvironmentVariableIsSet("SORV_KEEP_SANDBOX")) {
        m_dir.setAutoRemove(false);
        qInfo("PulseAudio sandbox in %s", qPrintable(m_dir.path()));
    }
    m_running = launch();
}

bool PulseSandbox::launch()
{
    const QString dir = m_dir.path();
    QStringList args{QStringLiteral("-n"),
                     QStringLiteral("--daemonize=no"),
                     QStringLiteral("--exit-idle-time=-1"),
                     QStringLiteral("--disallow-exit"),
                     QStringLiteral("--use-pid-file=no"),
                     QStringLiteral("--realtime=no"),
                     QStringLiteral("--high-priority=no"),
                     QStringLiteral("--log-target=file:") + dir + QStringLiteral("/daemon.log"),
                     QStringLiteral("-L"),
                     QStringLiteral("module-native-protocol-unix auth-anonymous=1 socket=") + dir +
                         QStringLiteral("/native")};
    if (qEnvironmentVariableIsSet("SORV_KEEP_SANDBOX"))
        args << QStringLiteral("-vvv");
    if (m_options.speakers) {
        args << QStringLiteral("-L")
             << QStringLiteral("module-null-sink sink_name=speakers "
                               "sink_properties=device.description=Speakers rate=48000")
             << QStringLiteral("-L")
             << QStringLiteral("module-null-sink sink_name=micsink "
                               "sink_properties=device.description=MicFeed rate=48000")
             << QStringLiteral("-L")
             << QStringLiteral("module-remap-source source_name=virtmic master=micsink.monitor "
                               "source_properties=device.description=VirtualMic")
             << QStringLiteral("-L") << QStringLiteral("module-always-sink");
    } else {
        args << QStringLiteral("-L")
             << QStringLiteral("module-sine-source source_name=virtmic rate=48000 frequency=1000");
    }

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), dir);
    env.insert(QStringLiteral("HOME"), dir);
    env.remove(QStringLiteral("PULSE_SERVER"));
    m_daemon.setProcessEnvironment(env);
    m_daemon.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // If the test process dies without running destructors, take the daemon along.
    m_daemon.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    m_daemon.start(QStringLiteral("pulseaudio"), args);
    if (!m_daemon.waitForStarted(5000)) {
        m_error = QStringLiteral("pulseaudio did not start: ") + m_daemon.errorString();
        return false;
    }
    qputenv("PULSE_SERVER", serverAddress().toUtf8());

    const QDeadlineTimer deadline(15000);
    bool up = false;
    while (!deadline.hasExpired() && m_daemon.state() == QProcess::Running) {
        if (pactl({QStringLiteral("info")})) {
            up = true;
            break;
        }
        QThread::msleep(50);
    }
    if (!up) {
        m_error = QStringLiteral("the sandbox daemon did not answer");
        stop();
        return false;
    }
    if (m_options.speakers) {
        pactl({QStringLiteral("set-default-sink"), QStringLiteral("speakers")});
        pace({QStringLiteral("micsink.monitor"), QStringLiteral("speakers.monitor")});
    }
    pactl({QStringLiteral("set-default-source"), QStringLiteral("virtmic")});
    return true;
}

bool PulseSandbox::pace(const QStringList& monitors)
{
    // A null sink sleeps for as long as its clients allow, up to two seconds
    // right after it is created, so its monitor (a virtual microphone) would
    // deliver in bursts. A low-latency reader on each monitor paces them like
    // a sound card's clock; once each has received audio, the sinks have left
    // their first long sleep.
    QStringList paced;
    for (const QString& monitor : monitors) {
        auto pacer = std::make_unique<QProcess>();
        const QString out = m_dir.path() + QStringLiteral("/pacer-") + monitor;
        QFile::remove(out);
        pacer->setStandardOutputFile(out);
        pacer->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        pacer->start(QStringLiteral("parec"),
                     {QStringLiteral("--server=") + serverAddress(),
                      QStringLiteral("--device=") + monitor, QStringLiteral("--latency-msec=10"),
                      QStringLiteral("--raw"), QStringLiteral("--format=u8"),
                      QStringLiteral("--rate=8000"), QStringLiteral("--channels=1")});
        if (pacer->waitForStarted(5000))
            m_pacers.push_back(std::move(pacer));
        paced << out;
    }
    const QDeadlineTimer settled(5000);
    while (!settled.hasExpired() && !std::all_of(paced.begin(), paced.end(), [](const QString& f) {
        return QFileInfo(f).size() > 0;
    }))
        QThread::msleep(20);
    return !settled.hasExpired();
}

PulseSandbox::~PulseSandbox()
{
    stop();
}

void PulseSandbox::killDaemon()
{
    if (m_daemon.state() != QProcess::NotRunning) {
        m_daemon.kill();
        m_daemon.waitForFinished(5000);
    }
    // Players and pacers lose their server with it.
    stopPlayback();
    for (auto& pacer : m_pacers) {
        pacer->kill();
        pacer->waitForFinished(3000);
    }
    m_pacers.clear();
    m_running = false;
}

bool PulseSandbox::restartDaemon()
{
    killDaemon();
    m_running = launch();
    return m_running;
}

void PulseSandbox::stop()
{
    stopPlayback();
    for (auto& pacer : m_pacers) {
        pacer->terminate();
        if (!pacer->waitForFinished(3000))
            pacer->kill();
        pacer->waitForFinished(3000);
    }
    m_pacers.clear();
    if (m_daemon.state() != QProcess::NotRunning) {
        m_daemon.terminate();
        if (!m_daemon.waitForFinished(5000)) {
            m_daemon.kill();
            m_daemon.waitForFinished(5000);
        }
    }
    m_running = false;
    if (m_hadPulseServer)
        qputenv("PULSE_SERVER", m_previousPulseServer);
    else
        qunsetenv("PULSE_SERVER");
}

QString PulseSandbox::serverAddress() const
{
    return QStringLiteral("unix:") + m_dir.path() + QStringLiteral("/native");
}

bool PulseSandbox::pactl(const QStringList& args, QString* output) const
{
    return runTool(QStringLiteral("pactl"),
                   QStringList{QStringLiteral("--server=") + serverAddress()} + args, output,
                   10000);
}

bool PulseSandbox::play(const QString& device, const QString& file)
{
    auto player = std::make_unique<QProcess>();
    player->setProcessChannelMode(QProcess::ForwardedChannels);
    player->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    // A null sink renders at the pace its clients ask for: paplay's default
    // two-second latency would deliver the monitors' audio in bursts.
    player->start(QStringLiteral("paplay"), {QStringLiteral("--server=") + serverAddress(),
                                             QStringLiteral("--device=") + device,
                                             QStringLiteral("--latency-msec=20"), file});
    if (!player->waitForStarted(5000))
        return false;
    m_players.push_back(std::move(player));
    return true;
}

bool PulseSandbox::playIntoMicrophone(const QString& file)
{
    return play(QStringLiteral("micsink"), file);
}

bool PulseSandbox::playToSpeakers(const QString& file)
{
    return play(QStringLiteral("speakers"), file);
}

void PulseSandbox::stopPlayback()
{
    for (auto& player : m_players) {
        if (player->state() == QProcess::NotRunning)
            continue;
        player->terminate();
        if (!player->waitForFinished(3000)) {
            player->kill();
            player->waitForFinished(3000);
        }
    }
    m_players.clear();
}

bool PulseSandbox::setMicrophoneMuted(bool muted) const
{
    return pactl({QStringLiteral("set-source-mute"), QStringLiteral("virtmic"),
                  muted ? QStringLiteral("1") : QStringLiteral("0")});
}

int PulseSandbox::addMicrophone(const QString& name, const QString& description, bool paced)
{
    const QString feed = name + QStringLiteral("_feed");
    QString sinkModule;
    QString sourceModule;
    if (!pactl({QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                QStringLiteral("sink_name=") + feed, QStringLiteral("rate=48000"),
                QStringLiteral("sink_properties=device.description=") + feed},
               &sinkModule) ||
        !pactl({QStringLiteral("load-module"), QStringLiteral("module-remap-source"),
                QStringLiteral("source_name=") + name,
                QStringLiteral("master=") + feed + QStringLiteral(".monitor"),
                QStringLiteral("source_properties=\"device.description='") + description +
                    QStringLiteral("'\"")},
               &sourceModule))
        return -1;
    if (paced)
        pace({feed + QStringLiteral(".monitor")});
    bool ok = false;
    const int index = sourceModule.trimmed().toInt(&ok);
    return ok ? index : -1;
}

bool PulseSandbox::playIntoSource(const QString& name, const QString& file)
{
    return play(name == QLatin1String("virtmic") ? QStringLiteral("micsink")
                                                 : name + QStringLiteral("_feed"),
                file);
}

bool PulseSandbox::unloadModuleIndex(int index) const
{
    return pactl({QStringLiteral("unload-module"), QString::number(index)});
}

bool PulseSandbox::setDefaultSource(const QString& name) const
{
    return pactl({QStringLiteral("set-default-source"), name});
}

bool PulseSandbox::suspendSource(const QString& name, bool suspended) const
{
    return pactl({QStringLiteral("suspend-source"), name,
                  suspended ? QStringLiteral("1") : QStringLiteral("0")});
}

bool PulseSandbox::unloadModule(const QString& moduleName) const
{
    QString modules;
    if (!pactl({QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("modules")},
               &modules))
        return false;
    for (const QString& line : modules.split(QLatin1Char('\n'))) {
        const QStringList fields = line.split(QLatin1Char('\t'));
        if (fields.size() >= 2 && fields.at(1) == moduleName)
            return pactl({QStringLiteral("unload-module"), fields.at(0)});
    }
    return false;
}

bool PulseSandbox::makeTone(const QString& path, double frequency, double seconds, double amplitude)
{
    return runTool(QStringLiteral("sox"),
                   {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("48000"),
                    QStringLiteral("-c"), QStringLiteral("1"), QStringLiteral("-b"),
                    QStringLiteral("16"), path, QStringLiteral("synth"), QString::number(seconds),
                    QStringLiteral("sine"), QString::number(frequency), QStringLiteral("vol"),
                    QString::number(amplitude)},
                   nullptr, 30000);
}

} // namespace sorv::test
