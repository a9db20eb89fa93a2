#include "ui/Icons.h"

#include <QFile>
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

QIcon Icons::trayIcon(const QString &name)
{
    const QString resource = QStringLiteral(":/icons/") + name + QStringLiteral(".svg");
    if (!QFile::exists(resource))
        return {};
    return tintedMask(resource, QGuiApplication::palette().color(QPalette::WindowText));
}
