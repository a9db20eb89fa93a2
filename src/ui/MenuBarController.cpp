#include "ui/MenuBarController.h"
#include "ui/Icons.h"

#include <QApplication>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QWidget>

MenuBarController::MenuBarController(QObject *parent)
    : QObject(parent)
    , m_menu(std::make_unique<QMenu>())
    , m_tray(std::make_unique<QSystemTrayIcon>())
{
    QAction *settings = m_menu->addAction(qtTrId("menu.settings"));
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Comma));
    connect(settings, &QAction::triggered, this, &MenuBarController::openSettings);
    m_menu->addSeparator();
    QAction *quit = m_menu->addAction(qtTrId("menu.quit"));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    connect(quit, &QAction::triggered, this, &MenuBarController::quitRequested);

    m_animationTimer.setInterval(frameIntervalMs);
    connect(&m_animationTimer, &QTimer::timeout, this, [this] {
        ++m_animationFrame;
        updateIcon(true);
    });

    updateIcon(false);
    m_tray->setContextMenu(m_menu.get());
    // Any click opens the menu, as on the macOS menu bar.
    connect(m_tray.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            m_menu->popup(QCursor::pos());
    });
    m_tray->show();
}

MenuBarController::~MenuBarController() = default;

QString MenuBarController::currentDescription() const
{
    return m_tray->toolTip();
}

void MenuBarController::updateIcon(bool animating)
{
    const QString name = animating ? animationFrameNames.at(m_animationFrame % animationFrameNames.size())
                                   : defaultIconName;
    const QIcon icon = Icons::trayIcon(name);
    if (icon.isNull())
        return;
    m_iconName = name;
    m_tray->setIcon(icon);
    m_tray->setToolTip(animating ? QStringLiteral("Parlanto translating") : QStringLiteral("Parlanto"));
}

void MenuBarController::startAnimating()
{
    if (m_isAnimating)
        return;
    m_isAnimating = true;
    m_animationFrame = 0;
    m_animationTimer.start();
    updateIcon(true);
}

void MenuBarController::stopAnimating()
{
    m_isAnimating = false;
    m_animationTimer.stop();
    QMetaObject::invokeMethod(this, [this] { updateIcon(false); }, Qt::QueuedConnection);
}

void MenuBarController::openSettings()
{
    if (m_settingsWindow) {
        m_settingsWindow->show();
        m_settingsWindow->raise();
        m_settingsWindow->activateWindow();
    }
}
