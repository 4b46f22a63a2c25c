#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <vector>

namespace sorv::test {

// A private PulseAudio daemon for one test: its own runtime directory and
// socket, PULSE_SERVER pointing at it for this process and its children.
//
// Default layout: a null sink "speakers" as the default sink (system audio is
// its monitor) and a virtual microphone "virtmic" fed through the null sink
// "micsink". Without speakers there is no sink at all and the microphone is a
// 1 kHz sine source, for "no system audio" cases.
//
// The daemon dies with the test: the destructor stops it, and the kernel
// sends it SIGTERM should the test process crash.
class PulseSandbox {
public:
    struct Options {
        bool speakers = true;
    };

    PulseSandbox() : PulseSandbox(Options{}) {}
    explicit PulseSandbox(Options options);
    ~PulseSandbox();
    PulseSandbox(const PulseSandbox&) = delete;
    PulseSandbox& operator=(const PulseSandbox&) = delete;

    // False (with errorString()) when the daemon did not come up.
    bool isRunning() const { return m_running; }
    const QString& errorString() const { return m_error; }
    QString serverAddress() const;

    // Runs pactl against the sandbox; its standard output in `output`.
    bool pactl(const QStringList& args, QString* output = nullptr) const;

    // Plays a file into the virtual microphone / the default sink. Playback
    // runs in the background until it ends or the sandbox stops.
    bool playIntoMicrophone(const QString& file);
    bool playToSpeakers(const QString& file);
    void stopPlayback();

    bool setMicrophoneMuted(bool muted) const;
    // Unloads the first module whose name matches (e.g. "module-remap-source").
    bool unloadModule(const QString& moduleName) const;

    // Another virtual microphone: source `name` (shown as `description`), fed
    // through its own null sink "<name>_feed". Returns the index of the
    // module that makes the source (for unloadModuleIndex), or -1. Pacing the
    // feed like a sound card (needed to record from it without bursts) costs
    // about two seconds; a microphone that is only listed can skip it.
    int addMicrophone(const QString& name, const QString& description, bool paced = true);
    bool playIntoSource(const QString& name, const QString& file);
    bool unloadModuleIndex(int index) const;
    bool setDefaultSource(const QString& name) const;
    // A suspended source keeps its streams but delivers nothing: a stall.
    bool suspendSource(const QString& name, bool suspended) const;

    // The server crashes (SIGKILL): every client loses its connection, and
    // whatever was playing stops.
    void killDaemon();
    // Starts it again on the same socket with the default layout (the
    // microphones added since are gone). False when it did not come up.
    bool restartDaemon();

    // A mono 48 kHz tone file made with sox.
    static bool makeTone(const QString& path, double frequency, double seconds,
                         double amplitude = 0.3);

    // True when the tools the sandbox needs are installed.
    static bool toolsAvailable();

private:
    bool launch();
    bool play(const QString& device, const QString& file);
    bool pace(const QStringList& monitors);
    void stop();

    Options m_options;
    QTemporaryDir m_dir;
    QProcess m_daemon;
    std::vector<std::unique_ptr<QProcess>> m_players;
    std::vector<std::unique_ptr<QProcess>> m_pacers;
    bool m_running = false;
    QString m_error;
    bool m_hadPulseServer = false;
    QByteArray m_previousPulseServer;
};

} // namespace sorv::test
