#include "windowplacement.h"

#include <QGuiApplication>
#include <QScreen>

#include <algorithm>

namespace sorv {

QRect keptOnScreen(const QRect& wanted, const QList<QRect>& screens, const QSize& minimum)
{
    if (screens.isEmpty())
        return wanted;
    const QRect* best = &screens.first();
    qint64 bestArea = 0;
    for (const QRect& screen : screens) {
        const QRect shared = screen.intersected(wanted);
        const qint64 area = qint64(shared.width()) * shared.height();
        if (area > bestArea) {
            bestArea = area;
            best = &screen;
        }
    }
    const QRect& screen = *best;
    const QSize size(std::max(minimum.width(), std::min(wanted.width(), screen.width())),
                     std::max(minimum.height(), std::min(wanted.height(), screen.height())));
    const int x = std::clamp(wanted.x(), screen.left(),
                             std::max(screen.left(), screen.right() + 1 - size.width()));
    const int y = std::clamp(wanted.y(), screen.top(),
                             std::max(screen.top(), screen.bottom() + 1 - size.height()));
    return {QPoint(x, y), size};
}

QList<QRect> availableScreenAreas()
{
    QList<QRect> areas;
    if (const QScreen* primary = QGuiApplication::primaryScreen())
        areas << primary->availableGeometry();
    for (const QScreen* screen : QGuiApplication::screens()) {
        if (screen != QGuiApplication::primaryScreen())
            areas << screen->availableGeometry();
    }
    return areas;
}

} // namespace sorv
