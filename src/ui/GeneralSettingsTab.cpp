#include "ui/GeneralSettingsTab.h"
#include "state/AppState.h"
#include "state/Languages.h"
#include "state/Log.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"
#include "system/LoginItem.h"
#include "ui/ShortcutRecorder.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace {

constexpr int sectionSpacing = 16;
constexpr int itemSpacing = 10;

// Label colours: secondary and tertiary text are the window's text colour, faded.
QColor fadedText(const QWidget *widget, int alpha)
{
    QColor colour = widget->palette().color(QPalette::WindowText);
    colour.setAlpha(alpha);
    return colour;
}

QLabel *label(const QString &text, int pixelSize, bool bold, int alpha, QWidget *parent)
{
    auto *result = new QLabel(text, parent);
    result->setTextFormat(Qt::PlainText);
    QFont font = result->font();
    font.setPixelSize(pixelSize);
    font.setBold(bold);
    result->setFont(font);
    if (alpha < 255) {
        QPalette palette = result->palette();
        palette.setColor(QPalette::WindowText, fadedText(result, alpha));
        result->setPalette(palette);
    }
    return result;
}

QLabel *sectionTitle(const QString &text, QWidget *parent) { return label(text, 13, true, 255, parent); }
QLabel *note(const QString &text, QWidget *parent) { return label(text, 11, false, 115, parent); }
QLabel *caption(const QString &text, QWidget *parent) { return label(text, 11, false, 150, parent); }

QFrame *separator(QWidget *parent)
{
    auto *line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

QFont monospaced()
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(12);
    return font;
}

// Adds a widget to a vertical stack and the space that follows it.
void stack(QVBoxLayout *layout, QWidget *widget, int spacingAfter = itemSpacing)
{
    layout->addWidget(widget);
    layout->addSpacing(spacingAfter);
}

void stack(QVBoxLayout *layout, QLayout *row, int spacingAfter = itemSpacing)
{
    layout->addLayout(row);
    layout->addSpacing(spacingAfter);
}

} // namespace

QString GeneralSettingsTab::previewText(const QString &bilingualTemplate)
{
    QString text = bilingualTemplate;
    text.replace(QStringLiteral("{original}"), sampleOriginal);
    text.replace(QStringLiteral("{translated}"), sampleTranslated);
    return text;
}

const QList<int> &GeneralSettingsTab::dismissDelayChoices()
{
    static const QList<int> choices{5, 10, 30, 60, 0};
    return choices;
}

GeneralSettingsTab::GeneralSettingsTab(QWidget *parent)
    : QScrollArea(parent)
{
    setFrameShape(QFrame::NoFrame);
    setWidgetResizable(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    buildLayout();
    loadValues();
    // Other parts of the program may change a setting while the window is open.
    AppState &state = AppState::shared();
    connect(&state, &AppState::autoReplaceChanged, this, &GeneralSettingsTab::showState);
    connect(&state, &AppState::inlineTranslationEnabledChanged, this, &GeneralSettingsTab::showState);
    connect(&state, &AppState::popupDismissDelayChanged, this, &GeneralSettingsTab::showState);
    connect(&state, &AppState::outputModeChanged, this, &GeneralSettingsTab::showState);
    connect(&state, &AppState::bilingualTemplateChanged, this, &GeneralSettingsTab::showState);
    connect(&state, &AppState::defaultLanguageChanged, this, &GeneralSettingsTab::showState);
}

GeneralSettingsTab::~GeneralSettingsTab() = default;

void GeneralSettingsTab::buildLayout()
{
    auto *document = new QWidget(this);
    document->setAutoFillBackground(false);
    auto *mainStack = new QVBoxLayout(document);
    mainStack->setContentsMargins(24, 20, 24, 20);
    mainStack->setSpacing(0);

    // Behaviour.
    stack(mainStack, sectionTitle(qtTrId("general.section.behavior"), document));
    m_launchAtLogin = new QCheckBox(qtTrId("general.launch_at_login"), document);
    m_autoReplace = new QCheckBox(qtTrId("general.auto_replace"), document);
    m_inlineTranslation = new QCheckBox(qtTrId("general.inline_translation"), document);
    connect(m_launchAtLogin, &QCheckBox::clicked, this, &GeneralSettingsTab::toggleLaunchAtLogin);
    connect(m_autoReplace, &QCheckBox::clicked, this, &GeneralSettingsTab::toggleAutoReplace);
    connect(m_inlineTranslation, &QCheckBox::clicked, this, &GeneralSettingsTab::toggleInlineTranslation);
    stack(mainStack, m_launchAtLogin);
    stack(mainStack, m_autoReplace);
    stack(mainStack, m_inlineTranslation);
    QLabel *inlineNote = note(qtTrId("general.inline_note"), document);
    inlineNote->setWordWrap(true);
    stack(mainStack, inlineNote);

    auto *delayRow = new QHBoxLayout;
    delayRow->setSpacing(8);
    delayRow->addWidget(new QLabel(qtTrId("general.popup_dismiss_delay"), document));
    m_popupDismiss = new SettingsMenu(document);
    static const char *const delayTitles[] = {"general.popup_dismiss_5s", "general.popup_dismiss_10s",
                                              "general.popup_dismiss_30s", "general.popup_dismiss_60s",
                                              "general.popup_dismiss_never"};
    for (int i = 0; i < dismissDelayChoices().size(); ++i)
        m_popupDismiss->addItem(qtTrId(delayTitles[i]), dismissDelayChoices().at(i));
    m_popupDismiss->setAccessibleName(qtTrId("general.popup_dismiss_delay"));
    connect(m_popupDismiss, &QComboBox::currentIndexChanged, this, &GeneralSettingsTab::popupDismissDelayChanged);
    delayRow->addWidget(m_popupDismiss);
    delayRow->addStretch(1);
    stack(mainStack, delayRow, sectionSpacing);
    stack(mainStack, separator(document), sectionSpacing);

    // Output format.
    stack(mainStack, sectionTitle(qtTrId("general.section.output_format"), document));
    m_translateOnly = new QRadioButton(qtTrId("general.translate_only"), document);
    m_bilingual = new QRadioButton(qtTrId("general.original_translation"), document);
    m_outputGroup = new QButtonGroup(this);
    m_outputGroup->addButton(m_translateOnly);
    m_outputGroup->addButton(m_bilingual);
    connect(m_translateOnly, &QRadioButton::clicked, this, &GeneralSettingsTab::outputModeChanged);
    connect(m_bilingual, &QRadioButton::clicked, this, &GeneralSettingsTab::outputModeChanged);
    stack(mainStack, m_translateOnly);
    stack(mainStack, m_bilingual, 8);
    // The box and the space after it come and go together.
    m_templateSection = new QWidget(document);
    auto *templateLayout = new QVBoxLayout(m_templateSection);
    templateLayout->setContentsMargins(0, 0, 0, 0);
    templateLayout->setSpacing(0);
    templateLayout->addWidget(buildTemplateBox());
    templateLayout->addSpacing(sectionSpacing);
    mainStack->addWidget(m_templateSection);
    m_translateOnlyGap = new QWidget(document);
    m_translateOnlyGap->setFixedHeight(sectionSpacing - 8);
    mainStack->addWidget(m_translateOnlyGap);
    stack(mainStack, separator(document), sectionSpacing);

    // Default language.
    stack(mainStack, sectionTitle(qtTrId("general.section.default_language"), document));
    auto *languageRow = new QHBoxLayout;
    languageRow->setSpacing(8);
    m_defaultLanguage = new SettingsMenu(document);
    for (const Language &language : supportedLanguages())
        m_defaultLanguage->addItem(language.name, language.code);
    m_defaultLanguage->setAccessibleName(qtTrId("general.section.default_language"));
    connect(m_defaultLanguage, &QComboBox::currentIndexChanged, this, &GeneralSettingsTab::defaultLanguageChanged);
    languageRow->addWidget(m_defaultLanguage);
    languageRow->addWidget(note(qtTrId("general.default_lang_note"), document));
    languageRow->addStretch(1);
    stack(mainStack, languageRow, sectionSpacing);
    stack(mainStack, separator(document), sectionSpacing);

    // Hotkeys.
    auto *hotkeyHeader = new QHBoxLayout;
    hotkeyHeader->setSpacing(8);
    hotkeyHeader->addWidget(sectionTitle(qtTrId("general.section.hotkeys"), document));
    m_addHotkey = new QPushButton(QStringLiteral("+"), document);
    m_addHotkey->setAutoDefault(false);
    m_addHotkey->setFixedWidth(HotkeyRowEditor::deleteWidth);
    m_addHotkey->setToolTip(qtTrId("hotkey.add"));
    m_addHotkey->setAccessibleName(qtTrId("hotkey.add"));
    connect(m_addHotkey, &QPushButton::clicked, this, &GeneralSettingsTab::addHotkey);
    hotkeyHeader->addWidget(m_addHotkey);
    hotkeyHeader->addStretch(1);
    stack(mainStack, hotkeyHeader);
    m_columnHeader = buildColumnHeader();
    stack(mainStack, m_columnHeader);
    m_hotkeyList = new QWidget(document);
    m_hotkeyStack = new QVBoxLayout(m_hotkeyList);
    m_hotkeyStack->setContentsMargins(0, 0, 0, 0);
    m_hotkeyStack->setSpacing(6);
    mainStack->addWidget(m_hotkeyList);
    // Content shorter than the view stays at the top.
    mainStack->addStretch(1);

    setWidget(document);
}

QWidget *GeneralSettingsTab::buildTemplateBox()
{
    m_templateBox = new QFrame;
    m_templateBox->setObjectName(QStringLiteral("templateBox"));
    m_templateBox->setStyleSheet(QStringLiteral("QFrame#templateBox { border: 1px solid palette(mid); border-radius: 8px;"
                                                " background: palette(base); }"));
    auto *layout = new QVBoxLayout(m_templateBox);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(6);
    layout->addWidget(caption(qtTrId("general.template"), m_templateBox));

    m_templateText = new QPlainTextEdit(m_templateBox);
    m_templateText->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_templateText->setFont(monospaced());
    m_templateText->document()->setDocumentMargin(6);
    // 56 pixels, or as much as the default template's three lines need in this font and frame.
    const int threeLines = 3 * QFontMetrics(monospaced()).lineSpacing() + 2 * 6 + 2 * m_templateText->frameWidth();
    m_templateText->setFixedHeight(std::max(56, threeLines));
    m_templateText->setTabChangesFocus(true);
    m_templateText->setAccessibleName(qtTrId("general.template"));
    connect(m_templateText, &QPlainTextEdit::textChanged, this, &GeneralSettingsTab::templateChanged);
    layout->addWidget(m_templateText);

    QLabel *hint = note(qtTrId("general.template_hint"), m_templateBox);
    hint->setWordWrap(true);
    layout->addWidget(hint);
    layout->addSpacing(10 - layout->spacing());
    layout->addWidget(caption(qtTrId("general.preview"), m_templateBox));

    m_preview = new QLabel(m_templateBox);
    m_preview->setTextFormat(Qt::PlainText);
    m_preview->setWordWrap(true);
    m_preview->setFont(monospaced());
    QPalette palette = m_preview->palette();
    palette.setColor(QPalette::WindowText, fadedText(m_preview, 150));
    m_preview->setPalette(palette);
    layout->addWidget(m_preview);
    return m_templateBox;
}

QWidget *GeneralSettingsTab::buildColumnHeader()
{
    auto *header = new QWidget;
    auto *layout = new QHBoxLayout(header);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    QLabel *language = caption(qtTrId("general.hotkeys.col.language"), header);
    QLabel *shortcut = caption(qtTrId("general.hotkeys.col.shortcut"), header);
    QLabel *enabled = caption(qtTrId("general.hotkeys.col.enabled"), header);
    language->setFixedWidth(HotkeyRowEditor::languageWidth + HotkeyRowEditor::recorderGap);
    shortcut->setFixedWidth(HotkeyRowEditor::recorderWidth + HotkeyRowEditor::toggleGap);
    enabled->setFixedWidth(HotkeyRowEditor::enabledColumnWidth(font()));
    layout->addWidget(language);
    layout->addWidget(shortcut);
    layout->addWidget(enabled);
    layout->addStretch(1);
    return header;
}

void GeneralSettingsTab::loadValues()
{
    showState();
    rebuildRows();
}

void GeneralSettingsTab::showState()
{
    AppState &state = AppState::shared();
    {
        const QSignalBlocker blocker(m_launchAtLogin);
        m_launchAtLogin->setChecked(LoginItem::shared().isEnabled());
    }
    m_autoReplace->setChecked(state.autoReplace());
    m_inlineTranslation->setChecked(state.inlineTranslationEnabled());
    {
        const QSignalBlocker blocker(m_popupDismiss);
        m_popupDismiss->setCurrentIndex(-1);
        for (int i = 0; i < m_popupDismiss->count(); ++i) {
            if (qFuzzyCompare(1.0 + m_popupDismiss->itemData(i).toDouble(), 1.0 + state.popupDismissDelay()))
                m_popupDismiss->setCurrentIndex(i);
        }
    }
    const bool bilingual = state.outputMode() == OutputMode::Bilingual;
    m_bilingual->setChecked(bilingual);
    m_translateOnly->setChecked(!bilingual);
    showTemplateBox(bilingual);
    if (m_templateText->toPlainText() != state.bilingualTemplate()) {
        const QSignalBlocker blocker(m_templateText);
        m_templateText->setPlainText(state.bilingualTemplate());
    }
    m_preview->setText(previewText(m_templateText->toPlainText()));
    {
        const QSignalBlocker blocker(m_defaultLanguage);
        m_defaultLanguage->setCurrentIndex(m_defaultLanguage->findData(state.defaultLanguage()));
    }
}

void GeneralSettingsTab::showEvent(QShowEvent *event)
{
    // The login item can change outside the program; the rest is ours and stays as it is.
    const QSignalBlocker blocker(m_launchAtLogin);
    m_launchAtLogin->setChecked(LoginItem::shared().isEnabled());
    QScrollArea::showEvent(event);
}

QList<HotkeyRowEditor *> GeneralSettingsTab::hotkeyRows() const
{
    QList<HotkeyRowEditor *> rows;
    for (int i = 0; i < m_hotkeyStack->count(); ++i) {
        if (auto *row = qobject_cast<HotkeyRowEditor *>(m_hotkeyStack->itemAt(i)->widget()))
            rows << row;
    }
    return rows;
}

void GeneralSettingsTab::rebuildRows()
{
    while (QLayoutItem *item = m_hotkeyStack->takeAt(0)) {
        if (auto *row = qobject_cast<HotkeyRowEditor *>(item->widget())) {
            row->recorder()->stopRecording(); // gives our hot keys back
            row->hide();
            row->deleteLater(); // a row may be rebuilding us from inside its own handler
        }
        delete item;
    }
    for (const HotkeyConfig &config : m_bindings.configs()) {
        auto *row = new HotkeyRowEditor(config, m_bindings, [this] { rebuildRows(); }, m_hotkeyList);
        m_hotkeyStack->addWidget(row);
    }
}

void GeneralSettingsTab::toggleLaunchAtLogin()
{
    const bool enable = m_launchAtLogin->isChecked();
    if (!LoginItem::shared().setEnabled(enable))
        logLine("Settings", QStringLiteral("Launch at login error: could not %1 the login item")
                                .arg(enable ? QStringLiteral("register") : QStringLiteral("unregister")));
}

void GeneralSettingsTab::toggleAutoReplace()
{
    const bool value = m_autoReplace->isChecked();
    AppState::shared().setAutoReplace(value);
    SettingsStore::shared().setBool(SettingsKeys::autoReplace, value);
}

void GeneralSettingsTab::toggleInlineTranslation()
{
    // The inline translation manager follows AppState: it starts or stops its key watcher.
    const bool value = m_inlineTranslation->isChecked();
    AppState::shared().setInlineTranslationEnabled(value);
    SettingsStore::shared().setBool(SettingsKeys::inlineTranslationEnabled, value);
}

void GeneralSettingsTab::popupDismissDelayChanged()
{
    bool isNumber = false;
    const double seconds = m_popupDismiss->currentData().toDouble(&isNumber);
    if (!isNumber)
        return;
    AppState::shared().setPopupDismissDelay(seconds);
    SettingsStore::shared().setNumber(SettingsKeys::popupDismissDelay, seconds);
}

void GeneralSettingsTab::outputModeChanged()
{
    const OutputMode mode = m_bilingual->isChecked() ? OutputMode::Bilingual : OutputMode::TranslateOnly;
    AppState::shared().setOutputMode(mode);
    SettingsStore::shared().setString(SettingsKeys::outputMode, rawValue(mode));
    showTemplateBox(mode == OutputMode::Bilingual);
}

void GeneralSettingsTab::showTemplateBox(bool visible)
{
    m_templateSection->setVisible(visible);
    m_translateOnlyGap->setVisible(!visible);
}

void GeneralSettingsTab::templateChanged()
{
    const QString text = m_templateText->toPlainText();
    AppState::shared().setBilingualTemplate(text);
    SettingsStore::shared().setString(SettingsKeys::bilingualTemplate, text);
    m_preview->setText(previewText(text));
}

void GeneralSettingsTab::defaultLanguageChanged()
{
    const QString code = m_defaultLanguage->currentData().toString();
    if (code.isEmpty())
        return;
    AppState::shared().setDefaultLanguage(code);
    SettingsStore::shared().setString(SettingsKeys::defaultLanguage, code);
}

void GeneralSettingsTab::addHotkey()
{
    QSet<QString> used;
    for (const HotkeyConfig &config : m_bindings.configs())
        used.insert(config.targetLanguage);
    QString language = QStringLiteral("en");
    for (const Language &candidate : supportedLanguages()) {
        if (!used.contains(candidate.code)) {
            language = candidate.code;
            break;
        }
    }
    HotkeyConfig config;
    config.id = QUuid::createUuid();
    config.targetLanguage = language;
    config.keyCode = 0;
    config.modifiers = Modifier::Command | Modifier::Shift;
    config.isEnabled = false;
    m_bindings.append(config, false);
    rebuildRows();
}
