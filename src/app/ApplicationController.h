#pragma once

#include <QObject>
#include <memory>

class MenuBarController;

// Owns the tray program's controllers and runs its launch and quit sequences.
class ApplicationController : public QObject
{
    Q_OBJECT
public:
    explicit ApplicationController(QObject *parent = nullptr);
    ~ApplicationController() override;

    void launch();

private:
    std::unique_ptr<MenuBarController> m_menuBar;
};
