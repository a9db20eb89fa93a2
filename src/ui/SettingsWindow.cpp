#include "ui/SettingsWindow.h"
#include "state/AppState.h"
#include "ui/GeneralSettingsTab.h"
#include "ui/Icons.h"
#include "ui/TranslationSettingsTab.h"

#include <QGuiApplication>
#include <QScreen>
#include <QTabWidget>
#include <QVBoxLayout>

SettingsWindow::SettingsWindow(QWidget *parent)
    // Titled, closable and minimisable; never resized, so it offers no maximise action either.
    : QWidget(parent, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint
                          | Qt::WindowMinimizeButtonHint)
{
    setWindowTitle(qtTrId("settings.title"));
    setObjectName(QStringLiteral("settingsWindow"));
    // Closing hides the window and keeps it for the next time; the program goes on running.
    setAttribute(Qt::WA_DeleteOnClose, false);
    setAttribute(Qt::WA_QuitOnClose, false);
    setFixedSize(contentWidth, contentHeight);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_tabs = new QTabWidget(this);
    m_tabs->setDocumentMode(true);
    m_general = new GeneralSettingsTab(m_tabs);
    const int general = m_tabs->addTab(m_general, Icons::trayIcon(QStringLiteral("gear")), qtTrId("settings.tab.general"));
    m_tabs->setTabToolTip(general, qtTrId("settings.tab.general"));
    m_tabs->addTab(new TranslationSettingsTab(m_tabs), Icons::trayIcon(QStringLiteral("translate")),
                   qtTrId("settings.tab.translation"));
    layout->addWidget(m_tabs);

    // The selected tab lives as long as the program (not across launches).
    AppState &state = AppState::shared();
    if (state.settingsTabSelection() >= 0 && state.settingsTabSelection() < m_tabs->count())
        m_tabs->setCurrentIndex(state.settingsTabSelection());
    connect(m_tabs, &QTabWidget::currentChanged, &state, &AppState::setSettingsTabSelection);

    if (QScreen *screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
}

SettingsWindow::~SettingsWindow() = default;

void SettingsWindow::showAndActivate()
{
    show();
    raise();
    activateWindow();
}
