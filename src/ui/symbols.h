#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QSize>
#include <QString>

// The small pictures the views use. Each has a name of ours, the
// freedesktop icon-theme name a desktop may supply, and an SVG of our own
// (drawn in one colour) so every screen looks right without a theme.
namespace sorv::symbols {

// "" when the desktop theme has no counterpart.
QString themeName(const QString& symbol);
bool exists(const QString& symbol);

// Our SVG drawn at `size` in `color`; a null image for an unknown name.
QImage render(const QString& symbol, const QSize& size, const QColor& color);
// Our SVG in one colour, at `size` and twice that for dense screens.
QIcon icon(const QString& symbol, const QColor& color, int size);
// The desktop theme's icon when it has one, else ours in `fallbackColor`.
QIcon themedIcon(const QString& symbol, const QColor& fallbackColor, int size);

} // namespace sorv::symbols
