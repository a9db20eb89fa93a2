#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <functional>
#include <memory>

// What the program needs from the system to read selections and synthesise keys. On macOS that
// is the Accessibility permission. On Linux/X11 it is the accessibility bus (AT-SPI) running
// and enabled, and the XTest (synthesised keys) and XInput 2 (key watching) extensions.
enum class PermissionRequirement {
    AccessibilityPermission,  // macOS: the user has not trusted this program yet
    AccessibilityBus,         // no accessibility bus (at-spi2-core not running) or unreachable
    AccessibilityEnabled,     // the bus runs but accessibility is switched off
    KeySynthesis,             // the X server lacks XTest
    KeyWatching,              // the X server lacks XInput 2
};

// A short English description, for logs ("the accessibility bus is switched off").
QString describe(PermissionRequirement requirement);

class PermissionBackend
{
public:
    virtual ~PermissionBackend() = default;
    // What is missing now; empty when the program is trusted.
    virtual QList<PermissionRequirement> missingRequirements() = 0;
    // Asks the system to grant what is missing (macOS: the system's prompt; X11: switches the
    // accessibility bus on when it is merely off). The outcome is read back by checking again.
    virtual void requestWithPrompt() = 0;
    // Opens the system's settings where the user grants the permission (failures ignored).
    virtual void openAccessibilitySettings() = 0;
};

// This system's backend: AXIsProcessTrusted* on macOS; the accessibility bus over the session
// bus and the X server's extensions on X11. Needs the GUI application object.
std::unique_ptr<PermissionBackend> createSystemPermissionBackend();

// Whether the program is trusted, and a monitor that tells when it becomes trusted. Main thread.
class PermissionChecker : public QObject
{
    Q_OBJECT
public:
    explicit PermissionChecker(std::unique_ptr<PermissionBackend> backend, QObject *parent = nullptr);
    ~PermissionChecker() override;

    // The process-wide checker on this system's backend, created on first use.
    static PermissionChecker &shared();

    bool isTrusted() const;
    QList<PermissionRequirement> missingRequirements() const;
    // Checks once a second, the first check one second from now, until trusted; then calls the
    // callback once, one event-loop turn later, and stops. Each call starts its own monitor;
    // monitors end with the checker.
    void startMonitoring(std::function<void()> callback);
    void requestWithPrompt();
    void openAccessibilitySettings();

private:
    std::unique_ptr<PermissionBackend> m_backend;
};
