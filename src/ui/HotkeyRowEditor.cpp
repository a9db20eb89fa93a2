#include "ui/HotkeyRowEditor.h"
#include "state/KeyCodes.h"
#include "state/Languages.h"
#include "state/Log.h"
#include "state/SettingsStore.h"
#include "system/HotkeyManager.h"
#include "ui/ShortcutRecorder.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QStyle>

HotkeyBindings::HotkeyBindings()
    : m_configs(loadHotkeyConfigs(SettingsStore::shared()))
{
}

std::optional<HotkeyConfig> HotkeyBindings::find(const QUuid &id) const
{
    for (const HotkeyConfig &config : m_configs) {
        if (config.id == id)
            return config;
    }
    return std::nullopt;
}

bool HotkeyBindings::update(const HotkeyConfig &config, bool notifyOnConflict)
{
    for (HotkeyConfig &entry : m_configs) {
        if (entry.id == config.id) {
            entry = config;
            commit(notifyOnConflict);
            return true;
        }
    }
    return false;
}

void HotkeyBindings::append(const HotkeyConfig &config, bool notifyOnConflict)
{
    m_configs.append(config);
    commit(notifyOnConflict);
}

bool HotkeyBindings::remove(const QUuid &id, bool notifyOnConflict)
{
    const qsizetype removed = m_configs.removeIf([&](const HotkeyConfig &config) { return config.id == id; });
    if (removed == 0)
        return false;
    commit(notifyOnConflict);
    return true;
}

void HotkeyBindings::registerAll(bool notifyOnConflict) const
{
    HotkeyManager::shared().registerHotkeys(m_configs, notifyOnConflict);
}

void HotkeyBindings::commit(bool notifyOnConflict)
{
    saveHotkeyConfigs(SettingsStore::shared(), m_configs);
    registerAll(notifyOnConflict);
}

int HotkeyRowEditor::enabledColumnWidth(const QFont &headerFont)
{
    QCheckBox probe;
    const int titleWidth = QFontMetrics(headerFont).horizontalAdvance(qtTrId("general.hotkeys.col.enabled"));
    return std::max(probe.sizeHint().width(), titleWidth);
}

HotkeyRowEditor::HotkeyRowEditor(const HotkeyConfig &config, HotkeyBindings &bindings, std::function<void()> onChanged,
                                 QWidget *parent)
    : QWidget(parent)
    , m_config(config)
    , m_bindings(bindings)
    , m_onChanged(std::move(onChanged))
{
    setFixedHeight(rowHeight);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    m_languageMenu = new SettingsMenu(this);
    m_languageMenu->setFixedWidth(languageWidth);
    QFont menuFont = m_languageMenu->font();
    menuFont.setPixelSize(12);
    m_languageMenu->setFont(menuFont);
    for (const Language &language : supportedLanguages())
        m_languageMenu->addItem(language.name, language.code);
    m_languageMenu->setCurrentIndex(m_languageMenu->findData(m_config.targetLanguage));
    m_languageMenu->setAccessibleName(qtTrId("general.hotkeys.col.language"));
    connect(m_languageMenu, &QComboBox::currentIndexChanged, this, &HotkeyRowEditor::langChanged);

    m_recorder = new ShortcutRecorder(this);
    m_recorder->setFixedWidth(recorderWidth);
    m_recorder->setShortcutTitle(KeyCodes::shortcutDisplayText(m_config.keyCode, m_config.modifiers));
    m_recorder->setAccessibleName(qtTrId("general.hotkeys.col.shortcut"));
    connect(m_recorder, &ShortcutRecorder::keyRecorded, this, &HotkeyRowEditor::shortcutRecorded);
    connect(m_recorder, &ShortcutRecorder::recordingChanged, this, &HotkeyRowEditor::recordingChanged);

    m_enableToggle = new QCheckBox(this);
    m_enableToggle->setChecked(m_config.isEnabled);
    m_enableToggle->setFixedWidth(enabledColumnWidth(font()));
    m_enableToggle->setAccessibleName(qtTrId("general.hotkeys.col.enabled"));
    connect(m_enableToggle, &QCheckBox::clicked, this, &HotkeyRowEditor::toggleEnabled);

    m_deleteButton = new QPushButton(QStringLiteral("\u2212"), this);
    m_deleteButton->setFixedWidth(deleteWidth);
    m_deleteButton->setAutoDefault(false);
    m_deleteButton->setToolTip(qtTrId("hotkey.delete"));
    m_deleteButton->setAccessibleName(qtTrId("hotkey.delete"));
    connect(m_deleteButton, &QPushButton::clicked, this, &HotkeyRowEditor::deleteRow);

    layout->addWidget(m_languageMenu, 0, Qt::AlignVCenter);
    layout->addSpacing(recorderGap);
    layout->addWidget(m_recorder, 0, Qt::AlignVCenter);
    layout->addSpacing(toggleGap);
    layout->addWidget(m_enableToggle, 0, Qt::AlignVCenter);
    layout->addSpacing(deleteGap);
    layout->addWidget(m_deleteButton, 0, Qt::AlignVCenter);
    layout->addStretch(1);
}

void HotkeyRowEditor::recordingChanged(bool isRecording)
{
    // While a shortcut is being recorded our own hot keys are released: a key grabbed by us
    // would never reach the recorder, and pressing it would start a translation instead.
    if (isRecording && !m_hotkeysSuspended) {
        m_hotkeysSuspended = true;
        HotkeyManager::shared().unregisterAll();
    } else if (!isRecording && m_hotkeysSuspended) {
        m_hotkeysSuspended = false;
        m_bindings.registerAll(false);
    }
}

void HotkeyRowEditor::shortcutRecorded(quint32 keyCode, quint32 modifiers)
{
    if (keyCode != KeyCodes::V || modifiers != (Modifier::Command | Modifier::Shift)) {
        applyShortcut(keyCode, modifiers);
        return;
    }
    // Command/Ctrl+Shift+V pastes without formatting in many applications: ask first.
    if (m_confirmation)
        m_confirmation->close();
    auto *box = new QMessageBox(QMessageBox::Warning, QString(), qtTrId("alert.hotkey_conflict.title"),
                                QMessageBox::NoButton, this);
    box->setWindowTitle(qtTrId("alert.hotkey_conflict.title"));
    box->setInformativeText(qtTrId("alert.hotkey_conflict.message"));
    QPushButton *useAnyway = box->addButton(qtTrId("alert.use_anyway"), QMessageBox::AcceptRole);
    QPushButton *cancel = box->addButton(qtTrId("alert.cancel"), QMessageBox::RejectRole);
    box->setDefaultButton(useAnyway);
    box->setEscapeButton(cancel);
    box->setWindowModality(Qt::ApplicationModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::buttonClicked, this, [this, box, useAnyway, keyCode, modifiers](QAbstractButton *button) {
        if (button == useAnyway && box == m_confirmation)
            applyShortcut(keyCode, modifiers);
    });
    connect(box, &QMessageBox::finished, this, [this, box] {
        if (m_confirmation == box)
            m_confirmation = nullptr;
    });
    m_confirmation = box;
    box->open();
}

void HotkeyRowEditor::applyShortcut(quint32 keyCode, quint32 modifiers)
{
    const std::optional<HotkeyConfig> current = m_bindings.find(m_config.id);
    if (current)
        m_config = *current;
    m_config.keyCode = keyCode;
    m_config.modifiers = modifiers;
    m_recorder->setShortcutTitle(KeyCodes::shortcutDisplayText(keyCode, modifiers));
    logLine("Settings", QStringLiteral("shortcut for %1 recorded: %2")
                            .arg(m_config.targetLanguage, KeyCodes::shortcutDisplayText(keyCode, modifiers)));
    m_bindings.update(m_config, true);
}

void HotkeyRowEditor::langChanged()
{
    const QString code = m_languageMenu->currentData().toString();
    if (code.isEmpty())
        return;
    if (const std::optional<HotkeyConfig> current = m_bindings.find(m_config.id))
        m_config = *current;
    m_config.targetLanguage = code;
    m_bindings.update(m_config, false);
}

void HotkeyRowEditor::toggleEnabled()
{
    if (const std::optional<HotkeyConfig> current = m_bindings.find(m_config.id))
        m_config = *current;
    m_config.isEnabled = m_enableToggle->isChecked();
    // Conflicts are announced when the user switches a hotkey on, not when switching it off.
    m_bindings.update(m_config, m_config.isEnabled);
}

void HotkeyRowEditor::deleteRow()
{
    m_recorder->stopRecording();
    if (m_confirmation)
        m_confirmation->close();
    m_bindings.remove(m_config.id, false);
    if (m_onChanged)
        m_onChanged();
}
