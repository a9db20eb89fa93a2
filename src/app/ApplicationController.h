#pragma once

#include <QObject>
#include <QPointer>
#include <memory>

class Accessibility;
class MenuBarController;
class PermissionWindow;
class QLocalServer;
class SelectionTranslationFlow;
class Workspace;

// Owns the tray program's controllers and runs its launch and quit sequences.
class ApplicationController : public QObject
{
    Q_OBJECT
public:
    explicit ApplicationController(QObject *parent = nullptr);
    ~ApplicationController() override;

    // Makes this process the one running instance. False when another one runs: it has then been
    // handed the arguments (e.g. a parlanto:// link) and this process should end.
    bool claimSingleInstance(const QStringList &arguments);

    void launch();

private:
    void setUp();
    void showPermissionWindow();
    void handleMessage(const QStringList &arguments);
    void tearDown();

    std::unique_ptr<QLocalServer> m_instanceServer;
    std::unique_ptr<Workspace> m_workspace;
    std::unique_ptr<Accessibility> m_accessibility;
    std::unique_ptr<MenuBarController> m_menuBar;
    std::unique_ptr<SelectionTranslationFlow> m_selectionFlow;
    QPointer<PermissionWindow> m_permissionWindow;
    bool m_isSetUp = false;
};
