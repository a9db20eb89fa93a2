#include "app/ApplicationController.h"
#include "app/SettingsSummary.h"
#include "state/AppState.h"
#include "state/HotkeyConfig.h"
#include "state/Log.h"
#include "state/SettingsStore.h"
#include "ui/StatusItem.h"

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

    m_statusItem = std::make_unique<StatusItem>();
    connect(m_statusItem.get(), &StatusItem::quitRequested, qApp, &QCoreApplication::quit);
}
