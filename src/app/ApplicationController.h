#pragma once

#include <QObject>
#include <QPointer>
#include <memory>

class Accessibility;
class InlineTranslationManager;
class MenuBarController;
class PermissionWindow;
class QLocalServer;
class SelectionTranslationFlow;
class SettingsWindow;
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

protected:
    // macOS hands parlanto:// links to the running program as file-open events.
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void setUp();
    void showPermissionWindow();
    void handleMessage(const QStringList &arguments);
    // parlanto://settings opens the settings window; other hosts and other schemes do nothing.
    void handleUrls(const QStringList &arguments);
    void openSettingsFromLink();
    // Once per user: asks whether to start at login (after the first set-up step).
    void offerLaunchAtLogin();
    void quitOnTerminationSignals();
    void tearDown();

    std::unique_ptr<QLocalServer> m_instanceServer;
    std::unique_ptr<Workspace> m_workspace;
    std::unique_ptr<Accessibility> m_accessibility;
    std::unique_ptr<SettingsWindow> m_settingsWindow;
    std::unique_ptr<MenuBarController> m_menuBar;
    std::unique_ptr<SelectionTranslationFlow> m_selectionFlow;
    std::unique_ptr<InlineTranslationManager> m_inlineManager;
    QPointer<PermissionWindow> m_permissionWindow;
    bool m_isSetUp = false;
};
