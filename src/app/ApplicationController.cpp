#include "app/ApplicationController.h"
#include "app/SelectionTranslationFlow.h"
#include "app/SettingsSummary.h"
#include "service/TranslationService.h"
#include "state/AppState.h"
#include "state/HotkeyConfig.h"
#include "state/Log.h"
#include "state/SettingsStore.h"
#include "system/Accessibility.h"
#include "system/ClipboardManager.h"
#include "system/HotkeyManager.h"
#include "system/PermissionChecker.h"
#include "system/Workspace.h"
#include "ui/MenuBarController.h"
#include "ui/NotificationManager.h"
#include "ui/PermissionWindow.h"
#include "ui/TranslationPopup.h"

#include <QApplication>
#include <QDataStream>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

namespace {

// One instance per user session: the socket lives in the session's runtime folder.
QString instanceSocketPath()
{
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty())
        dir = QDir::tempPath();
    return dir + QStringLiteral("/parlanto-instance");
}

} // namespace

ApplicationController::ApplicationController(QObject *parent)
    : QObject(parent)
{
}

ApplicationController::~ApplicationController()
{
    tearDown();
}

bool ApplicationController::claimSingleInstance(const QStringList &arguments)
{
    const QString path = instanceSocketPath();
    QLocalSocket socket;
    socket.connectToServer(path);
    if (socket.waitForConnected(500)) {
        QByteArray message;
        QDataStream out(&message, QIODevice::WriteOnly);
        out << arguments;
        socket.write(message);
        socket.waitForBytesWritten(1000);
        socket.disconnectFromServer();
        logLine("Parlanto", QStringLiteral("already running; handed over to the running instance"));
        return false;
    }
    QLocalServer::removeServer(path); // a socket left behind by an instance that crashed
    m_instanceServer = std::make_unique<QLocalServer>();
    m_instanceServer->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_instanceServer->listen(path)) {
        logLine("Parlanto", QStringLiteral("cannot listen on %1: %2").arg(path, m_instanceServer->errorString()));
        return true;
    }
    connect(m_instanceServer.get(), &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *client = m_instanceServer->nextPendingConnection()) {
            connect(client, &QLocalSocket::disconnected, client, &QObject::deleteLater);
            connect(client, &QLocalSocket::readyRead, this, [this, client] {
                QStringList arguments;
                QDataStream in(client->readAll());
                in >> arguments;
                handleMessage(arguments);
            });
        }
    });
    return true;
}

void ApplicationController::handleMessage(const QStringList &arguments)
{
    logLine("Parlanto", QStringLiteral("another start handed over: ") + arguments.mid(1).join(QLatin1Char(' ')));
    if (m_isSetUp && m_menuBar)
        m_menuBar->openSettings();
}

void ApplicationController::launch()
{
    AppState &state = AppState::shared();
    state.setAutoReplace(AppState::storedAutoReplace(SettingsStore::shared()));
    logLine("Settings", QStringLiteral("loaded: ") + settingsSummary(state, loadHotkeyConfigs()));
    connect(qApp, &QCoreApplication::aboutToQuit, this, &ApplicationController::tearDown);

    PermissionChecker &permission = PermissionChecker::shared();
    state.setIsAccessibilityGranted(permission.isTrusted());
    if (permission.isTrusted()) {
        setUp();
        return;
    }
    QStringList missing;
    for (PermissionRequirement requirement : permission.missingRequirements())
        missing << describe(requirement);
    logLine("Parlanto", QStringLiteral("not trusted yet: ") + missing.join(QStringLiteral("; ")));
    permission.requestWithPrompt();
    if (permission.isTrusted()) {
        state.setIsAccessibilityGranted(true);
        setUp();
        return;
    }
    showPermissionWindow();
}

void ApplicationController::showPermissionWindow()
{
    if (m_permissionWindow)
        m_permissionWindow->close();
    m_permissionWindow = new PermissionWindow(PermissionChecker::shared());
    connect(m_permissionWindow, &PermissionWindow::permissionGranted, this, [this] {
        AppState::shared().setIsAccessibilityGranted(true);
        setUp();
    });
    m_permissionWindow->show();
    m_permissionWindow->raise();
    m_permissionWindow->activateWindow();
}

void ApplicationController::setUp()
{
    if (m_isSetUp)
        return;
    m_isSetUp = true;
    m_workspace = createSystemWorkspace();
    m_accessibility = createSystemAccessibility();
    m_menuBar = std::make_unique<MenuBarController>();
    connect(m_menuBar.get(), &MenuBarController::quitRequested, qApp, &QCoreApplication::quit);

    m_selectionFlow = std::make_unique<SelectionTranslationFlow>(SelectionTranslationFlow::Parts{
        AppState::shared(), PermissionChecker::shared(), *m_accessibility, ClipboardManager::shared(), *m_workspace,
        TranslationService::shared(), TranslationPopup::shared(), NotificationManager::shared(), m_menuBar.get()});
    m_selectionFlow->setPermissionWindowOpener([this] { showPermissionWindow(); });

    HotkeyManager &hotkeys = HotkeyManager::shared();
    hotkeys.setHotkeyCallback([flow = QPointer<SelectionTranslationFlow>(m_selectionFlow.get())](const QString &language) {
        if (flow)
            flow->hotkeyPressed(language);
    });
    hotkeys.setNotifier([](const QString &identifier, const QString &title, const QString &body) {
        NotificationManager::shared().post(title, body, {}, identifier);
    });
    hotkeys.installEventHandler();
    hotkeys.registerHotkeys(loadHotkeyConfigs(), false);
}

void ApplicationController::tearDown()
{
    if (!m_isSetUp)
        return;
    m_isSetUp = false;
    HotkeyManager::shared().teardown();
    m_selectionFlow.reset();
    m_menuBar.reset();
    m_instanceServer.reset();
}
