#pragma once

#include <QString>

// Where the program under test and the source tree are (set by CTest for every test).
QString parlantoBinary();
QString sourceDir();

// Where tests leave screenshots to be looked at: $PARLANTO_SCREENSHOT_DIR, or
// <build>/screenshots. The folder exists when this returns.
QString screenshotDir();
