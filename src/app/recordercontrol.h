#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>

namespace sorv {

class AuthManager;
class RecorderScreen;

// The application's control interface on the session bus
// (com.sorvelandrix.Recorder at /com/sorvelandrix/Recorder), for desktop
// keyboard shortcuts, scripts and `sorvelandrix-recorder --toggle`. Every
// call goes through the recorder screen, so the rules of the window's main
// button hold: the consent sheet comes first when it is due (and the window
// opens to show it), and a recording in any state but idle, uploaded or
// failed is not started again.
//
// Its public slots are the D-Bus methods and its properties the D-Bus
// properties; PropertiesChanged is sent for State on every change and for
// Elapsed once a second.
class RecorderControl : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.sorvelandrix.Recorder")
    Q_PROPERTY(QString State READ state)
    Q_PROPERTY(double Elapsed READ elapsed)

public:
    static inline const QString kService = QStringLiteral("com.sorvelandrix.Recorder");
    static inline const QString kPath = QStringLiteral("/com/sorvelandrix/Recorder");
    static inline const QString kInterface = QStringLiteral("com.sorvelandrix.Recorder");

    RecorderControl(RecorderScreen& screen, AuthManager& auth, std::function<void()> showWindow,
                    QObject* parent = nullptr);
    ~RecorderControl() override;

    // Exports the object and takes the name. False without a session bus,
    // or (with a note on standard error) when the name is taken; the
    // application runs on either way.
    bool registerOn(const QDBusConnection& bus);

    QString state() const;
    double elapsed() const;

    // A command from a later start of the application: "start", "stop" or
    // "toggle".
    void perform(const QString& command);

public Q_SLOTS:
    // "audio" or "video".
    void StartRecording(const QString& mode);
    void StopRecording();
    void ToggleRecording();

private:
    void start(bool video);
    void stop();
    void sendChanged(const QVariantMap& changed);
    void fail(const QString& name, const QString& message);

    RecorderScreen& m_screen;
    AuthManager& m_auth;
    std::function<void()> m_showWindow;
    QDBusConnection m_bus;
    bool m_registered = false;
    qint64 m_lastElapsedSecond = -1;
};

} // namespace sorv
