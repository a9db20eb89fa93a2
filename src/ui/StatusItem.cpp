#include "ui/StatusItem.h"
#include "ui/Icons.h"

#include <QMenu>
#include <QSystemTrayIcon>

StatusItem::StatusItem(QObject *parent)
    : QObject(parent)
    , m_menu(std::make_unique<QMenu>())
    , m_tray(std::make_unique<QSystemTrayIcon>())
{
    QAction *quit = m_menu->addAction(QStringLiteral("Quit Parlanto"));
    quit->setShortcut(QKeySequence(QStringLiteral("Ctrl+Q")));
    connect(quit, &QAction::triggered, this, &StatusItem::quitRequested);

    m_tray->setIcon(Icons::trayIdle());
    m_tray->setToolTip(QStringLiteral("Parlanto"));
    m_tray->setContextMenu(m_menu.get());
    m_tray->show();
}

StatusItem::~StatusItem() = default;
