#pragma once

#include <QList>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <optional>

// Where the small floating panels go, in global screen coordinates (origin top left, y down).
// `screens` lists the screens' geometries with the primary screen first; `anchor` is the text
// the panel belongs to (a caret or a selection), absent or empty when unknown, in which case
// the mouse pointer is the anchor.
namespace PanelPlacement {

// The progress pill: centred on the caret line, 2 px to the left of the caret, or 4 px to its
// right when that would come within 8 px of the screen's left edge.
QPoint hudPosition(QSize size, std::optional<QRect> caret, QPoint mouse, const QList<QRect> &screens);

// The translation popup: left-aligned with the selection, 6 px below it, or above it when it
// would come within 8 px of the screen's bottom; pushed back inside the screen by 8 px.
QPoint popupPosition(QSize size, std::optional<QRect> selection, QPoint mouse, const QList<QRect> &screens);

}
