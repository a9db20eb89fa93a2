#include "inline/InlineTranslationHUD.h"
#include "system/FloatingPanel.h"
#include "system/PanelPlacement.h"

#include <QCursor>
#include <QGuiApplication>
#include <QLabel>
#include <QPainter>
#include <QScreen>
#include <QTimer>

namespace {

// A small light spinner for the dark pill: an arc that turns.
class Spinner : public QWidget
{
public:
    explicit Spinner(QWidget *parent)
        : QWidget(parent)
    {
        m_timer.setInterval(80);
        QObject::connect(&m_timer, &QTimer::timeout, this, [this] {
            m_angle = (m_angle + 30) % 360;
            update();
        });
        m_timer.start();
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QPen pen(QColor::fromRgbF(1, 1, 1, 0.9f), 1.6);
        pen.setCapStyle(Qt::RoundCap);
        painter.setPen(pen);
        painter.drawArc(QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5), -m_angle * 16, 270 * 16);
    }

private:
    QTimer m_timer;
    int m_angle = 0;
};

} // namespace

InlineTranslationHUD &InlineTranslationHUD::shared()
{
    static InlineTranslationHUD instance;
    return instance;
}

void InlineTranslationHUD::show(std::optional<QRect> caret)
{
    if (m_panel)
        return;
    auto *panel = new RoundedPanel(QColor::fromRgbF(0.08f, 0.08f, 0.1f, 0.88f));
    panel->setObjectName(QStringLiteral("InlineTranslationHUD"));
    panel->setWindowFlag(Qt::WindowTransparentForInput);
    panel->setFixedSize(width, height);

    auto *spinner = new Spinner(panel);
    spinner->setGeometry(10, 6, 12, 12);
    auto *label = new QLabel(QStringLiteral("Translating\u2026"), panel);
    QFont font = QGuiApplication::font();
    font.setPixelSize(11);
    font.setWeight(QFont::Medium);
    label->setFont(font);
    label->setStyleSheet(QStringLiteral("color: rgba(255,255,255,230); background: transparent;"));
    label->setGeometry(27, 5, 88, 14);

    panel->move(PanelPlacement::hudPosition(panel->size(), caret, QCursor::pos(), RoundedPanel::screenGeometries()));
    panel->show();
    m_panel = panel;
}

void InlineTranslationHUD::hide()
{
    if (m_panel) {
        m_panel->hide();
        m_panel->deleteLater();
    }
    m_panel = nullptr;
}
