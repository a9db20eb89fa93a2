#include "app/ApplicationController.h"
#include "app/SettingsSummary.h"
#include "state/AppState.h"
#include "state/HotkeyConfig.h"
#include "state/Log.h"
#include "state/SettingsStore.h"
#include "ui/MenuBarController.h"

#include <QApplication>

ApplicationController::ApplicationController(QObject *parent)
    : QObject(parent)
{
}

ApplicationController::~ApplicationController() = default;

void ApplicationController::launch()
{
    AppState &state = AppState::shared();
    state.setAutoReplace(AppState::storedAutoReplace(SettingsStore::shared()));
    logLine("Settings", QStringLiteral("loaded: ") + settingsSummary(state, loadHotkeyConfigs()));

    m_menuBar = std::make_unique<MenuBarController>();
    connect(m_menuBar.get(), &MenuBarController::quitRequested, qApp, &QCoreApplication::quit);
}
