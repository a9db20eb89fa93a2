#pragma once

#include <QObject>
#include <QString>
#include <memory>

// The desktop's applications as this program sees them: which one is in front, and when
// another one comes to the front. Main thread only.
//
// An application identifier is what the system knows it by: the bundle identifier on macOS
// ("com.apple.TextEdit"); on Linux the desktop-file id the application announces
// ("org.xfce.mousepad") or, without one, the class of its window in lower case ("xterm").
// This program's own identifier is ownApplicationId() on both.
class Workspace : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;
    ~Workspace() override = default;

    // The application whose window is active; empty when none is (or it cannot be told).
    virtual QString frontmostApplicationId() const = 0;
    virtual bool isOwnApplicationFrontmost() const { return frontmostApplicationId() == ownApplicationId(); }
    // Brings this program to the front (its visible window, if it has one).
    virtual void activateSelf() = 0;

    static QString ownApplicationId();

Q_SIGNALS:
    // Another application (or this one) came to the front; the identifier never repeats the
    // previous one.
    void activeApplicationChanged(const QString &applicationId);
};

// This system's workspace: the window manager's active window on X11, NSWorkspace on macOS.
// Needs the GUI application object.
std::unique_ptr<Workspace> createSystemWorkspace();
