#pragma once

#include <QPointF>
#include <QQuickItem>
#include <QRect>
#include <QtQml/qqml.h>

namespace sorv {

// Moves its window by the pointer (or, with `resizes`, resizes it from the
// bottom-right corner), following the pointer exactly: deltas are taken
// from the pointer's screen positions, which do not shift as the window
// moves under it. On release the window is kept whole on a screen.
class WindowDragArea : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(bool resizes READ resizes WRITE setResizes NOTIFY resizesChanged)

public:
    explicit WindowDragArea(QQuickItem* parent = nullptr);

    bool resizes() const { return m_resizes; }
    void setResizes(bool v);

Q_SIGNALS:
    void resizesChanged();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseUngrabEvent() override;

private:
    void finish();

    bool m_resizes = false;
    bool m_dragging = false;
    QPointF m_pressGlobal;
    QRect m_startGeometry;
};

} // namespace sorv
