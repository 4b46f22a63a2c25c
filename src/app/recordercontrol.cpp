#include "recordercontrol.h"

#include "recording/audiorecorder.h"
#include "service/authmanager.h"
#include "ui/recorderscreen.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include <cmath>
#include <cstdio>

namespace sorv {

namespace {
const QString kPropertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString kStateProperty = QStringLiteral("State");
const QString kElapsedProperty = QStringLiteral("Elapsed");
} // namespace

RecorderControl::RecorderControl(RecorderScreen& screen, AuthManager& auth,
                                 std::function<void()> showWindow, QObject* parent)
    : QObject(parent), m_screen(screen), m_auth(auth), m_showWindow(std::move(showWindow)),
      m_bus(QStringLiteral("not connected"))
{
    AudioRecorder* recorder = m_screen.recorder();
    connect(recorder, &AudioRecorder::stateChanged, this, [this] {
        m_lastElapsedSecond = std::llround(std::floor(elapsed()));
        sendChanged({{kStateProperty, state()}, {kElapsedProperty, elapsed()}});
    });
    connect(recorder, &AudioRecorder::elapsedChanged, this, [this] {
        // Listeners show a clock: whole seconds are enough, and the bus is
        // not flooded at the recorder's meter rate.
        const auto second = std::llround(std::floor(elapsed()));
        if (second == m_lastElapsedSecond)
            return;
        m_lastElapsedSecond = second;
        sendChanged({{kElapsedProperty, elapsed()}});
    });
}

RecorderControl::~RecorderControl()
{
    if (!m_registered)
        return;
    m_bus.unregisterObject(kPath);
    m_bus.unregisterService(kService);
}

bool RecorderControl::registerOn(const QDBusConnection& bus)
{
    m_bus = bus;
    // Without a session bus (a bare X session, a test) there is nobody to
    // offer it to; --toggle and friends still reach the application.
    if (!m_bus.isConnected())
        return false;
    if (!m_bus.registerObject(
            kPath, this, QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllProperties)) {
        return false;
    }
    if (!m_bus.registerService(kService)) {
        std::fprintf(stderr, "sorvelandrix-recorder: cannot own %s on the session bus: %s\n",
                     qPrintable(kService), qPrintable(m_bus.lastError().message()));
        m_bus.unregisterObject(kPath);
        return false;
    }
    m_registered = true;
    return true;
}

QString RecorderControl::state() const
{
    return m_screen.recorder()->state().caseName();
}

double RecorderControl::elapsed() const
{
    return m_screen.recorder()->elapsed();
}

void RecorderControl::perform(const QString& command)
{
    if (command == QLatin1String("start"))
        start(m_screen.recordVideo());
    else if (command == QLatin1String("stop"))
        stop();
    else if (command == QLatin1String("toggle"))
        ToggleRecording();
}

void RecorderControl::StartRecording(const QString& mode)
{
    if (mode != QLatin1String("audio") && mode != QLatin1String("video")) {
        fail(QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"),
             QStringLiteral("The mode is \"audio\" or \"video\", not \"%1\".").arg(mode));
        return;
    }
    start(mode == QLatin1String("video"));
}

void RecorderControl::StopRecording()
{
    stop();
}

void RecorderControl::ToggleRecording()
{
    if (m_screen.recorder()->isRecording())
        stop();
    else
        start(m_screen.recordVideo());
}

void RecorderControl::start(bool video)
{
    if (m_screen.recorder()->isRecording())
        return;
    if (!m_auth.isLoggedIn()) {
        // The window's recorder screen is only there once signed in.
        if (m_showWindow)
            m_showWindow();
        fail(QStringLiteral("com.sorvelandrix.Recorder.Error.SignedOut"),
             QStringLiteral("Sign in to Sorvelandrix first."));
        return;
    }
    if (!m_screen.mainButtonEnabled()) {
        // A stopped recording waits for Save or Discard, which only the
        // window offers.
        if (m_screen.recorder()->state().kind() == RecordingState::Kind::PendingSave &&
            m_showWindow) {
            m_showWindow();
        }
        fail(QStringLiteral("com.sorvelandrix.Recorder.Error.Busy"),
             QStringLiteral("The last recording is not finished yet (%1).").arg(state()));
        return;
    }
    m_screen.setRecordVideo(video);
    m_screen.pressMainButton();
    // The consent sheet is in the window: it has to be seen to be answered.
    if (m_screen.showingConsentSheet() && m_showWindow)
        m_showWindow();
}

void RecorderControl::stop()
{
    if (m_screen.recorder()->isRecording())
        m_screen.pressMainButton();
}

void RecorderControl::sendChanged(const QVariantMap& changed)
{
    if (!m_registered)
        return;
    QDBusMessage signal = QDBusMessage::createSignal(kPath, kPropertiesInterface,
                                                     QStringLiteral("PropertiesChanged"));
    signal << kInterface << changed << QStringList();
    m_bus.send(signal);
}

void RecorderControl::fail(const QString& name, const QString& message)
{
    if (calledFromDBus())
        sendErrorReply(name, message);
}

} // namespace sorv

#include "moc_recordercontrol.cpp"
