#pragma once

#include "state/HotkeyConfig.h"

#include <QMessageBox>
#include <QPointer>
#include <QWidget>
#include <functional>

#include <QComboBox>
#include <QWheelEvent>

class QCheckBox;
class QPushButton;
class ShortcutRecorder;

// A pop-up menu inside a scrolling page: the wheel scrolls the page unless the menu has the
// keyboard focus, so that scrolling past it never changes a setting.
class SettingsMenu : public QComboBox
{
public:
    explicit SettingsMenu(QWidget *parent = nullptr)
        : QComboBox(parent)
    {
        setFocusPolicy(Qt::StrongFocus);
    }

protected:
    void wheelEvent(QWheelEvent *event) override
    {
        if (hasFocus())
            QComboBox::wheelEvent(event);
        else
            event->ignore();
    }
};

// The hotkey list being edited. Every change is stored at once ("hotkey_configs") and the whole
// list registered again, with or without conflict notices as the edit asks.
class HotkeyBindings
{
public:
    // Starts from the stored list (or the default one).
    HotkeyBindings();

    const QList<HotkeyConfig> &configs() const { return m_configs; }
    std::optional<HotkeyConfig> find(const QUuid &id) const;

    // Replaces the entry with the same id; false when there is none.
    bool update(const HotkeyConfig &config, bool notifyOnConflict);
    void append(const HotkeyConfig &config, bool notifyOnConflict);
    bool remove(const QUuid &id, bool notifyOnConflict);
    // Registers the list as it stands again.
    void registerAll(bool notifyOnConflict) const;

private:
    void commit(bool notifyOnConflict);

    QList<HotkeyConfig> m_configs;
};

// One hotkey of the General tab: language menu, shortcut recorder, enable box, delete button.
// Each edit stores the list and registers it again at once.
class HotkeyRowEditor : public QWidget
{
    Q_OBJECT
public:
    // Column widths and gaps, shared with the column headers above the rows.
    static constexpr int rowHeight = 28;
    static constexpr int languageWidth = 130;
    static constexpr int recorderGap = 8;
    static constexpr int recorderWidth = 110;
    static constexpr int toggleGap = 20;
    static constexpr int deleteGap = 20;
    static constexpr int deleteWidth = 24;
    // Wide enough for the check box and for its column's title in this font.
    static int enabledColumnWidth(const QFont &headerFont);

    // onChanged is called after the row removed its hotkey, so that the owner rebuilds the rows.
    HotkeyRowEditor(const HotkeyConfig &config, HotkeyBindings &bindings, std::function<void()> onChanged,
                    QWidget *parent = nullptr);

    HotkeyConfig config() const { return m_config; }

    QComboBox *languageMenu() const { return m_languageMenu; }
    ShortcutRecorder *recorder() const { return m_recorder; }
    QCheckBox *enableToggle() const { return m_enableToggle; }
    QPushButton *deleteButton() const { return m_deleteButton; }
    // The confirmation asked before a shortcut that shadows paste-as-plain-text, while shown.
    QMessageBox *pendingConfirmation() const { return m_confirmation; }

public Q_SLOTS:
    void langChanged();
    void toggleEnabled();
    void deleteRow();

private:
    void shortcutRecorded(quint32 keyCode, quint32 modifiers);
    void applyShortcut(quint32 keyCode, quint32 modifiers);
    void recordingChanged(bool isRecording);

    HotkeyConfig m_config;
    HotkeyBindings &m_bindings;
    std::function<void()> m_onChanged;
    QComboBox *m_languageMenu = nullptr;
    ShortcutRecorder *m_recorder = nullptr;
    QCheckBox *m_enableToggle = nullptr;
    QPushButton *m_deleteButton = nullptr;
    QPointer<QMessageBox> m_confirmation;
    bool m_hotkeysSuspended = false;
};
