#include "floatingpanelcontroller.h"

#include "core/log.h"
#include "transcript/livetranscriptmanager.h"
#include "ui/transcriptlistmodel.h"
#include "ui/windowplacement.h"

#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QScreen>

#include <algorithm>
#include <cstdio>

namespace sorv {

FloatingPanelController::FloatingPanelController(QQmlEngine& engine, QObject* parent)
    : QObject(parent), m_engine(engine)
{}

FloatingPanelController::~FloatingPanelController()
{
    if (m_window) {
        m_window->disconnect(this);
        delete m_window;
    }
}

QString FloatingPanelController::meetingId() const
{
    return m_manager && m_window ? m_manager->meetingId() : QString();
}

QRect FloatingPanelController::initialGeometry(const QRect& available)
{
    // The right edge stands 20 px in from the screen's edge (360 − 340).
    const int x = available.x() + available.width() - 360;
    const int y = available.y() + available.height() - 20 - kSize.height();
    return {QPoint(std::max(available.x(), x), std::max(available.y(), y)), kSize};
}

bool FloatingPanelController::show(const QString& meetingId, const QString& serverURL,
                                   const QString& token)
{
    if (m_window) {
        // A panel lost off the screens comes back to the middle of one.
        const QList<QRect> screens = availableScreenAreas();
        const QRect now = m_window->geometry();
        const bool whole = std::any_of(screens.cbegin(), screens.cend(),
                                       [&](const QRect& s) { return s.contains(now); });
        if (!whole && !screens.isEmpty()) {
            QRect centred(QPoint(), keptOnScreen(now, screens, kMinimumSize).size());
            centred.moveCenter(screens.first().center());
            m_window->setGeometry(centred);
        }
        m_window->show();
        m_window->raise();
        m_window->requestActivate();
        return true;
    }

    auto manager = std::make_unique<LiveTranscriptManager>();
    auto transcript = std::make_unique<TranscriptListModel>();
    transcript->follow(manager.get());

    QQmlComponent component(
        &m_engine, QUrl(QStringLiteral("qrc:/Sorvelandrix/Ui/FloatingTranscriptPanel.qml")));
    QObject* object = component.createWithInitialProperties(
        {{QStringLiteral("manager"), QVariant::fromValue<QObject*>(manager.get())},
         {QStringLiteral("transcript"), QVariant::fromValue<QObject*>(transcript.get())}});
    auto* window = qobject_cast<QQuickWindow*>(object);
    if (!window) {
        std::fprintf(stderr, "sorvelandrix-recorder: the transcript panel could not be built: %s\n",
                     qPrintable(component.errorString()));
        delete object;
        return false;
    }
    m_manager = std::move(manager);
    m_transcript = std::move(transcript);
    m_window = window;

    window->setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    window->setMinimumSize(kMinimumSize);
    window->setMaximumSize(kMaximumSize);
    const QScreen* screen = QGuiApplication::primaryScreen();
    window->setGeometry(screen ? initialGeometry(screen->availableGeometry())
                               : QRect(QPoint(0, 0), kSize));
    connect(window, SIGNAL(closeRequested()), this, SLOT(close()));
    connect(window, &QWindow::visibleChanged, this, [this](bool visible) {
        if (!visible)
            windowClosed();
    });
    connect(window, &QObject::destroyed, this, [this] { windowClosed(); });

    consoleLog(QStringLiteral("🪟 Live transcript panel opened for meeting %1").arg(meetingId));
    // Connecting first, so that the panel's first picture is "Connecting...".
    m_manager->connect(meetingId, serverURL, token);
    window->show();
    window->raise();
    window->requestActivate();
    Q_EMIT isOpenChanged();
    return true;
}

void FloatingPanelController::close()
{
    if (m_manager)
        release();
}

void FloatingPanelController::windowClosed()
{
    // Closed by the window manager (or the window went away): the same
    // ending as the close button, once.
    if (!m_manager)
        return;
    release();
}

void FloatingPanelController::release()
{
    QPointer<QQuickWindow> window = m_window;
    m_window = nullptr;
    m_manager->disconnect();
    // The view goes before the objects it binds to: deferred deletions run
    // in the order they were asked for.
    if (window) {
        window->disconnect(this);
        window->hide();
        window->deleteLater();
    }
    m_transcript.release()->deleteLater();
    m_manager.release()->deleteLater();
    consoleLog(QStringLiteral("🪟 Live transcript panel closed"));
    Q_EMIT isOpenChanged();
    Q_EMIT floatingTranscriptDidClose();
}

} // namespace sorv

#include "moc_floatingpanelcontroller.cpp"
