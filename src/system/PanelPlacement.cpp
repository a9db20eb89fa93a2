#include "system/PanelPlacement.h"

#include <algorithm>

namespace {

constexpr int margin = 8;

// The first screen that holds the point, else the primary one.
QRect screenAt(QPoint point, const QList<QRect> &screens)
{
    for (const QRect &screen : screens) {
        if (screen.contains(point))
            return screen;
    }
    return screens.isEmpty() ? QRect(0, 0, 1280, 800) : screens.first();
}

int screenRight(const QRect &screen) { return screen.x() + screen.width(); }
int screenBottom(const QRect &screen) { return screen.y() + screen.height(); }

bool isUsable(const std::optional<QRect> &rect)
{
    return rect && !(rect->x() == 0 && rect->y() == 0 && rect->width() <= 0 && rect->height() <= 0);
}

// Keeps the top 8 px below the screen's top and then, winning over it, the bottom 8 px above
// the screen's bottom.
int clampTop(int top, int height, const QRect &screen)
{
    top = std::max(top, screen.y() + margin);
    return std::min(top, screenBottom(screen) - height - margin);
}

} // namespace

QPoint PanelPlacement::hudPosition(QSize size, std::optional<QRect> caret, QPoint mouse, const QList<QRect> &screens)
{
    const int w = size.width();
    const int h = size.height();
    QRect screen;
    int x = 0;
    int top = 0;
    if (!isUsable(caret)) {
        screen = screenAt(mouse, screens);
        top = mouse.y() - h / 2;
        x = mouse.x() - w - 2;
        if (x < screen.x() + margin)
            x = mouse.x() + 4;
    } else {
        const QRect r = *caret;
        screen = screenAt(QPoint(r.x() + r.width() / 2, r.y() + r.height() / 2), screens);
        top = r.y() + r.height() / 2 - h / 2;
        x = r.x() - w - 2;
        if (x < screen.x() + margin)
            x = r.x() + r.width() + 4;
    }
    x = std::min(x, screenRight(screen) - w - margin);
    return {x, clampTop(top, h, screen)};
}

QPoint PanelPlacement::popupPosition(QSize size, std::optional<QRect> selection, QPoint mouse, const QList<QRect> &screens)
{
    const int w = size.width();
    const int h = size.height();
    QRect screen;
    int x = 0;
    int top = 0;
    if (!isUsable(selection)) {
        screen = screenAt(mouse, screens);
        x = mouse.x();
        top = mouse.y() + 8;
        if (top + h > screenBottom(screen) - margin)
            top = mouse.y() - 8 - h;
    } else {
        const QRect r = *selection;
        screen = screenAt(QPoint(r.x() + r.width() / 2, r.y() + r.height() / 2), screens);
        x = r.x();
        top = r.y() + r.height() + 6;
        if (top + h > screenBottom(screen) - margin)
            top = r.y() - 6 - h;
    }
    x = std::min(x, screenRight(screen) - w - margin);
    x = std::max(x, screen.x() + margin);
    return {x, clampTop(top, h, screen)};
}
