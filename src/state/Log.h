#pragma once

#include <QString>

// One diagnostic line on standard output with the component's tag: "[Tag] text".
// Never pass a secret or the content of a password field.
void logLine(const char *tag, const QString &text);

// The command line keeps standard output for its results and sends these lines to standard
// error instead.
void setLogToStandardError(bool toStandardError);
