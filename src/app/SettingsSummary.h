#pragma once

#include <QString>

class AppState;
struct HotkeyConfig;
template <typename T> class QList;

// One line that says what the program loaded, for the start-up log.
QString settingsSummary(const AppState &state, const QList<HotkeyConfig> &hotkeys);
