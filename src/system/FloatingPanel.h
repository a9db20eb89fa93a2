#pragma once

#include <QColor>
#include <QWidget>

// A frameless floating panel that never takes the focus (the popup, the progress pill), kept out
// of the window manager's hands so no frame catches clicks or focus: a dark
// rounded rectangle with a thin light edge. The corners are cut with a window shape, so it
// looks right without a compositor.
class RoundedPanel : public QWidget
{
public:
    explicit RoundedPanel(QColor fill, int radius = 12, QWidget *parent = nullptr);

    // The screens' geometries, the primary one first, as the placement functions take them.
    static QList<QRect> screenGeometries();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QColor m_fill;
    int m_radius;
};
