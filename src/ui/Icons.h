#pragma once

#include <QIcon>

namespace Icons {
// The tray icon, drawn from our monochrome mask in the panel's text colour.
QIcon trayIdle();
}
