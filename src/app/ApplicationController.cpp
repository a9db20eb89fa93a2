#include "app/ApplicationController.h"
#include "app/SelectionTranslationFlow.h"
#include "app/SettingsSummary.h"
#include "inline/InlineTranslationManager.h"
#include "service/TranslationService.h"
#include "state/AppState.h"
#include "state/HotkeyConfig.h"
#include "state/Log.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"
#include "system/Accessibility.h"
#include "system/ClipboardManager.h"
#include "system/HotkeyManager.h"
#include "system/KeyWatcher.h"
#include "system/KeyboardSimulator.h"
#include "system/LoginItem.h"
#include "system/PermissionChecker.h"
#include "system/Workspace.h"
#include "ui/MenuBarController.h"
#include "ui/NotificationManager.h"
#include "ui/PermissionWindow.h"
#include "ui/SettingsWindow.h"
#include "ui/TranslationPopup.h"

#include <QApplication>
#include <QDataStream>
#include <QDir>
#include <QFileOpenEvent>
#include <QLocalServer>
#include <QLocalSocket>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>
#include <QStandardPaths>
#include <QTimer>

#ifdef Q_OS_UNIX
#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace {

// A link as the log shows it: without query, fragment or user information, which may carry
// something secret.
QString loggableLink(const QString &argument)
{
    const QUrl url(argument);
    if (!url.isValid() || url.scheme().isEmpty())
        return argument;
    const QString shown = url.adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::RemoveUserInfo).toString();
    // Keep the scheme as it was typed (QUrl folds its case).
    return argument.left(argument.indexOf(QLatin1Char(':'))) + shown.mid(shown.indexOf(QLatin1Char(':')));
}

#ifdef Q_OS_UNIX
// SIGTERM/SIGINT/SIGHUP reach the event loop through this socket pair, so a session's logout or
// a kill still runs the quit sequence.
int terminationSockets[2] = {-1, -1};

void onTerminationSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(terminationSockets[0], &byte, 1);
}
#endif

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
    QStringList shown;
    for (const QString &argument : arguments.mid(1))
        shown << loggableLink(argument);
    logLine("Parlanto", QStringLiteral("another start handed over: ") + shown.join(QLatin1Char(' ')));
    // A plain start (from the applications menu, say) brings up the settings window.
    if (arguments.size() <= 1)
        openSettingsFromLink();
    else
        handleUrls(arguments.mid(1));
}

void ApplicationController::handleUrls(const QStringList &arguments)
{
    static const QString scheme = QStringLiteral("parlanto");
    for (const QString &argument : arguments) {
        // The scheme is compared exactly (QUrl would fold its case).
        if (argument.section(QLatin1Char(':'), 0, 0) != scheme) {
            if (argument.contains(QLatin1Char(':')))
                logLine("Parlanto", QStringLiteral("ignored link: ") + loggableLink(argument));
            continue;
        }
        const QUrl url(argument);
        if (url.isValid() && url.host() == QLatin1String("settings"))
            openSettingsFromLink();
        else
            logLine("Parlanto", QStringLiteral("ignored link: ") + loggableLink(argument));
    }
}

bool ApplicationController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == qApp && event->type() == QEvent::FileOpen) {
        const QUrl url = static_cast<QFileOpenEvent *>(event)->url();
        if (!url.isLocalFile()) {
            handleUrls({url.toString()});
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

void ApplicationController::openSettingsFromLink()
{
    logLine("Parlanto", QStringLiteral("link: opening the settings window"));
    if (m_settingsWindow) {
        m_settingsWindow->showAndActivate();
    } else if (m_permissionWindow) {
        // Before the set-up step only the program comes to the front: its permission window.
        m_permissionWindow->raise();
        m_permissionWindow->activateWindow();
    }
}

void ApplicationController::offerLaunchAtLogin()
{
    SettingsStore &store = SettingsStore::shared();
    if (store.boolValue(SettingsKeys::hasLaunchedBefore).value_or(false)) {
        logLine("Parlanto", QStringLiteral("launch-at-login offer: made before"));
        return;
    }
    // Written first: the offer is never repeated, whatever the answer, even if the program is
    // quit while the alert is open.
    store.setBool(SettingsKeys::hasLaunchedBefore, true);

    auto *alert = new QMessageBox(QMessageBox::Question, QStringLiteral("Parlanto"), qtTrId("alert.launch_at_login.title"));
    alert->setObjectName(QStringLiteral("LaunchAtLoginAlert"));
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setWindowModality(Qt::ApplicationModal);
    alert->setInformativeText(qtTrId("alert.launch_at_login.message"));
    QPushButton *yes = alert->addButton(qtTrId("alert.launch_at_login.yes"), QMessageBox::AcceptRole);
    QPushButton *notNow = alert->addButton(qtTrId("alert.launch_at_login.not_now"), QMessageBox::RejectRole);
    alert->setDefaultButton(yes);
    alert->setEscapeButton(notNow);
    connect(alert, &QMessageBox::buttonClicked, this, [yes](QAbstractButton *button) {
        if (button != yes) {
            logLine("Parlanto", QStringLiteral("launch-at-login offer: not now"));
            return;
        }
        logLine("Parlanto", QStringLiteral("launch-at-login offer: yes"));
        LoginItem::shared().setEnabled(true); // a failure is only logged
    });
    logLine("Parlanto", QStringLiteral("launch-at-login offer: shown"));
    alert->show();
    alert->raise();
    alert->activateWindow();
}

void ApplicationController::quitOnTerminationSignals()
{
#ifdef Q_OS_UNIX
    if (terminationSockets[0] >= 0 || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, terminationSockets) != 0)
        return;
    auto *notifier = new QSocketNotifier(terminationSockets[1], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [] {
        char byte = 0;
        [[maybe_unused]] const ssize_t read = ::read(terminationSockets[1], &byte, 1);
        logLine("Parlanto", QStringLiteral("termination signal: quitting"));
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaction(signal, &action, nullptr);
#endif
}

void ApplicationController::launch()
{
    AppState &state = AppState::shared();
    state.setAutoReplace(AppState::storedAutoReplace(SettingsStore::shared()));
    logLine("Settings", QStringLiteral("loaded: ") + settingsSummary(state, loadHotkeyConfigs()));
    connect(qApp, &QCoreApplication::aboutToQuit, this, &ApplicationController::tearDown);
    quitOnTerminationSignals();
    qApp->installEventFilter(this);
    // A link given to this start itself is handled once the start-up below has run.
    const QStringList links = QCoreApplication::arguments().mid(1);
    QTimer::singleShot(0, this, [this, links] { handleUrls(links); });

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
    if (!m_settingsWindow)
        m_settingsWindow = std::make_unique<SettingsWindow>();
    m_menuBar = std::make_unique<MenuBarController>();
    m_menuBar->setSettingsWindow(m_settingsWindow.get());
    connect(m_menuBar.get(), &MenuBarController::quitRequested, qApp, &QCoreApplication::quit);

    m_selectionFlow = std::make_unique<SelectionTranslationFlow>(SelectionTranslationFlow::Parts{
        AppState::shared(), PermissionChecker::shared(), *m_accessibility, ClipboardManager::shared(),
        KeyboardSimulator::shared(), *m_workspace,
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

    // Type-to-translate: runs while the inline switch is on, and follows it at once.
    m_inlineManager = std::make_unique<InlineTranslationManager>(
        InlineTranslationManager::Parts{AppState::shared(), PermissionChecker::shared(), *m_accessibility,
                                        ClipboardManager::shared(), KeyboardSimulator::shared(),
                                        TranslationService::shared(), m_workspace.get()},
        createSystemKeyWatcher());
    m_inlineManager->setNotifier([](const QString &identifier, const QString &title, const QString &body) {
        NotificationManager::shared().post(title, body, {}, identifier);
    });
    if (AppState::shared().inlineTranslationEnabled())
        m_inlineManager->start();
    connect(&AppState::shared(), &AppState::inlineTranslationEnabledChanged, m_inlineManager.get(),
            [manager = m_inlineManager.get()](bool enabled) { enabled ? manager->start() : manager->stop(); });
    offerLaunchAtLogin();
}

void ApplicationController::tearDown()
{
    if (!m_isSetUp)
        return;
    m_isSetUp = false;
    HotkeyManager::shared().teardown();
    logLine("Parlanto", QStringLiteral("quit: hotkeys unregistered"));
    m_inlineManager.reset();
    m_selectionFlow.reset();
    m_menuBar.reset();
    m_instanceServer.reset();
}
