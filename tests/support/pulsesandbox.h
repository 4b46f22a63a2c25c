#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <vector>

namespace sorv::test {

// A private sound server for one test: its own runtime directory and socket,
// PULSE_SERVER pointing at it for this process and its children. PulseAudio,
// or with SORV_SOUND_SERVER=pipewire a PipeWire session (its own session
// bus, pipewire, wireplumber and pipewire-pulse) spoken to the same way.
//
// Layout: a null sink "speakers" as the default sink (system audio is its
// monitor) and a virtual microphone "virtmic" fed through the null sink
// "micsink", all loaded through pactl.
//
// The server dies with the test: the destructor stops it, and the kernel
// sends it SIGTERM should the test process crash.
class PulseSandbox {
public:
    PulseSandbox();
    ~PulseSandbox();
    PulseSandbox(const PulseSandbox&) = delete;
    PulseSandbox& operator=(const PulseSandbox&) = delete;

    static bool pipeWire();
    // "PulseAudio" or "PipeWire", for messages.
    static QString flavourName();

    // False (with errorString()) when the server did not come up.
    bool isRunning() const { return m_running; }
    const QString& errorString() const { return m_error; }
    QString serverAddress() const;

    // Runs pactl against the sandbox; its standard output in `output`.
    bool pactl(const QStringList& args, QString* output = nullptr) const;

    // Plays a file into the virtual microphone / a sink. Playback runs in
    // the background until it ends or the sandbox stops.
    bool playIntoMicrophone(const QString& file);
    bool playToSpeakers(const QString& file)
    {
        return playToSink(QStringLiteral("speakers"), file);
    }
    bool playToSink(const QString& sink, const QString& file);
    void stopPlayback();

    // Another virtual microphone: source `name` (shown as `description`), fed
    // through its own null sink "<name>_feed". Returns the index of the
    // module that makes the source (for unloadModuleIndex), or -1. Pacing the
    // feed like a sound card (needed on PulseAudio to record from it without
    // bursts) costs about two seconds; a microphone that is only listed can
    // skip it.
    int addMicrophone(const QString& name, const QString& description, bool paced = true);
    bool playIntoSource(const QString& name, const QString& file);
    bool unloadModuleIndex(int index) const;
    // Another output: null sink `name` shown as `description`, paced like
    // the microphones.
    bool addOutput(const QString& name, const QString& description, bool paced = true);
    bool setDefaultSink(const QString& name) const;
    bool setDefaultSource(const QString& name) const;

    // A microphone that is there but records nothing until released, as a
    // Bluetooth headset does while it wakes up: on PulseAudio a suspended
    // source, on PipeWire one whose process is stopped. Fed like the others.
    bool addSlowMicrophone(const QString& name, const QString& description);
    void releaseSlowMicrophone();
    // Gone again; due before the next case on PipeWire, where the loopback,
    // once stopped, has left clients that pipewire-pulse took on afterwards
    // without news of a changed default output.
    void removeSlowMicrophone();

    // The server crashes (SIGKILL; on PipeWire pipewire-pulse, which takes the
    // devices loaded through it along): every client loses its connection,
    // and whatever was playing stops.
    void killDaemon();
    // Starts it again on the same socket, with the layout, or bare (only
    // what the server makes on its own) for loadLayout() to follow later.
    bool restartDaemon(bool withLayout = true);
    bool loadLayout();

    // A mono 48 kHz tone file made with sox.
    static bool makeTone(const QString& path, double frequency, double seconds,
                         double amplitude = 0.3);

    // True when the tools the sandbox needs are installed.
    static bool toolsAvailable();

private:
    bool launch();
    bool startProcess(QProcess& process, const QString& program, const QStringList& args);
    bool waitUntilAnswering();
    bool listsSource(const QString& name) const;
    bool pace(const QStringList& monitors);
    void stop();

    QTemporaryDir m_dir;
    QProcessEnvironment m_env;
    // PulseAudio: the daemon. PipeWire: the bus, pipewire, wireplumber, and
    // pipewire-pulse last.
    std::vector<std::unique_ptr<QProcess>> m_servers;
    std::unique_ptr<QProcess> m_slowMicrophone; // PipeWire's stopped pw-loopback
    QString m_slowSource;                       // its name (on PulseAudio, suspended)
    std::vector<std::unique_ptr<QProcess>> m_players;
    std::vector<std::unique_ptr<QProcess>> m_pacers;
    bool m_running = false;
    QString m_error;
    bool m_hadPulseServer = false;
    QByteArray m_previousPulseServer;
};

} // namespace sorv::test
