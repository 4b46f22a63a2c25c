#include "pulsesandbox.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <functional>
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

bool waitFor(const std::function<bool()>& done, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(20);
    }
    return true;
}

void endProcess(QProcess& p, bool kill = false)
{
    if (p.state() == QProcess::NotRunning)
        return;
    if (kill)
        p.kill();
    else
        p.terminate();
    if (!p.waitForFinished(3000)) {
        p.kill();
        p.waitForFinished(3000);
    }
}

QString quotedDescription(const char* key, const QString& description)
{
    return QStringLiteral("%1=\"device.description='%2'\"").arg(QLatin1String(key), description);
}

} // namespace

bool PulseSandbox::pipeWire()
{
    return qgetenv("SORV_SOUND_SERVER") == "pipewire";
}

QString PulseSandbox::flavourName()
{
    return pipeWire() ? QStringLiteral("PipeWire") : QStringLiteral("PulseAudio");
}

bool PulseSandbox::toolsAvailable()
{
    const QStringList tools =
        pipeWire() ? QStringList{QStringLiteral("dbus-daemon"), QStringLiteral("pipewire"),
                                 QStringLiteral("wireplumber"), QStringLiteral("pipewire-pulse"),
                                 QStringLiteral("pw-loopback")}
                   : QStringList{QStringLiteral("pulseaudio"), QStringLiteral("parec")};
    for (const QString& tool : tools + QStringList{QStringLiteral("pactl"),
                                                   QStringLiteral("paplay"), QStringLiteral("sox")})
        if (QStandardPaths::findExecutable(tool).isEmpty())
            return false;
    return true;
}

PulseSandbox::PulseSandbox()
{
    m_hadPulseServer = qEnvironmentVariableIsSet("PULSE_SERVER");
    m_previousPulseServer = qgetenv("PULSE_SERVER");
    if (!m_dir.isValid() || !toolsAvailable()) {
        m_error = flavourName() + QStringLiteral(" sandbox tools missing");
        return;
    }
    // For a post-mortem: keep the server's directory and a verbose log.
    if (qEnvironmentVariableIsSet("SORV_KEEP_SANDBOX")) {
        m_dir.setAutoRemove(false);
        qInfo("%s sandbox in %s", qPrintable(flavourName()), qPrintable(m_dir.path()));
    }
    const QString dir = m_dir.path();
    m_env = QProcessEnvironment::systemEnvironment();
    for (const char* var : {"XDG_RUNTIME_DIR", "HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME"})
        m_env.insert(QString::fromLatin1(var), dir);
    m_env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                 QStringLiteral("unix:path=") + dir + QStringLiteral("/bus"));
    m_env.remove(QStringLiteral("PULSE_SERVER"));
    m_running = launch() && loadLayout();
}

bool PulseSandbox::startProcess(QProcess& process, const QString& program, const QStringList& args)
{
    process.setProcessEnvironment(m_env);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.setStandardOutputFile(m_dir.filePath(program + QStringLiteral(".log")),
                                  QIODevice::Append);
    // If the test process dies without running destructors, take it along.
    process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    process.start(program, args);
    if (process.waitForStarted(5000))
        return true;
    m_error = program + QStringLiteral(" did not start: ") + process.errorString();
    return false;
}

bool PulseSandbox::launch()
{
    const QString dir = m_dir.path();
    auto start = [this](const QString& program, const QStringList& args) {
        m_servers.push_back(std::make_unique<QProcess>());
        return startProcess(*m_servers.back(), program, args);
    };
    if (pipeWire()) {
        // wireplumber needs the session bus; the pulse server comes last.
        if (m_servers.empty()) {
            if (!start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--session"), QStringLiteral("--nofork"),
                        QStringLiteral("--address=unix:path=") + dir + QStringLiteral("/bus")}) ||
                !waitFor([&] { return QFileInfo::exists(dir + QStringLiteral("/bus")); }, 5000) ||
                !start(QStringLiteral("pipewire"), {}) ||
                !waitFor([&] { return QFileInfo::exists(dir + QStringLiteral("/pipewire-0")); },
                         5000) ||
                !start(QStringLiteral("wireplumber"), {}))
                return false;
        }
        if (!start(QStringLiteral("pipewire-pulse"), {}))
            return false;
    } else {
        QStringList args{QStringLiteral("-n"),
                         QStringLiteral("--daemonize=no"),
                         QStringLiteral("--exit-idle-time=-1"),
                         QStringLiteral("--disallow-exit"),
                         QStringLiteral("--use-pid-file=no"),
                         QStringLiteral("--realtime=no"),
                         QStringLiteral("--high-priority=no"),
                         QStringLiteral("--log-target=file:") + dir + QStringLiteral("/daemon.log"),
                         QStringLiteral("-L"),
                         QStringLiteral("module-native-protocol-unix auth-anonymous=1 socket=") +
                             dir + QStringLiteral("/native"),
                         QStringLiteral("-L"),
                         QStringLiteral("module-always-sink")};
        if (qEnvironmentVariableIsSet("SORV_KEEP_SANDBOX"))
            args << QStringLiteral("-vvv");
        if (!start(QStringLiteral("pulseaudio"), args))
            return false;
    }
    qputenv("PULSE_SERVER", serverAddress().toUtf8());
    if (!waitUntilAnswering()) {
        m_error = flavourName() + QStringLiteral(" in the sandbox did not answer");
        stop();
        return false;
    }
    return true;
}

bool PulseSandbox::waitUntilAnswering()
{
    return waitFor(
        [this] {
            return m_servers.back()->state() == QProcess::Running &&
                   pactl({QStringLiteral("info")});
        },
        15000);
}

bool PulseSandbox::loadLayout()
{
    const bool loaded =
        addOutput(QStringLiteral("speakers"), QStringLiteral("Speakers"), false) &&
        addOutput(QStringLiteral("micsink"), QStringLiteral("MicFeed"), false) &&
        pactl({QStringLiteral("load-module"), QStringLiteral("module-remap-source"),
               QStringLiteral("source_name=virtmic"), QStringLiteral("master=micsink.monitor"),
               quotedDescription("source_properties", QStringLiteral("VirtualMic"))}) &&
        setDefaultSink(QStringLiteral("speakers")) && setDefaultSource(QStringLiteral("virtmic"));
    if (!loaded || !pace({QStringLiteral("micsink.monitor"), QStringLiteral("speakers.monitor")})) {
        m_error = QStringLiteral("the sandbox's devices could not be loaded");
        return false;
    }
    return true;
}

bool PulseSandbox::pace(const QStringList& monitors)
{
    // A PulseAudio null sink sleeps for as long as its clients allow, up to
    // two seconds right after it is created, so its monitor (a virtual
    // microphone) would deliver in bursts. A low-latency reader on each
    // monitor paces them like a sound card's clock; once each has received
    // audio, the sinks have left their first long sleep. PipeWire's graph
    // has a clock of its own.
    if (pipeWire())
        return true;
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
    return waitFor(
        [&] {
            return std::all_of(paced.begin(), paced.end(),
                               [](const QString& f) { return QFileInfo(f).size() > 0; });
        },
        5000);
}

PulseSandbox::~PulseSandbox()
{
    stop();
}

void PulseSandbox::killDaemon()
{
    // Only the pulse server: on PipeWire the session stays.
    if (m_running && !m_servers.empty()) {
        endProcess(*m_servers.back(), true);
        m_servers.pop_back();
    }
    // Players, pacers and the slow microphone lose their server with it.
    stopPlayback();
    for (auto& pacer : m_pacers)
        endProcess(*pacer, true);
    m_pacers.clear();
    if (m_slowMicrophone)
        endProcess(*m_slowMicrophone, true);
    m_slowMicrophone.reset();
    m_slowSource.clear();
    m_running = false;
}

bool PulseSandbox::restartDaemon(bool withLayout)
{
    killDaemon();
    m_running = launch() && (!withLayout || loadLayout());
    return m_running;
}

void PulseSandbox::stop()
{
    stopPlayback();
    for (auto& pacer : m_pacers)
        endProcess(*pacer);
    m_pacers.clear();
    if (m_slowMicrophone)
        endProcess(*m_slowMicrophone, true);
    m_slowMicrophone.reset();
    // The pulse server first, the bus last.
    while (!m_servers.empty()) {
        endProcess(*m_servers.back());
        m_servers.pop_back();
    }
    m_running = false;
    if (m_hadPulseServer)
        qputenv("PULSE_SERVER", m_previousPulseServer);
    else
        qunsetenv("PULSE_SERVER");
}

QString PulseSandbox::serverAddress() const
{
    return QStringLiteral("unix:") + m_dir.path() +
           (pipeWire() ? QStringLiteral("/pulse/native") : QStringLiteral("/native"));
}

bool PulseSandbox::pactl(const QStringList& args, QString* output) const
{
    return runTool(QStringLiteral("pactl"),
                   QStringList{QStringLiteral("--server=") + serverAddress()} + args, output,
                   10000);
}

bool PulseSandbox::playToSink(const QString& sink, const QString& file)
{
    auto player = std::make_unique<QProcess>();
    player->setProcessChannelMode(QProcess::ForwardedChannels);
    player->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    // A null sink renders at the pace its clients ask for: paplay's default
    // two-second latency would deliver the monitors' audio in bursts.
    player->start(QStringLiteral("paplay"),
                  {QStringLiteral("--server=") + serverAddress(),
                   QStringLiteral("--device=") + sink, QStringLiteral("--latency-msec=20"), file});
    if (!player->waitForStarted(5000))
        return false;
    m_players.push_back(std::move(player));
    return true;
}

bool PulseSandbox::playIntoMicrophone(const QString& file)
{
    return playToSink(QStringLiteral("micsink"), file);
}

void PulseSandbox::stopPlayback()
{
    for (auto& player : m_players)
        endProcess(*player);
    m_players.clear();
}

int PulseSandbox::addMicrophone(const QString& name, const QString& description, bool paced)
{
    const QString feed = name + QStringLiteral("_feed");
    QString sourceModule;
    if (!addOutput(feed, feed, paced) ||
        !pactl({QStringLiteral("load-module"), QStringLiteral("module-remap-source"),
                QStringLiteral("source_name=") + name,
                QStringLiteral("master=") + feed + QStringLiteral(".monitor"),
                quotedDescription("source_properties", description)},
               &sourceModule))
        return -1;
    bool ok = false;
    const int index = sourceModule.trimmed().toInt(&ok);
    return ok ? index : -1;
}

bool PulseSandbox::addOutput(const QString& name, const QString& description, bool paced)
{
    return pactl({QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                  QStringLiteral("sink_name=") + name, QStringLiteral("rate=48000"),
                  quotedDescription("sink_properties", description)}) &&
           (!paced || pace({name + QStringLiteral(".monitor")}));
}

bool PulseSandbox::setDefaultSink(const QString& name) const
{
    // PipeWire makes a loaded module's devices a moment after it answers.
    return waitFor([&] { return pactl({QStringLiteral("set-default-sink"), name}); }, 5000);
}

bool PulseSandbox::setDefaultSource(const QString& name) const
{
    return waitFor([&] { return pactl({QStringLiteral("set-default-source"), name}); }, 5000);
}

bool PulseSandbox::playIntoSource(const QString& name, const QString& file)
{
    return playToSink(name == QLatin1String("virtmic") ? QStringLiteral("micsink")
                                                       : name + QStringLiteral("_feed"),
                      file);
}

bool PulseSandbox::unloadModuleIndex(int index) const
{
    return pactl({QStringLiteral("unload-module"), QString::number(index)});
}

bool PulseSandbox::addSlowMicrophone(const QString& name, const QString& description)
{
    m_slowSource = name;
    if (!pipeWire()) {
        // A suspended source takes streams and delivers nothing until resumed.
        return addMicrophone(name, description) >= 0 &&
               pactl({QStringLiteral("suspend-source"), name, QStringLiteral("1")});
    }
    // Its own process: a sink "<name>_feed" looped into the source `name`.
    // Stopped, it cannot take part in the graph until it is continued.
    m_slowMicrophone = std::make_unique<QProcess>();
    const QString mono = QStringLiteral(" audio.position=[MONO]");
    if (!startProcess(
            *m_slowMicrophone, QStringLiteral("pw-loopback"),
            {QStringLiteral("--capture-props=media.class=Audio/Sink node.name=%1_feed").arg(name) +
                 mono,
             QStringLiteral("--playback-props=media.class=Audio/Source node.name=%1 "
                            "node.description=\"%2\"")
                     .arg(name, description) +
                 mono}))
        return false;
    const bool listed = waitFor([&] { return listsSource(name); }, 5000);
    ::kill(static_cast<pid_t>(m_slowMicrophone->processId()), SIGSTOP);
    return listed;
}

void PulseSandbox::releaseSlowMicrophone()
{
    if (m_slowMicrophone)
        ::kill(static_cast<pid_t>(m_slowMicrophone->processId()), SIGCONT);
    else if (!m_slowSource.isEmpty() && !pipeWire())
        pactl({QStringLiteral("suspend-source"), m_slowSource, QStringLiteral("0")});
}

void PulseSandbox::removeSlowMicrophone()
{
    if (!m_slowMicrophone)
        return;
    endProcess(*m_slowMicrophone, true);
    m_slowMicrophone.reset();
    (void)waitFor([this] { return !listsSource(m_slowSource); }, 5000);
    m_slowSource.clear();
}

bool PulseSandbox::listsSource(const QString& name) const
{
    QString sources;
    return pactl({QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sources")},
                 &sources) &&
           sources.contains(QLatin1Char('\t') + name + QLatin1Char('\t'));
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
