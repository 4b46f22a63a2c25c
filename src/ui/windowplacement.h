#pragma once

#include <QList>
#include <QRect>
#include <QSize>

namespace sorv {

// Where a window of `wanted` geometry stands so that it is whole on one of
// the screens (their available areas): on the screen it overlaps most (the
// first one when it overlaps none), no larger than that screen, moved in
// from the edges it crosses. `minimum` is never shrunk below.
QRect keptOnScreen(const QRect& wanted, const QList<QRect>& screens, const QSize& minimum = {});

// The available areas of the screens the application knows.
QList<QRect> availableScreenAreas();

} // namespace sorv
