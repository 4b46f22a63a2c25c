#pragma once

#include <QQuickImageProvider>

namespace sorv {

// "image://symbol/NAME" is the desktop theme's icon for NAME when it has
// one, else ours in the palette's text colour; "image://symbol/NAME/RRGGBB"
// is always ours, in that colour (for symbols whose colour means something,
// like the red record dot).
class SymbolImageProvider : public QQuickImageProvider {
public:
    SymbolImageProvider();
    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

} // namespace sorv
