#include "symbols.h"

#include <QFile>
#include <QHash>
#include <QPainter>
#include <QSvgRenderer>

namespace sorv::symbols {

namespace {

const QHash<QString, QString>& themeNames()
{
    static const QHash<QString, QString> names{
        {QStringLiteral("record"), QStringLiteral("media-record")},
        {QStringLiteral("record-fill"), QStringLiteral("media-record")},
        {QStringLiteral("waveform"), QStringLiteral("audio-x-generic")},
        {QStringLiteral("link"), QStringLiteral("insert-link")},
        {QStringLiteral("envelope"), QStringLiteral("mail-message")},
        {QStringLiteral("lock"), QStringLiteral("system-lock-screen")},
        {QStringLiteral("eye"), QStringLiteral("view-visible")},
        {QStringLiteral("eye-slash"), QStringLiteral("view-hidden")},
        {QStringLiteral("warning"), QStringLiteral("dialog-warning")},
        {QStringLiteral("sign-out"), QStringLiteral("system-log-out")},
        {QStringLiteral("external-link"), QStringLiteral("external-link")},
        {QStringLiteral("person-circle"), QStringLiteral("user-identity")},
        {QStringLiteral("xmark-circle"), QStringLiteral("window-close")},
    };
    return names;
}

QString resourcePath(const QString& symbol)
{
    return QStringLiteral(":/sorvelandrix/symbols/%1.svg").arg(symbol);
}

} // namespace

QString themeName(const QString& symbol)
{
    return themeNames().value(symbol);
}

bool exists(const QString& symbol)
{
    return QFile::exists(resourcePath(symbol));
}

QImage render(const QString& symbol, const QSize& size, const QColor& color)
{
    QFile file(resourcePath(symbol));
    if (!file.open(QIODevice::ReadOnly) || size.isEmpty())
        return {};
    // The SVGs are drawn in "currentColor", which Qt's renderer does not
    // know: it is replaced by the colour asked for.
    QByteArray svg = file.readAll();
    svg.replace("currentColor", color.name(QColor::HexRgb).toLatin1());
    QSvgRenderer renderer(svg);
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    if (color.alphaF() < 1.0)
        painter.setOpacity(color.alphaF());
    renderer.render(&painter);
    return image;
}

QIcon icon(const QString& symbol, const QColor& color, int size)
{
    QIcon result;
    for (const int scale : {1, 2}) {
        const QImage image = render(symbol, QSize(size, size) * scale, color);
        if (!image.isNull())
            result.addPixmap(QPixmap::fromImage(image));
    }
    return result;
}

QIcon themedIcon(const QString& symbol, const QColor& fallbackColor, int size)
{
    const QString name = themeName(symbol);
    if (!name.isEmpty() && QIcon::hasThemeIcon(name))
        return QIcon::fromTheme(name);
    return icon(symbol, fallbackColor, size);
}

} // namespace sorv::symbols
