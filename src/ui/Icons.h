#pragma once

#include <QIcon>

namespace Icons {
// A tray icon by name ("translate", "arrow.triangle.2.circlepath", ...): our monochrome mask
// drawn in the panel's text colour. Null when there is no such icon.
QIcon trayIcon(const QString &name);
}
