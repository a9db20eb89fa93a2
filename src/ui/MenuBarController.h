#pragma once

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QTimer>
#include <memory>

class QMenu;
class QSystemTrayIcon;
#include <QWidget>

// The tray (menu-bar) item: Parlanto's only permanent presence on screen. Shows the idle icon,
// a two-frame animation while a selection translation runs, and a menu with Settings and Quit.
class MenuBarController : public QObject
{
    Q_OBJECT
public:
    static inline const QString defaultIconName = QStringLiteral("translate");
    static inline const QStringList animationFrameNames = {QStringLiteral("arrow.triangle.2.circlepath"),
                                                           QStringLiteral("arrow.2.circlepath")};
    static constexpr int frameIntervalMs = 300;

    explicit MenuBarController(QObject *parent = nullptr);
    ~MenuBarController() override;

    // The settings window to bring up from the menu; not owned.
    void setSettingsWindow(QWidget *window) { m_settingsWindow = window; }

    void startAnimating();
    void stopAnimating();
    bool isAnimating() const { return m_isAnimating; }

    // What the item shows now: the icon's name and its accessible description (tooltip).
    QString currentIconName() const { return m_iconName; }
    QString currentDescription() const;

    QSystemTrayIcon *trayIcon() const { return m_tray.get(); }
    QMenu *menu() const { return m_menu.get(); }

public Q_SLOTS:
    void openSettings();

Q_SIGNALS:
    void quitRequested();

private:
    void updateIcon(bool animating);

    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<QSystemTrayIcon> m_tray;
    QTimer m_animationTimer;
    qint64 m_animationFrame = 0;
    bool m_isAnimating = false;
    QString m_iconName;
    QPointer<QWidget> m_settingsWindow;
};
