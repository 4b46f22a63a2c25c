#include "windowdragarea.h"

#include "ui/windowplacement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QQuickWindow>

#include <algorithm>

namespace sorv {

WindowDragArea::WindowDragArea(QQuickItem* parent) : QQuickItem(parent)
{
    setAcceptedMouseButtons(Qt::LeftButton);
    setCursor(Qt::ArrowCursor);
}

void WindowDragArea::setResizes(bool v)
{
    if (v == m_resizes)
        return;
    m_resizes = v;
    setCursor(v ? Qt::SizeFDiagCursor : Qt::ArrowCursor);
    Q_EMIT resizesChanged();
}

void WindowDragArea::mousePressEvent(QMouseEvent* event)
{
    if (!window()) {
        event->ignore();
        return;
    }
    event->accept();
    // Wayland lets no client place its own windows: the compositor moves
    // and resizes them, following the pointer itself.
    if (QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) {
        if (m_resizes)
            window()->startSystemResize(Qt::RightEdge | Qt::BottomEdge);
        else
            window()->startSystemMove();
        return;
    }
    m_dragging = true;
    m_pressGlobal = event->globalPosition();
    m_startGeometry = window()->geometry();
}

void WindowDragArea::mouseMoveEvent(QMouseEvent* event)
{
    QQuickWindow* w = window();
    if (!m_dragging || !w)
        return;
    const QPoint delta = (event->globalPosition() - m_pressGlobal).toPoint();
    if (m_resizes) {
        const QSize size(
            std::clamp(m_startGeometry.width() + delta.x(), w->minimumWidth(), w->maximumWidth()),
            std::clamp(m_startGeometry.height() + delta.y(), w->minimumHeight(),
                       w->maximumHeight()));
        w->resize(size);
    } else {
        w->setPosition(m_startGeometry.topLeft() + delta);
    }
}

void WindowDragArea::mouseReleaseEvent(QMouseEvent* event)
{
    mouseMoveEvent(event);
    finish();
}

void WindowDragArea::mouseUngrabEvent()
{
    finish();
}

void WindowDragArea::finish()
{
    if (!std::exchange(m_dragging, false))
        return;
    if (QQuickWindow* w = window())
        w->setGeometry(keptOnScreen(w->geometry(), availableScreenAreas(), w->minimumSize()));
}

} // namespace sorv

#include "moc_windowdragarea.cpp"
