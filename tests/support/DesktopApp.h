#pragma once

#include <QProcess>
#include <QRect>
#include <QString>
#include <QStringList>
#include <memory>

// A real application started for a test in the desktop test session: our Qt editor, the GTK
// fields script, or an application from Debian. Stopped (TERM, then KILL) when destroyed.
class DesktopApp
{
public:
    // tests/apps/gtk_fields.py through /usr/bin/python3 (GTK 3); waits for its "ready" line.
    static std::unique_ptr<DesktopApp> gtkFields(const QStringList &arguments);
    // Our own Qt editor (tests/apps/qt_test_editor.cpp).
    static std::unique_ptr<DesktopApp> qtEditor(const QStringList &arguments);
    // Any program, e.g. mousepad.
    static std::unique_ptr<DesktopApp> program(const QString &program, const QStringList &arguments);

    ~DesktopApp();

    bool isRunning() const;
    qint64 pid() const;
    QString name() const { return m_name; }
    // Waits until a window of this process is the active window (false after `timeoutMs`).
    bool waitUntilActive(int timeoutMs = 10000);
    // The active window's frame-less geometry in screen coordinates.
    static QRect activeWindowGeometry();
    static qint64 activeWindowPid();
    void sendSignal(int signal);

private:
    DesktopApp() = default;
    bool start(const QString &program, const QStringList &arguments, bool waitForReadyLine);

    QProcess m_process;
    QString m_name;
};

// Runs a tool (xdotool, xwininfo...) to its end; its standard output, trimmed.
QString runTool(const QString &program, const QStringList &arguments);
// Presses keys in the focused window with xdotool ("ctrl+Home", "shift+Right"...).
bool pressKeys(const QStringList &keys);
// Runs xdotool with the arguments while the event loop keeps turning; whether it succeeded.
bool xdotool(const QStringList &arguments);
