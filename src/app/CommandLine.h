#pragma once

#include <QStringList>

// `parlanto <command> ...` without the tray: returns the process's exit status, or -1 when the
// arguments name no command (the tray program then starts).
int runCommandLine(const QStringList &arguments);
