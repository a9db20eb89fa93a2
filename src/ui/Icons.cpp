#include "ui/Icons.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>

namespace {

// Renders a mask SVG at the usual tray sizes, tinted with the given colour.
QIcon tintedMask(const QString &resource, const QColor &colour)
{
    QSvgRenderer renderer(resource);
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        renderer.render(&painter);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(pixmap.rect(), colour);
        painter.end();
        icon.addPixmap(pixmap);
    }
    icon.setIsMask(true);
    return icon;
}

} // namespace

QIcon Icons::trayIdle()
{
    return tintedMask(QStringLiteral(":/icons/tray-idle.svg"), QGuiApplication::palette().color(QPalette::WindowText));
}
