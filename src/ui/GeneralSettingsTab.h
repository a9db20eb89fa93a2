#pragma once

#include "ui/HotkeyRowEditor.h"

#include <QScrollArea>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QFrame;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QRadioButton;
class QVBoxLayout;

// The General tab of the settings window: behaviour switches, the popup's dismiss delay, the
// output format with the bilingual template and its live preview, the default language and the
// hotkeys. Every control takes effect at once: AppState, the settings store and the part of the
// program it drives. There is no Apply button.
class GeneralSettingsTab : public QScrollArea
{
    Q_OBJECT
public:
    // The sample the template preview is drawn with.
    static inline const QString sampleOriginal = QStringLiteral("Good morning!");
    static inline const QString sampleTranslated = QStringLiteral("Ch\u00E0o bu\u1ED5i s\u00E1ng!");
    // The preview of a bilingual template: "{original}" and "{translated}" replaced literally.
    static QString previewText(const QString &bilingualTemplate);
    // The dismiss-delay menu's choices in seconds; 0 is "never".
    static const QList<int> &dismissDelayChoices();

    explicit GeneralSettingsTab(QWidget *parent = nullptr);
    ~GeneralSettingsTab() override;

    // Shows the current settings (AppState, the login item, the hotkeys) without writing them.
    void loadValues();
    // The same without rebuilding the hotkey rows.
    void showState();

    QCheckBox *launchAtLoginCheckbox() const { return m_launchAtLogin; }
    QCheckBox *autoReplaceCheckbox() const { return m_autoReplace; }
    QCheckBox *inlineTranslationCheckbox() const { return m_inlineTranslation; }
    QComboBox *popupDismissPopup() const { return m_popupDismiss; }
    QRadioButton *translateOnlyRadio() const { return m_translateOnly; }
    QRadioButton *bilingualRadio() const { return m_bilingual; }
    QFrame *templateBox() const { return m_templateBox; }
    QPlainTextEdit *templateTextView() const { return m_templateText; }
    QLabel *previewLabel() const { return m_preview; }
    QComboBox *defaultLanguagePopup() const { return m_defaultLanguage; }
    QPushButton *addHotkeyButton() const { return m_addHotkey; }
    QWidget *hotkeyColumnHeader() const { return m_columnHeader; }
    QList<HotkeyRowEditor *> hotkeyRows() const;
    const HotkeyBindings &bindings() const { return m_bindings; }

public Q_SLOTS:
    void addHotkey();
    void toggleLaunchAtLogin();
    void toggleAutoReplace();
    void toggleInlineTranslation();
    void popupDismissDelayChanged();
    void outputModeChanged();
    void templateChanged();
    void defaultLanguageChanged();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void buildLayout();
    QWidget *buildTemplateBox();
    QWidget *buildColumnHeader();
    void rebuildRows();
    void showTemplateBox(bool visible);

    HotkeyBindings m_bindings;
    QCheckBox *m_launchAtLogin = nullptr;
    QCheckBox *m_autoReplace = nullptr;
    QCheckBox *m_inlineTranslation = nullptr;
    QRadioButton *m_translateOnly = nullptr;
    QRadioButton *m_bilingual = nullptr;
    QButtonGroup *m_outputGroup = nullptr;
    QPlainTextEdit *m_templateText = nullptr;
    QLabel *m_preview = nullptr;
    QFrame *m_templateBox = nullptr;
    QWidget *m_templateSection = nullptr; // the box and the space after it
    QWidget *m_translateOnlyGap = nullptr; // keeps the section's spacing while the box is hidden
    QComboBox *m_popupDismiss = nullptr;
    QComboBox *m_defaultLanguage = nullptr;
    QPushButton *m_addHotkey = nullptr;
    QWidget *m_columnHeader = nullptr;
    QWidget *m_hotkeyList = nullptr;
    QVBoxLayout *m_hotkeyStack = nullptr;
};
