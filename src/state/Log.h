#pragma once

#include <QString>

// One diagnostic line on standard output with the component's tag: "[Tag] text".
// Never pass a secret or the content of a password field.
void logLine(const char *tag, const QString &text);
