#include "system/FloatingPanel.h"

#include <QGuiApplication>
#include <QPainter>
#include <QScreen>
#include <QPainterPath>

RoundedPanel::RoundedPanel(QColor fill, int radius, QWidget *parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus
                          | Qt::BypassWindowManagerHint)
    , m_fill(fill)
    , m_radius(radius)
{
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_DeleteOnClose);
    setFocusPolicy(Qt::NoFocus);
}

void RoundedPanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath outline;
    outline.addRoundedRect(QRectF(rect()), m_radius, m_radius);
    painter.fillPath(outline, m_fill);
    QPainterPath edge;
    edge.addRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), m_radius - 0.5, m_radius - 0.5);
    painter.setPen(QPen(QColor::fromRgbF(1, 1, 1, 0.12f), 0.5));
    painter.drawPath(edge);
}

void RoundedPanel::resizeEvent(QResizeEvent *)
{
    QPainterPath outline;
    outline.addRoundedRect(QRectF(rect()), m_radius, m_radius);
    setMask(QRegion(outline.toFillPolygon().toPolygon()));
}

QList<QRect> RoundedPanel::screenGeometries()
{
    QList<QRect> screens;
    if (QScreen *primary = QGuiApplication::primaryScreen())
        screens << primary->geometry();
    for (QScreen *screen : QGuiApplication::screens()) {
        if (screen != QGuiApplication::primaryScreen())
            screens << screen->geometry();
    }
    return screens;
}
