// The settings window on the test session's real X server: every General control's effect on
// AppState, the stored settings and the part of the program it drives; the hotkey rows; the
// shortcut recorder fed with real XTest key presses (xdotool); a shortcut held by another X client
// reported through the notification server; screenshots of the window.
#include "support/NoticeWatch.h"
#include "support/DesktopApp.h"
#include "support/TestSupport.h"
#include "support/TrayProgram.h"
#include "state/AppState.h"
#include "state/KeyCodes.h"
#include "state/Languages.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"
#include "system/HotkeyManager.h"
#include "system/LoginItem.h"
#include "ui/GeneralSettingsTab.h"
#include "ui/Localisation.h"
#include "ui/MenuBarController.h"
#include "ui/NotificationManager.h"
#include "ui/SettingsWindow.h"
#include "ui/ShortcutRecorder.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QScopeGuard>
#include <QTest>

namespace {

constexpr quint32 commandShift = Modifier::Command | Modifier::Shift;

HotkeyConfig binding(const QString &language, quint32 keyCode, quint32 modifiers, bool enabled)
{
    return HotkeyConfig{QUuid::createUuid(), language, keyCode, modifiers, enabled};
}

// What a freshly started program would read from the settings file.
struct Reread {
    explicit Reread(const QString &path)
        : store(path)
        , state(store)
    {
    }
    JsonSettingsStore store;
    AppState state;
};

// The languages our hot keys are registered for, in registration order.
QStringList registeredLanguages()
{
    QStringList languages;
    for (const HotkeyManager::Registration &registration : HotkeyManager::shared().registeredHotkeys())
        languages << registration.config.targetLanguage;
    return languages;
}

// A real mouse click (XTest) at a point of the screen, or in the middle of a widget.
bool clickAt(QPoint point)
{
    return !runTool(QStringLiteral("xdotool"), {QStringLiteral("mousemove"), QString::number(point.x()),
                                                QString::number(point.y()), QStringLiteral("click"), QStringLiteral("1")})
                .contains(QLatin1String("error"), Qt::CaseInsensitive);
}

bool clickOn(const QWidget *widget) { return clickAt(widget->mapToGlobal(widget->rect().center())); }

// Clicks the recorder for real and waits until it records.
bool startRecording(ShortcutRecorder *recorder)
{
    return clickOn(recorder) && QTest::qWaitFor([recorder] { return recorder->isRecording(); });
}

QAbstractButton *buttonTitled(const QMessageBox *box, const QString &title)
{
    for (QAbstractButton *button : box->buttons()) {
        if (button->text() == title)
            return button;
    }
    return nullptr;
}

// The screen centre of the first showing object of a process with this accessible name.
std::optional<QPoint> accessibleCentre(qint64 pid, const QString &name)
{
    const QString dump = runTool(QStringLiteral("/usr/bin/python3"),
                                 {qEnvironmentVariable("PARLANTO_TEST_SCRIPTS_DIR") + QStringLiteral("/atspi_dump.py"),
                                  QString::number(pid)});
    for (const QJsonValue &value : QJsonDocument::fromJson(dump.toUtf8()).array()) {
        const QJsonObject object = value.toObject();
        const QJsonArray box = object.value(QStringLiteral("extents")).toArray();
        if (object.value(QStringLiteral("name")).toString() == name && box.size() == 4)
            return QPoint(box.at(0).toInt() + box.at(2).toInt() / 2, box.at(1).toInt() + box.at(3).toInt() / 2);
    }
    return std::nullopt;
}

} // namespace

class SettingsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void windowIsFixedAndSurvivesClosing();
    void behaviourSwitchesTakeEffectAtOnce();
    void menusStoreTheirChoice();
    void templatePreview_data();
    void templatePreview();
    void outputFormatShowsTheTemplateBox();
    void addingRowsWhenEveryLanguageIsBound();
    void rowEditsStoreAndRegister();
    void recorderTakesRealKeyPresses();
    void recordsThePhysicalKey();
    void pasteShortcutAsksFirst();
    void shortcutHeldByAnotherClientGivesNotice();
    void screenshots();
    void programAppliesTheSwitchesAndKeepsThem();

private:
    void storeBindings(const QList<HotkeyConfig> &configs) { saveHotkeyConfigs(*m_store, configs); }
    // A shown, active settings window whose General tab was built from the stored settings.
    std::unique_ptr<SettingsWindow> shownWindow();
    QString settingsPath() const { return m_config.filePath(QStringLiteral("settings.json")); }

    QTemporaryDir m_config;
    JsonSettingsStore *m_store = nullptr;
};

void SettingsTest::initTestCase()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "no DISPLAY: run the tests through scripts/test");
    auto store = std::make_unique<JsonSettingsStore>(settingsPath());
    m_store = store.get();
    SettingsStore::setShared(std::move(store));
    installTranslations(QLocale(QLocale::English));
    HotkeyManager &hotkeys = HotkeyManager::shared();
    hotkeys.setNotifier([](const QString &identifier, const QString &title, const QString &body) {
        NotificationManager::shared().post(title, body, {}, identifier);
    });
    hotkeys.setHotkeyCallback([](const QString &) {});
    hotkeys.installEventHandler();
}

void SettingsTest::init()
{
    HotkeyManager::shared().unregisterAll();
    storeBindings({});
}

std::unique_ptr<SettingsWindow> SettingsTest::shownWindow()
{
    auto window = std::make_unique<SettingsWindow>();
    window->showAndActivate();
    if (!QTest::qWaitForWindowActive(window.get()))
        return nullptr;
    return window;
}

void SettingsTest::windowIsFixedAndSurvivesClosing()
{
    SettingsWindow window;
    QCOMPARE(window.windowTitle(), QStringLiteral("Parlanto Settings"));
    QCOMPARE(window.size(), QSize(600, 660));
    QCOMPARE(window.minimumSize(), window.maximumSize());
    QTabWidget *tabs = window.tabs();
    QCOMPARE(tabs->tabText(0), QStringLiteral("General"));
    QVERIFY(!tabs->tabIcon(0).isNull());
    QCOMPARE(tabs->count(), 2);
    QCOMPARE(tabs->tabText(1), QStringLiteral("Translation"));
    QCOMPARE(tabs->currentIndex(), 0);

    QSignalSpy lastClosed(qApp, &QGuiApplication::lastWindowClosed);
    window.showAndActivate();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    window.move(window.pos() + QPoint(37, 23));
    QTRY_VERIFY(window.isVisible());
    const QPoint placed = window.pos();
    GeneralSettingsTab *general = window.generalTab();
    general->autoReplaceCheckbox()->click();
    const bool autoReplace = general->autoReplaceCheckbox()->isChecked();
    tabs->setCurrentIndex(1);

    QVERIFY(window.close());
    QVERIFY(!window.isVisible());
    QTest::qWait(50);
    QCOMPARE(lastClosed.count(), 0); // closing the settings never ends the program

    // The tray menu's Settings item brings back this very window.
    MenuBarController menuBar;
    menuBar.setSettingsWindow(&window);
    menuBar.openSettings();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QCOMPARE(window.generalTab(), general);
    QCOMPARE(general->autoReplaceCheckbox()->isChecked(), autoReplace);
    QCOMPARE(tabs->currentIndex(), 1);
    tabs->setCurrentIndex(0);
    QTRY_COMPARE(window.pos(), placed);
    QCOMPARE(window.size(), QSize(600, 660));
    general->autoReplaceCheckbox()->click();
}

void SettingsTest::behaviourSwitchesTakeEffectAtOnce()
{
    AppState &state = AppState::shared();
    GeneralSettingsTab tab;
    QVERIFY(state.autoReplace());
    QVERIFY(tab.autoReplaceCheckbox()->isChecked());
    QVERIFY(!tab.inlineTranslationCheckbox()->isChecked());
    QVERIFY(!tab.launchAtLoginCheckbox()->isChecked());

    QSignalSpy autoReplaceChanged(&state, &AppState::autoReplaceChanged);
    tab.autoReplaceCheckbox()->click();
    QCOMPARE(autoReplaceChanged.count(), 1);
    QCOMPARE(state.autoReplace(), false);
    QCOMPARE(m_store->boolValue(SettingsKeys::autoReplace), std::optional(false));

    // The inline engine follows the state's signal: switching off stops it without a restart.
    QSignalSpy inlineChanged(&state, &AppState::inlineTranslationEnabledChanged);
    tab.inlineTranslationCheckbox()->click();
    QCOMPARE(state.inlineTranslationEnabled(), true);
    QCOMPARE(m_store->boolValue(SettingsKeys::inlineTranslationEnabled), std::optional(true));
    {
        Reread again(settingsPath());
        QCOMPARE(AppState::storedAutoReplace(again.store), false);
        QCOMPARE(again.state.inlineTranslationEnabled(), true);
    }
    tab.inlineTranslationCheckbox()->click();
    QCOMPARE(inlineChanged.count(), 2);
    QCOMPARE(inlineChanged.last().first().toBool(), false);
    QCOMPARE(m_store->boolValue(SettingsKeys::inlineTranslationEnabled), std::optional(false));

    // Launch at login is the system's autostart entry, not a stored setting.
    const QString autostart = LoginItem::autostartFilePath();
    QVERIFY(!QFile::exists(autostart));
    tab.launchAtLoginCheckbox()->click();
    QVERIFY(LoginItem::shared().isEnabled());
    QVERIFY2(QFile::exists(autostart), qPrintable(autostart));
    GeneralSettingsTab reopened;
    QVERIFY(reopened.launchAtLoginCheckbox()->isChecked());
    QVERIFY(!reopened.autoReplaceCheckbox()->isChecked());
    tab.launchAtLoginCheckbox()->click();
    QVERIFY(!LoginItem::shared().isEnabled());
    QVERIFY(!QFile::exists(autostart));

    tab.autoReplaceCheckbox()->click();
    QCOMPARE(state.autoReplace(), true);
    QCOMPARE(Reread(settingsPath()).store.boolValue(SettingsKeys::autoReplace), std::optional(true));
}

void SettingsTest::menusStoreTheirChoice()
{
    AppState &state = AppState::shared();
    GeneralSettingsTab tab;
    QComboBox *delay = tab.popupDismissPopup();
    QCOMPARE(delay->count(), 5);
    QCOMPARE(delay->currentText(), QStringLiteral("10 seconds"));

    delay->setCurrentIndex(delay->findText(QStringLiteral("Never")));
    QCOMPARE(state.popupDismissDelay(), 0.0);
    QCOMPARE(m_store->numberValue(SettingsKeys::popupDismissDelay), std::optional(0.0));
    delay->setCurrentIndex(delay->findText(QStringLiteral("30 seconds")));
    QCOMPARE(state.popupDismissDelay(), 30.0);
    QCOMPARE(Reread(settingsPath()).state.popupDismissDelay(), 30.0);

    QComboBox *language = tab.defaultLanguagePopup();
    QCOMPARE(language->count(), supportedLanguages().size());
    QCOMPARE(language->itemText(3), QStringLiteral("Chinese (Simplified)"));
    QCOMPARE(language->currentData().toString(), QStringLiteral("en"));
    language->setCurrentIndex(language->findData(QStringLiteral("ja")));
    QCOMPARE(state.defaultLanguage(), QStringLiteral("ja"));
    QCOMPARE(m_store->stringValue(SettingsKeys::defaultLanguage), std::optional(QStringLiteral("ja")));
    QCOMPARE(Reread(settingsPath()).state.defaultLanguage(), QStringLiteral("ja"));

    GeneralSettingsTab reopened;
    QCOMPARE(reopened.popupDismissPopup()->currentText(), QStringLiteral("30 seconds"));
    QCOMPARE(reopened.defaultLanguagePopup()->currentText(), QStringLiteral("Japanese"));

    delay->setCurrentIndex(delay->findText(QStringLiteral("10 seconds")));
    language->setCurrentIndex(0);
    QCOMPARE(state.defaultLanguage(), QStringLiteral("en"));
}

void SettingsTest::templatePreview_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("preview");
    QTest::newRow("default") << AppState::defaultTemplate << QStringLiteral("Good morning!\n\nCh\u00E0o bu\u1ED5i s\u00E1ng!");
    QTest::newRow("translation only") << QStringLiteral("{translated}") << QStringLiteral("Ch\u00E0o bu\u1ED5i s\u00E1ng!");
    QTest::newRow("no placeholders") << QStringLiteral("Just \"text\" -- here") << QStringLiteral("Just \"text\" -- here");
    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("literal and case-sensitive")
        << QStringLiteral("{Original} {x} [{original}] {translated}{translated}")
        << QStringLiteral("{Original} {x} [Good morning!] Ch\u00E0o bu\u1ED5i s\u00E1ng!Ch\u00E0o bu\u1ED5i s\u00E1ng!");
}

void SettingsTest::templatePreview()
{
    QFETCH(QString, text);
    QFETCH(QString, preview);
    GeneralSettingsTab tab;
    tab.templateTextView()->setPlainText(text);
    QCOMPARE(tab.previewLabel()->text(), preview);
    QCOMPARE(AppState::shared().bilingualTemplate(), text);
    QCOMPARE(m_store->stringValue(SettingsKeys::bilingualTemplate), std::optional(text));
    tab.templateTextView()->setPlainText(AppState::defaultTemplate);
}

void SettingsTest::outputFormatShowsTheTemplateBox()
{
    AppState &state = AppState::shared();
    GeneralSettingsTab tab;
    tab.show();
    QVERIFY(QTest::qWaitForWindowExposed(&tab));
    QVERIFY(tab.translateOnlyRadio()->isChecked());
    QVERIFY(!tab.templateBox()->isVisible());

    tab.bilingualRadio()->click();
    QCOMPARE(state.outputMode(), OutputMode::Bilingual);
    QCOMPARE(m_store->stringValue(SettingsKeys::outputMode), std::optional(QStringLiteral("bilingual")));
    QVERIFY(tab.templateBox()->isVisible());
    QVERIFY(!tab.translateOnlyRadio()->isChecked());

    // Typed for real: braces and quotes stay exactly as typed.
    tab.templateTextView()->setFocus();
    tab.templateTextView()->selectAll();
    QTest::keyClicks(tab.templateTextView(), QStringLiteral("\"{translated}\" <- {original}"));
    const QString typed = QStringLiteral("\"{translated}\" <- {original}");
    QCOMPARE(state.bilingualTemplate(), typed);
    QCOMPARE(tab.previewLabel()->text(), QStringLiteral("\"Ch\u00E0o bu\u1ED5i s\u00E1ng!\" <- Good morning!"));

    tab.translateOnlyRadio()->click();
    QCOMPARE(state.outputMode(), OutputMode::TranslateOnly);
    QCOMPARE(m_store->stringValue(SettingsKeys::outputMode), std::optional(QStringLiteral("translate_only")));
    QVERIFY(!tab.templateBox()->isVisible());
    tab.bilingualRadio()->click();
    QVERIFY(tab.templateBox()->isVisible());
    QCOMPARE(tab.templateTextView()->toPlainText(), typed);
    {
        Reread again(settingsPath());
        QCOMPARE(again.state.outputMode(), OutputMode::Bilingual);
        QCOMPARE(again.state.bilingualTemplate(), typed);
    }
    tab.templateTextView()->setPlainText(AppState::defaultTemplate);
    tab.translateOnlyRadio()->click();
}

void SettingsTest::addingRowsWhenEveryLanguageIsBound()
{
    GeneralSettingsTab tab;
    QCOMPARE(tab.hotkeyRows().size(), 0);
    for (int i = 0; i < supportedLanguages().size() + 1; ++i)
        tab.addHotkeyButton()->click();

    const QList<HotkeyConfig> stored = loadHotkeyConfigs(*m_store);
    QCOMPARE(stored.size(), supportedLanguages().size() + 1);
    for (int i = 0; i < supportedLanguages().size(); ++i)
        QCOMPARE(stored.at(i).targetLanguage, supportedLanguages().at(i).code);
    QCOMPARE(stored.last().targetLanguage, QStringLiteral("en"));
    for (const HotkeyConfig &config : stored) {
        QCOMPARE(config.keyCode, 0u);
        QCOMPARE(config.modifiers, commandShift);
        QVERIFY(!config.isEnabled);
    }
    QVERIFY(registeredLanguages().isEmpty()); // new rows start switched off

    const QList<HotkeyRowEditor *> rows = tab.hotkeyRows();
    QCOMPARE(rows.size(), stored.size());
    QCOMPARE(rows.at(3)->languageMenu()->currentData().toString(), QStringLiteral("zh"));
    QCOMPARE(rows.at(3)->recorder()->text(), QStringLiteral("Ctrl+Shift+A"));
    QVERIFY(!rows.at(3)->enableToggle()->isChecked());

    // Deleting frees the language for the next row.
    rows.at(3)->deleteButton()->click();
    QTRY_COMPARE(tab.hotkeyRows().size(), stored.size() - 1);
    QCOMPARE(loadHotkeyConfigs(*m_store).size(), stored.size() - 1);
    tab.addHotkeyButton()->click();
    QCOMPARE(loadHotkeyConfigs(*m_store).last().targetLanguage, QStringLiteral("zh"));
}

void SettingsTest::rowEditsStoreAndRegister()
{
    const HotkeyConfig english = binding(QStringLiteral("en"), KeyCodes::E, Modifier::Command | Modifier::Option, true);
    const HotkeyConfig spare = binding(QStringLiteral("fr"), 38 /* J */, Modifier::Command | Modifier::Option, false);
    storeBindings({english, spare});
    GeneralSettingsTab tab;
    const QList<HotkeyRowEditor *> rows = tab.hotkeyRows();
    QCOMPARE(rows.size(), 2);
    QCOMPARE(rows.at(0)->recorder()->text(), QStringLiteral("Ctrl+Alt+E"));
    QVERIFY(rows.at(0)->enableToggle()->isChecked());
    QCOMPARE(rows.at(1)->languageMenu()->currentText(), QStringLiteral("French"));

    rows.at(1)->enableToggle()->click();
    QCOMPARE(registeredLanguages(), (QStringList{QStringLiteral("en"), QStringLiteral("fr")}));
    QVERIFY(loadHotkeyConfigs(*m_store).at(1).isEnabled);

    rows.at(1)->languageMenu()->setCurrentIndex(rows.at(1)->languageMenu()->findData(QStringLiteral("de")));
    QCOMPARE(registeredLanguages(), (QStringList{QStringLiteral("en"), QStringLiteral("de")}));
    QCOMPARE(loadHotkeyConfigs(*m_store).at(1).targetLanguage, QStringLiteral("de"));
    QCOMPARE(loadHotkeyConfigs(*m_store).at(1).id, spare.id);

    rows.at(0)->enableToggle()->click();
    QCOMPARE(registeredLanguages(), QStringList{QStringLiteral("de")});
    rows.at(0)->deleteButton()->click();
    QTRY_COMPARE(tab.hotkeyRows().size(), 1);
    const QList<HotkeyConfig> left = loadHotkeyConfigs(*m_store);
    QCOMPARE(left.size(), 1);
    QCOMPARE(left.first().id, spare.id);
    QCOMPARE(left.first().targetLanguage, QStringLiteral("de"));
    QCOMPARE(registeredLanguages(), QStringList{QStringLiteral("de")});

    ShortcutRecorder unset;
    QCOMPARE(unset.text(), QStringLiteral("Click to set"));
}

void SettingsTest::recorderTakesRealKeyPresses()
{
    // The first row's Ctrl+Shift+E is grabbed by us; the recorder must still be able to take it.
    const HotkeyConfig english = binding(QStringLiteral("en"), KeyCodes::E, commandShift, true);
    const HotkeyConfig french = binding(QStringLiteral("fr"), KeyCodes::C, Modifier::Command | Modifier::Option, true);
    storeBindings({english, french});
    HotkeyManager::shared().registerHotkeys({english, french}, false);
    std::unique_ptr<SettingsWindow> window = shownWindow();
    QVERIFY(window);
    HotkeyRowEditor *row = window->generalTab()->hotkeyRows().at(1);
    ShortcutRecorder *recorder = row->recorder();
    QCOMPARE(recorder->text(), QStringLiteral("Ctrl+Alt+C"));

    QVERIFY(startRecording(recorder));
    QCOMPARE(recorder->text(), QStringLiteral("Type shortcut\u2026"));
    QVERIFY(registeredLanguages().isEmpty()); // released while recording

    // A alone is not a shortcut; Shift+A is.
    QVERIFY(pressKeys({QStringLiteral("a")}));
    QVERIFY(pressKeys({QStringLiteral("shift+a")}));
    QTRY_VERIFY(!recorder->isRecording());
    QCOMPARE(recorder->text(), QStringLiteral("Shift+A"));
    QCOMPARE(row->config().keyCode, KeyCodes::A);
    QCOMPARE(row->config().modifiers, Modifier::Shift);
    QCOMPARE(loadHotkeyConfigs(*m_store).at(1).keyCode, KeyCodes::A);
    QCOMPARE(loadHotkeyConfigs(*m_store).at(1).modifiers, Modifier::Shift);
    QCOMPARE(registeredLanguages(), (QStringList{QStringLiteral("en"), QStringLiteral("fr")}));

    // Escape cancels, with or without modifiers, and the old shortcut stays.
    for (const QString &escape : {QStringLiteral("Escape"), QStringLiteral("ctrl+shift+Escape")}) {
        QVERIFY(startRecording(recorder));
        QVERIFY(pressKeys({escape}));
        QTRY_VERIFY(!recorder->isRecording());
        QCOMPARE(recorder->text(), QStringLiteral("Shift+A"));
        QCOMPARE(loadHotkeyConfigs(*m_store).at(1).modifiers, Modifier::Shift);
    }
    QCOMPARE(registeredLanguages(), (QStringList{QStringLiteral("en"), QStringLiteral("fr")}));

    // A second click stops recording too.
    QVERIFY(startRecording(recorder));
    QVERIFY(clickOn(recorder));
    QTRY_VERIFY(!recorder->isRecording());
    QCOMPARE(recorder->text(), QStringLiteral("Shift+A"));

    // A key held by our own grab reaches the recorder (here the row that owns it records it
    // again), and Super counts as Control.
    ShortcutRecorder *englishRecorder = window->generalTab()->hotkeyRows().at(0)->recorder();
    QVERIFY(startRecording(englishRecorder));
    QVERIFY(pressKeys({QStringLiteral("ctrl+shift+e")}));
    QTRY_VERIFY(!englishRecorder->isRecording());
    QCOMPARE(englishRecorder->text(), QStringLiteral("Ctrl+Shift+E"));
    QCOMPARE(loadHotkeyConfigs(*m_store).at(0).keyCode, KeyCodes::E);
    QCOMPARE(registeredLanguages(), (QStringList{QStringLiteral("en"), QStringLiteral("fr")}));
    QVERIFY(startRecording(recorder));
    QVERIFY(pressKeys({QStringLiteral("super+alt+F5")}));
    QTRY_VERIFY(!recorder->isRecording());
    QCOMPARE(recorder->text(), QStringLiteral("Alt+Super+F5"));
    QCOMPARE(loadHotkeyConfigs(*m_store).at(1).keyCode, 96u);
    QCOMPARE(loadHotkeyConfigs(*m_store).at(1).modifiers, Modifier::Option | Modifier::Control);

    // Deleting the row while it records gives the keyboard back.
    QVERIFY(startRecording(recorder));
    QVERIFY(recorder->isRecording());
    row->deleteButton()->click();
    QTRY_COMPARE(window->generalTab()->hotkeyRows().size(), 1);
    QCOMPARE(registeredLanguages(), QStringList{QStringLiteral("en")});
    QLineEdit probe;
    probe.show();
    probe.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&probe));
    QVERIFY(pressKeys({QStringLiteral("x")}));
    QTRY_COMPARE(probe.text(), QStringLiteral("x"));
}

void SettingsTest::recordsThePhysicalKey()
{
    // On a French (AZERTY) layout the key typing "q" sits where QWERTY has A: the binding is that
    // key, and it reads as A whatever the layout.
    storeBindings({binding(QStringLiteral("fr"), KeyCodes::C, Modifier::Command | Modifier::Option, true)});
    std::unique_ptr<SettingsWindow> window = shownWindow();
    QVERIFY(window);
    ShortcutRecorder *recorder = window->generalTab()->hotkeyRows().first()->recorder();
    QCOMPARE(runTool(QStringLiteral("setxkbmap"), {QStringLiteral("fr")}), QString());
    const auto restoreLayout = qScopeGuard([] { runTool(QStringLiteral("setxkbmap"), {QStringLiteral("us")}); });
    QVERIFY(runTool(QStringLiteral("setxkbmap"), {QStringLiteral("-query")}).contains(QLatin1String("fr")));
    QVERIFY(startRecording(recorder));
    QVERIFY(pressKeys({QStringLiteral("ctrl+q")}));
    QTRY_VERIFY(!recorder->isRecording());
    QCOMPARE(loadHotkeyConfigs(*m_store).first().keyCode, KeyCodes::A);
    QCOMPARE(loadHotkeyConfigs(*m_store).first().modifiers, Modifier::Command);
    QCOMPARE(recorder->text(), QStringLiteral("Ctrl+A"));
}

void SettingsTest::pasteShortcutAsksFirst()
{
    const HotkeyConfig french = binding(QStringLiteral("fr"), KeyCodes::C, Modifier::Command | Modifier::Option, true);
    storeBindings({french});
    std::unique_ptr<SettingsWindow> window = shownWindow();
    QVERIFY(window);
    HotkeyRowEditor *row = window->generalTab()->hotkeyRows().first();

    // Cancel keeps the old binding.
    QVERIFY(startRecording(row->recorder()));
    QVERIFY(pressKeys({QStringLiteral("ctrl+shift+v")}));
    QTRY_VERIFY(row->pendingConfirmation() && row->pendingConfirmation()->isVisible());
    QMessageBox *question = row->pendingConfirmation();
    QCOMPARE(question->text(), QStringLiteral("This shortcut is often used to paste without formatting"));
    QVERIFY(QTest::qWaitForWindowExposed(question));
    QVERIFY(buttonTitled(question, QStringLiteral("Use Anyway")));
    QVERIFY(clickOn(buttonTitled(question, QStringLiteral("Cancel"))));
    QTRY_VERIFY(!row->pendingConfirmation());
    QCOMPARE(row->recorder()->text(), QStringLiteral("Ctrl+Alt+C"));
    QCOMPARE(loadHotkeyConfigs(*m_store).first(), french);

    // "Use Anyway" applies it.
    QVERIFY(QTest::qWaitForWindowActive(window.get()));
    QVERIFY(startRecording(row->recorder()));
    QVERIFY(pressKeys({QStringLiteral("ctrl+shift+v")}));
    QTRY_VERIFY(row->pendingConfirmation() && row->pendingConfirmation()->isVisible());
    QVERIFY(QTest::qWaitForWindowExposed(row->pendingConfirmation()));
    QVERIFY(clickOn(buttonTitled(row->pendingConfirmation(), QStringLiteral("Use Anyway"))));
    QTRY_COMPARE(row->recorder()->text(), QStringLiteral("Ctrl+Shift+V"));
    QCOMPARE(loadHotkeyConfigs(*m_store).first().keyCode, KeyCodes::V);
    QCOMPARE(loadHotkeyConfigs(*m_store).first().modifiers, commandShift);

    // Another V shortcut does not ask.
    QVERIFY(QTest::qWaitForWindowActive(window.get()));
    QVERIFY(startRecording(row->recorder()));
    QVERIFY(pressKeys({QStringLiteral("ctrl+alt+v")}));
    QTRY_COMPARE(row->recorder()->text(), QStringLiteral("Ctrl+Alt+V"));
    QVERIFY(!row->pendingConfirmation());
}

void SettingsTest::shortcutHeldByAnotherClientGivesNotice()
{
    // Another client holds Ctrl+Alt+K with NumLock on: the plain press still reaches the
    // recorder, but our grab, which covers every lock state, is refused.
    QProcess grabber;
    grabber.start(QStringLiteral("/usr/bin/python3"),
                  {qEnvironmentVariable("PARLANTO_TEST_SCRIPTS_DIR") + QStringLiteral("/key_grabber.py"), QStringLiteral("k"),
                   QStringLiteral("ctrl"), QStringLiteral("alt"), QStringLiteral("numlock")});
    QVERIFY(grabber.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(grabber.canReadLine(), 10000);
    QCOMPARE(grabber.readLine().trimmed(), QByteArray("ready"));

    auto watch = std::make_unique<NoticeWatch>();
    QVERIFY(watch->isListening());

    const HotkeyConfig french = binding(QStringLiteral("fr"), KeyCodes::C, Modifier::Command | Modifier::Option, true);
    storeBindings({french});
    std::unique_ptr<SettingsWindow> window = shownWindow();
    QVERIFY(window);
    HotkeyRowEditor *row = window->generalTab()->hotkeyRows().first();
    QVERIFY(startRecording(row->recorder()));
    QVERIFY(pressKeys({QStringLiteral("ctrl+alt+k")}));
    QTRY_COMPARE(row->recorder()->text(), QStringLiteral("Ctrl+Alt+K"));
    QVERIFY(registeredLanguages().isEmpty());
    QCOMPARE(loadHotkeyConfigs(*m_store).first().keyCode, 40u); // stored all the same
    const QString notice = QStringLiteral("string \"Ctrl+Alt+K couldn't be registered. It may already be in use by another app.\"");
    const auto notices = [&] { return int(watch->calls().count(notice)); };
    QTRY_COMPARE(notices(), 1);
    QVERIFY2(watch->sawString(QStringLiteral("Parlanto \u2014 Shortcut Conflict")), qPrintable(watch->calls()));

    // Switching the row off says nothing; switching it on again tells once more.
    row->enableToggle()->click();
    row->enableToggle()->click();
    QTRY_COMPARE(notices(), 2);
    QTest::qWait(300);
    QCOMPARE(notices(), 2);
    watch.reset();
    grabber.closeWriteChannel();
    QVERIFY(grabber.waitForFinished(5000));

    // Once the other client has let go, the same shortcut registers.
    row->enableToggle()->click();
    row->enableToggle()->click();
    QCOMPARE(registeredLanguages(), QStringList{QStringLiteral("fr")});
}

void SettingsTest::screenshots()
{
    storeBindings({binding(QStringLiteral("en"), KeyCodes::E, commandShift, true),
                   binding(QStringLiteral("vi"), KeyCodes::V, commandShift, true),
                   binding(QStringLiteral("ja"), 38, Modifier::Command | Modifier::Option, false)});
    std::unique_ptr<SettingsWindow> window = shownWindow();
    QVERIFY(window);
    GeneralSettingsTab *tab = window->generalTab();
    const auto shoot = [&](const QString &name) {
        QTest::qWait(200);
        const QRect frame = window->frameGeometry();
        runTool(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("-crop"),
                                       QStringLiteral("%1x%2+%3+%4").arg(frame.width()).arg(frame.height()).arg(frame.x()).arg(frame.y()),
                                       screenshotDir() + QLatin1Char('/') + name});
        QVERIFY(QFile::exists(screenshotDir() + QLatin1Char('/') + name));
    };
    tab->translateOnlyRadio()->click();
    shoot(QStringLiteral("settings-general-translate-only.png"));

    // Bilingual: the template box sits under the radios and the content scrolls.
    tab->bilingualRadio()->click();
    QVERIFY(tab->templateBox()->isVisible());
    const QPoint box = tab->templateBox()->mapTo(tab->widget(), QPoint(0, 0));
    const QPoint radio = tab->bilingualRadio()->mapTo(tab->widget(), QPoint(0, tab->bilingualRadio()->height()));
    QVERIFY(box.y() >= radio.y());
    QCOMPARE(box.x(), radio.x());
    QCOMPARE(tab->templateBox()->width(), tab->hotkeyColumnHeader()->width());
    shoot(QStringLiteral("settings-general-bilingual.png"));
    tab->verticalScrollBar()->setValue(tab->verticalScrollBar()->maximum());
    QVERIFY(startRecording(tab->hotkeyRows().at(1)->recorder()));
    shoot(QStringLiteral("settings-general-bilingual-hotkeys-recording.png"));
    QVERIFY(pressKeys({QStringLiteral("Escape")}));
    QTRY_VERIFY(!tab->hotkeyRows().at(1)->recorder()->isRecording());

    // The column titles sit over their columns.
    const HotkeyRowEditor *row = tab->hotkeyRows().first();
    const QPoint recorderAt = row->recorder()->mapTo(tab->widget(), QPoint(0, 0));
    const QPoint toggleAt = row->enableToggle()->mapTo(tab->widget(), QPoint(0, 0));
    QList<QLabel *> titles = tab->hotkeyColumnHeader()->findChildren<QLabel *>();
    QCOMPARE(titles.size(), 3);
    QCOMPARE(titles.at(1)->mapTo(tab->widget(), QPoint(0, 0)).x(), recorderAt.x());
    QCOMPARE(titles.at(2)->mapTo(tab->widget(), QPoint(0, 0)).x(), toggleAt.x());
    tab->translateOnlyRadio()->click();
}

void SettingsTest::programAppliesTheSwitchesAndKeepsThem()
{
    // The real program, opened through its link, its switches clicked where its accessibility
    // tree shows them; then started again.
    QTemporaryDir configHome;
    QVERIFY(writeSettingsFile(configHome.path(), R"({"has_launched_before": true})"));
    const QString inlineSwitch = QStringLiteral("Inline translation (type text, then @lang and a space)");
    const QString replaceSwitch = QStringLiteral("Replace the selected text with its translation");
    {
        TrayProgram program(configHome.path());
        QVERIFY(!program.waitForLine(QStringLiteral("[HotkeyManager] Registered")).isEmpty());
        TrayProgram link(configHome.path(), {}, {QStringLiteral("parlanto://settings")});
        QTRY_VERIFY_WITH_TIMEOUT(accessibleCentre(program.pid(), inlineSwitch).has_value(), 10000);

        QVERIFY(clickAt(*accessibleCentre(program.pid(), inlineSwitch)));
        QVERIFY(!program.waitForLine(QStringLiteral("[InlineTranslation] \u2713 Started")).isEmpty());
        QVERIFY(clickAt(*accessibleCentre(program.pid(), inlineSwitch)));
        QVERIFY(!program.waitForLine(QStringLiteral("[InlineTranslation] Stopped")).isEmpty());
        QVERIFY(clickAt(*accessibleCentre(program.pid(), inlineSwitch)));
        QVERIFY(!program.waitForLine(QStringLiteral("[InlineTranslation] \u2713 Started")).isEmpty());
        QVERIFY(clickAt(*accessibleCentre(program.pid(), replaceSwitch)));
        const auto storedAutoReplace = [&] {
            QFile file(configHome.filePath(QStringLiteral("parlanto/settings.json")));
            return file.open(QIODevice::ReadOnly)
                ? QJsonDocument::fromJson(file.readAll()).object().value(QStringLiteral("auto_replace"))
                : QJsonValue();
        };
        QTRY_COMPARE(storedAutoReplace(), QJsonValue(false));
    }
    TrayProgram again(configHome.path());
    const QString loaded = again.waitForLine(QStringLiteral("[Settings] loaded:"));
    QVERIFY2(loaded.contains(QLatin1String("auto_replace=false")), qPrintable(loaded));
    QVERIFY2(loaded.contains(QLatin1String("inline_translation_enabled=true")), qPrintable(loaded));
    QVERIFY(!again.waitForLine(QStringLiteral("[InlineTranslation] \u2713 Started")).isEmpty());
}

QTEST_MAIN(SettingsTest)
#include "tst_settings.moc"
