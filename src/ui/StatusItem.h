#pragma once

#include <QObject>
#include <memory>

class QMenu;
class QSystemTrayIcon;

// The tray (menu-bar) item: Parlanto's only permanent presence on screen.
class StatusItem : public QObject
{
    Q_OBJECT
public:
    explicit StatusItem(QObject *parent = nullptr);
    ~StatusItem() override;

    QSystemTrayIcon *trayIcon() const { return m_tray.get(); }

Q_SIGNALS:
    void quitRequested();

private:
    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<QSystemTrayIcon> m_tray;
};
