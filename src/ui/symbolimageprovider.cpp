#include "symbolimageprovider.h"

#include "symbols.h"

#include <QGuiApplication>
#include <QPalette>

namespace sorv {

SymbolImageProvider::SymbolImageProvider() : QQuickImageProvider(QQuickImageProvider::Image) {}

QImage SymbolImageProvider::requestImage(const QString& id, QSize* size, const QSize& requestedSize)
{
    const QSize want =
        requestedSize.isValid() && !requestedSize.isEmpty() ? requestedSize : QSize(24, 24);
    const QString name = id.section(QLatin1Char('/'), 0, 0);
    const QString colorText = id.section(QLatin1Char('/'), 1, 1);
    QImage image;
    if (colorText.isEmpty()) {
        const QString theme = symbols::themeName(name);
        if (!theme.isEmpty() && QIcon::hasThemeIcon(theme))
            image = QIcon::fromTheme(theme).pixmap(want).toImage();
        else
            image =
                symbols::render(name, want, QGuiApplication::palette().color(QPalette::WindowText));
    } else {
        QColor color(QLatin1Char('#') + colorText);
        if (!color.isValid())
            color = Qt::black;
        image = symbols::render(name, want, color);
    }
    if (size)
        *size = image.size();
    return image;
}

} // namespace sorv
