#pragma once

#include <QString>

// Whether Parlanto starts when the user logs in.
// Linux: an XDG autostart entry ($XDG_CONFIG_HOME/autostart/parlanto.desktop).
// macOS: SMAppService.mainAppService.
class LoginItem
{
public:
    static LoginItem &shared();

    bool isEnabled() const;
    // Registers or unregisters the program; returns false (and logs why) when that failed.
    bool setEnabled(bool enabled);

#if !defined(Q_OS_MACOS)
    // Path of the autostart entry (exists only while enabled).
    static QString autostartFilePath();
#endif

private:
    LoginItem() = default;
};
