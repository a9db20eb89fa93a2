#pragma once

#include <QObject>
#include <memory>

class StatusItem;

// Owns the tray program's controllers and runs its launch and quit sequences.
class ApplicationController : public QObject
{
    Q_OBJECT
public:
    explicit ApplicationController(QObject *parent = nullptr);
    ~ApplicationController() override;

    void launch();

private:
    std::unique_ptr<StatusItem> m_statusItem;
};
