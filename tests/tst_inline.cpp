// Type-to-translate: the trigger rules of the keystroke buffer, the XInput 2 key watcher on the
// real X server (layouts, AltGr, dead keys, our own synthesised keys), and the whole inline
// translation typed through XTest (xdotool) into real applications of the desktop test session:
// mousepad (a GTK editor from Debian), our Qt editor and a GTK entry without accessibility,
// with a loopback translation service.
#include "app/ApplicationController.h"
#include "inline/InlineTranslationHUD.h"
#include "inline/InlineTranslationManager.h"
#include "inline/KeystrokeBuffer.h"
#include "service/TranslationService.h"
#include "state/AppState.h"
#include "state/HotkeyConfig.h"
#include "state/KeyCodes.h"
#include "state/Log.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"
#include "support/NoticeWatch.h"
#include "support/LogCapture.h"
#include "support/ClipboardFormats.h"
#include "support/DesktopApp.h"
#include "support/LoopbackHttpServer.h"
#include "support/TestSupport.h"
#include "support/TrayProgram.h"
#include "system/Accessibility.h"
#include "system/ClipboardManager.h"
#include "system/KeyboardSimulator.h"
#include "system/PermissionChecker.h"
#include "system/TextOffsets.h"
#include "system/Workspace.h"
#include "system/x11/X11KeySynthesiser.h"
#include "system/x11/X11KeyWatcher.h"
#include "ui/Localisation.h"
#include "ui/NotificationManager.h"

#include <QApplication>
#include <QClipboard>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QCoro/QCoroTask>

#include <unistd.h>

using Kind = KeystrokeBuffer::Outcome::Kind;

namespace {

// xdotool with our event loop turning: the key watcher and the clipboard we may own live on it.
bool xdotool(const QString &command, const QStringList &arguments)
{
    return runToolRaw(QStringLiteral("xdotool"), QStringList{command, QStringLiteral("--delay"), QStringLiteral("15")} + arguments)
               .exitCode == 0;
}
bool typeText(const QString &text) { return xdotool(QStringLiteral("type"), {text}); }
bool keys(const QStringList &names) { return xdotool(QStringLiteral("key"), names); }

KeyPress typed(const QString &text, quint32 keyCode = KeyCodes::A, quint32 modifiers = 0)
{
    KeyPress press;
    press.keyCode = text == QLatin1String(" ") ? KeyCodes::Space : keyCode;
    press.text = text;
    press.modifiers = modifiers;
    return press;
}
KeyPress key(quint32 keyCode) { return typed({}, keyCode); }

// Feeds every character as one key; the outcome of the last one.
KeystrokeBuffer::Outcome feed(KeystrokeBuffer &buffer, const QString &text)
{
    KeystrokeBuffer::Outcome last;
    for (char32_t c : text.toUcs4())
        last = buffer.handleKey(typed(QString::fromUcs4(&c, 1)));
    return last;
}

QByteArray fileBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString jsonField(const QString &path, const QString &field)
{
    return QJsonDocument::fromJson(fileBytes(path)).object().value(field).toString();
}

LoopbackHttpServer::Reply translation(const QString &text)
{
    return LoopbackHttpServer::Reply::json(200, QJsonDocument(QJsonObject{{QStringLiteral("translated_text"), text},
                                                                          {QStringLiteral("characters_used"), 5},
                                                                          {QStringLiteral("remaining_quota"), 9000}})
                                                     .toJson(QJsonDocument::Compact));
}

} // namespace

class InlineTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_layout;
    std::unique_ptr<LoopbackHttpServer> m_server;
    std::unique_ptr<Workspace> m_workspace;
    std::unique_ptr<Accessibility> m_accessibility;
    std::unique_ptr<InlineTranslationManager> m_manager;
    std::unique_ptr<DesktopApp> m_app;
    std::unique_ptr<LogCapture> m_log;
    QStringList m_notices;   // identifier, body of every notice shown
    QString m_mousepadFile;

    QString path(const QString &name) const { return m_dir.filePath(name); }
    QString editorText() const { return jsonField(path(QStringLiteral("editor.json")), QStringLiteral("editor")); }
    QString fieldsText(const QString &field) const { return jsonField(path(QStringLiteral("fields.json")), field); }
    QString lastRequestText() const
    {
        return QJsonDocument::fromJson(m_server->requests().last().body).object().value(QStringLiteral("text")).toString();
    }

    void setLayout(const QString &layout)
    {
        QCOMPARE(runToolRaw(QStringLiteral("setxkbmap"), {layout}).exitCode, 0);
        QTest::qWait(200);   // every client reloads its keymap
    }

    bool waitForTranslation(QSignalSpy &finished, int count = 1)
    {
        return QTest::qWaitFor([&] { return finished.count() >= count; }, 15000);
    }

    // Waits until the focused field answers over accessibility with this text and the caret at
    // its end: the application has taken every key sent so far.
    bool fieldHolds(const QString &text)
    {
        std::optional<FocusedElement> field;
        const bool holds = QTest::qWaitFor([&] {
            field = QCoro::waitFor(m_accessibility->focusedElement(Accessibility::Read::WithText));
            return field && field->text == text && field->caret == TextOffsets::characterCount(text);
        }, 20000);
        if (!holds)
            qWarning("the focused field holds %s, caret %d", field ? qPrintable(field->text.value_or(QStringLiteral("<no text>"))) : "<nothing>",
                     field ? field->caret : -1);
        return holds;
    }

    void openMousepad(const QByteArray &content)
    {
        // A new file each time: mousepad remembers where the caret was in a file it has seen.
        static int opened = 0;
        m_mousepadFile = path(QStringLiteral("mousepad-%1.txt").arg(++opened));
        QFile file(m_mousepadFile);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
        file.close();
        m_app = DesktopApp::program(QStringLiteral("mousepad"), {m_mousepadFile});
        QVERIFY(m_app && m_app->waitUntilActive());
        QVERIFY(keys({QStringLiteral("ctrl+End")}));
        QVERIFY(fieldHolds(QString::fromUtf8(content)));
    }

    // mousepad's text as it saves it (an unchanged document is not written again: then the file
    // as it was is the answer).
    QString savedMousepadText()
    {
        const QDateTime before = QFileInfo(m_mousepadFile).lastModified();
        QTest::qWait(20);
        if (!keys({QStringLiteral("ctrl+s")}))
            return QStringLiteral("<ctrl+s failed>");
        (void)QTest::qWaitFor([&] { return QFileInfo(m_mousepadFile).lastModified() != before; }, 5000);
        QTest::qWait(100);
        return QString::fromUtf8(fileBytes(m_mousepadFile));
    }

    void openQtEditor(const QString &text, const QStringList &extra = {})
    {
        m_app = DesktopApp::qtEditor(QStringList{QStringLiteral("--text"), text, QStringLiteral("--dump"),
                                                 path(QStringLiteral("editor.json"))} + extra);
        QVERIFY(m_app && m_app->waitUntilActive());
        QVERIFY(keys({QStringLiteral("ctrl+End")}));
        if (!extra.contains(QStringLiteral("password")))
            QVERIFY(fieldHolds(QString(text).replace(QLatin1String("\\n"), QLatin1String("\n"))));
    }

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void triggers_data();
    void triggers();
    void resetsAndEditing();

    void watcherReadsKeysAsTheLayoutTypesThem();

    void replacesTypedTextInMousepad();
    void replacesTypedTextInQtEditor();
    void switchingFieldsStartsANewSession();
    void germanLayoutEmojiAndCombiningAccents_data();
    void germanLayoutEmojiAndCombiningAccents();
    void passwordFieldIsNeverBuffered();
    void failedTranslationKeepsTextAndNotifies();
    void fallbackWithoutAccessibility();
    void secondTriggerDuringTranslationIsSkipped();
    void startAndStop();

    void trayProgramTranslatesInlineWhenSwitchedOn();
    void switchFollowsTheSetting();
};

void InlineTest::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "runs in the desktop test session");
    m_layout = QString::fromUtf8(runToolRaw(QStringLiteral("setxkbmap"), {QStringLiteral("-query")}).out)
                   .section(QStringLiteral("layout:"), 1)
                   .section(QLatin1Char('\n'), 0, 0)
                   .trimmed();
    if (m_layout.isEmpty())
        m_layout = QStringLiteral("us");
    installTranslations(QLocale(QStringLiteral("en")));
    AppState::shared().setInlineTranslationEnabled(true);
    AppState::shared().setOutputMode(OutputMode::TranslateOnly);
    m_workspace = createSystemWorkspace();
    m_accessibility = createSystemAccessibility();
}

void InlineTest::init()
{
    // A fresh service for every test: no reply left over from another one.
    m_server = std::make_unique<LoopbackHttpServer>();
    qputenv("PARLANTO_SERVICE_URL", m_server->url().toString().toUtf8());
    m_log = std::make_unique<LogCapture>();
    m_notices.clear();
    m_manager = std::make_unique<InlineTranslationManager>(
        InlineTranslationManager::Parts{AppState::shared(), PermissionChecker::shared(), *m_accessibility,
                                        ClipboardManager::shared(), KeyboardSimulator::shared(),
                                        TranslationService::shared(), m_workspace.get()},
        createSystemKeyWatcher());
    m_manager->setNotifier([this](const QString &identifier, const QString &title, const QString &body) {
        m_notices << identifier + QStringLiteral(": ") + body;
        NotificationManager::shared().post(title, body, {}, identifier);
    });
}

void InlineTest::cleanup()
{
    m_manager.reset();
    m_app.reset();
    AppState::shared().setIsTranslating(false);
    InlineTranslationHUD::shared().hide();
    runToolRaw(QStringLiteral("setxkbmap"), {m_layout});
    m_log.reset();
}

void InlineTest::triggers_data()
{
    QTest::addColumn<QString>("typing");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("language");
    QTest::addColumn<int>("triggerLength");
    QTest::addColumn<QString>("buffered");

    const int kept = int(Kind::Kept), cleared = int(Kind::Cleared), trigger = int(Kind::Trigger);
    QTest::newRow("word and @ja") << "Hello @ja " << trigger << "ja" << 5 << "";
    QTest::newRow("upper-case code after #") << "hello #FR " << trigger << "fr" << 5 << "";
    QTest::newRow("two spaces count one") << "hello  @ja " << trigger << "ja" << 5 << "";
    QTest::newRow("rightmost marker after a space") << "a@b c @de " << trigger << "de" << 5 << "";
    QTest::newRow("no space before the marker") << "hello@ja " << kept << "" << 0 << "hello@ja ";
    QTest::newRow("marker alone at the start") << "@ja " << cleared << "" << 0 << "";
    QTest::newRow("only blanks before the marker") << " \t @ja " << cleared << "" << 0 << "";
    QTest::newRow("unsupported code") << "hello @xx " << kept << "" << 0 << "hello @xx ";
    QTest::newRow("empty code") << "hello @ " << kept << "" << 0 << "hello @ ";
    QTest::newRow("code run on") << "hello @janow " << kept << "" << 0 << "hello @janow ";
}

void InlineTest::triggers()
{
    QFETCH(QString, typing);
    QFETCH(int, kind);
    KeystrokeBuffer buffer;
    const KeystrokeBuffer::Outcome outcome = feed(buffer, typing);
    QCOMPARE(int(outcome.kind), kind);
    QTEST(outcome.language, "language");
    QTEST(outcome.triggerLength, "triggerLength");
    QTEST(buffer.text(), "buffered");
}

void InlineTest::resetsAndEditing()
{
    KeystrokeBuffer buffer;
    // Return, keypad Enter, Escape and the arrows end the session; Control, Alt or Super held
    // empties the buffer only; Shift (and AltGr, which is no modifier here) types.
    for (quint32 code : {KeyCodes::Return, KeyCodes::KeypadEnter, KeyCodes::Escape, KeyCodes::LeftArrow,
                         KeyCodes::RightArrow, KeyCodes::UpArrow, KeyCodes::DownArrow}) {
        feed(buffer, QStringLiteral("abc"));
        QCOMPARE(int(buffer.handleKey(key(code)).kind), int(Kind::SessionEnded));
        QVERIFY(buffer.isEmpty());
    }
    for (quint32 modifier : {Modifier::Command, Modifier::Option, Modifier::Control}) {
        feed(buffer, QStringLiteral("abc"));
        QCOMPARE(int(buffer.handleKey(typed(QStringLiteral("v"), KeyCodes::V, modifier | Modifier::Shift)).kind), int(Kind::Cleared));
        QVERIFY(buffer.isEmpty());
    }
    buffer.handleKey(typed(QStringLiteral("@"), 19, Modifier::Shift));
    QCOMPARE(buffer.text(), QStringLiteral("@"));
    buffer.clear();

    // Backspace takes the last user-perceived character, and nothing from an empty buffer.
    QCOMPARE(int(buffer.handleKey(key(KeyCodes::Delete)).kind), int(Kind::Kept));
    QVERIFY(buffer.isEmpty());
    const QString family = QStringLiteral("\U0001F468\u200D\U0001F469\u200D\U0001F467");
    buffer.handleKey(typed(QStringLiteral("e\u0301") + family));
    QCOMPARE(buffer.length(), 2);
    buffer.handleKey(key(KeyCodes::Delete));
    QCOMPARE(buffer.text(), QStringLiteral("e\u0301"));
    buffer.handleKey(key(KeyCodes::Delete));
    QVERIFY(buffer.isEmpty());
    // Backspace corrects a trigger typed wrong.
    feed(buffer, QStringLiteral("Hello @jz"));
    buffer.handleKey(key(KeyCodes::Delete));
    const KeystrokeBuffer::Outcome corrected = feed(buffer, QStringLiteral("a "));
    QCOMPARE(int(corrected.kind), int(Kind::Trigger));
    QCOMPARE(corrected.language, QStringLiteral("ja"));

    // At most 300 characters: the oldest go, whatever their size in UTF-16.
    buffer.clear();
    feed(buffer, QStringLiteral("\U0001F600") + QString(299, QLatin1Char('x')));
    QCOMPARE(buffer.length(), 300);
    buffer.handleKey(typed(QStringLiteral("y")));
    QCOMPARE(buffer.length(), 300);
    QCOMPARE(buffer.text(), QString(299, QLatin1Char('x')) + QLatin1Char('y'));
    feed(buffer, QStringLiteral(" @es "));
    QCOMPARE(buffer.length(), 0);   // a trigger still fires on a full buffer
}

void InlineTest::watcherReadsKeysAsTheLayoutTypesThem()
{
    X11KeyWatcher watcher;
    QList<KeyPress> presses;
    QVERIFY(watcher.start([&](const KeyPress &press) { presses << press; }));
    auto texts = [&] {
        QString all;
        for (const KeyPress &press : presses)
            all += press.text;
        return all;
    };
    auto last = [&](quint32 keyCode) {
        for (auto it = presses.crbegin(); it != presses.crend(); ++it)
            if (it->keyCode == keyCode)
                return *it;
        return KeyPress{};
    };

    setLayout(QStringLiteral("us"));
    presses.clear();
    QVERIFY(typeText(QStringLiteral("Hi @ja")));
    QTRY_COMPARE(texts(), QStringLiteral("Hi @ja"));
    QCOMPARE(last(KeyCodes::Space).text, QStringLiteral(" "));
    QCOMPARE(last(19).modifiers, Modifier::Shift);   // "@" is Shift+2 here
    presses.clear();
    QVERIFY(keys({QStringLiteral("Return"), QStringLiteral("KP_Enter"), QStringLiteral("Escape"), QStringLiteral("BackSpace"),
                  QStringLiteral("Left"), QStringLiteral("Right"), QStringLiteral("Up"), QStringLiteral("Down"),
                  QStringLiteral("ctrl+v"), QStringLiteral("alt+x"), QStringLiteral("super+e")}));
    QTRY_COMPARE(presses.size() >= 14, true);
    for (quint32 code : {KeyCodes::Return, KeyCodes::KeypadEnter, KeyCodes::Escape, KeyCodes::Delete, KeyCodes::LeftArrow,
                         KeyCodes::RightArrow, KeyCodes::UpArrow, KeyCodes::DownArrow})
        QVERIFY2(std::any_of(presses.begin(), presses.end(), [&](const KeyPress &p) { return p.keyCode == code; }),
                 qPrintable(QString::number(code)));
    QCOMPARE(last(KeyCodes::V).modifiers, Modifier::Command);
    QCOMPARE(last(7).modifiers, Modifier::Option);    // x
    QCOMPARE(last(KeyCodes::E).modifiers, Modifier::Control);
    QVERIFY(last(KeyCodes::Return).text.isEmpty());

    // German: "@" through AltGr (which is no modifier of ours), Z where the US Y is, dead keys.
    setLayout(QStringLiteral("de"));
    presses.clear();
    QVERIFY(keys({QStringLiteral("ISO_Level3_Shift+q"), QStringLiteral("z"), QStringLiteral("shift+2"),
                  QStringLiteral("dead_acute"), QStringLiteral("e"), QStringLiteral("dead_circumflex"), QStringLiteral("a")}));
    QTRY_COMPARE(texts(), QStringLiteral("@z\"éâ"));
    QCOMPARE(last(12).modifiers, 0u);   // the Q key typed "@" with AltGr
    QCOMPARE(last(16).text, QStringLiteral("z"));
    setLayout(QStringLiteral("us"));
    presses.clear();
    QVERIFY(typeText(QStringLiteral("y")));
    QTRY_COMPARE(texts(), QStringLiteral("y"));
    QCOMPARE(last(16).text, QStringLiteral("y"));

    // Keys we synthesise ourselves are no typing.
    X11KeySynthesiser ours;
    QVERIFY(ours.isConnected());
    openQtEditor(QString());
    presses.clear();
    QCoro::waitFor(ours.typeText(QStringLiteral("ours ")));
    QCoro::waitFor(ours.pressKey(KeyCodes::Delete, 2));
    QVERIFY(typeText(QStringLiteral("user")));
    QTRY_COMPARE(texts(), QStringLiteral("user"));
    QTRY_COMPARE(editorText(), QStringLiteral("ouruser"));
    QCOMPARE(SynthesisedKeys::pendingCount(), 0);
    watcher.stop();
    QVERIFY(!watcher.isRunning());
}

void InlineTest::replacesTypedTextInMousepad()
{
    openMousepad("First line\n");
    m_manager->start();
    QSignalSpy finished(m_manager.get(), &InlineTranslationManager::translationFinished);
    const QString userClipboard = QStringLiteral("the user's own clipboard");
    QGuiApplication::clipboard()->setText(userClipboard);

    m_server->enqueue(translation(QStringLiteral("こんにちは")));
    QVERIFY(typeText(QStringLiteral("Hello @ja ")));
    QVERIFY(waitForTranslation(finished));
    QCOMPARE(m_server->requests().size(), 1);
    const QJsonObject request = QJsonDocument::fromJson(m_server->requests().last().body).object();
    QCOMPARE(request.value(QStringLiteral("text")).toString(), QStringLiteral("Hello"));
    QCOMPARE(request.value(QStringLiteral("target_language")).toString(), QStringLiteral("ja"));

    // The next translation takes only what was typed after the first one.
    m_server->enqueue(translation(QStringLiteral("世界")));
    QVERIFY(typeText(QStringLiteral(" world #JA ")));
    QVERIFY(waitForTranslation(finished, 2));
    QCOMPARE(lastRequestText(), QStringLiteral("world"));
    QCOMPARE(savedMousepadText(), QStringLiteral("First line\nこんにちは 世界"));
    // Control with a key (the save above, a paste) empties the buffer and keeps the session;
    // Return ends the session.
    QVERIFY(typeText(QStringLiteral("abc")));
    QTRY_COMPARE(m_manager->bufferLength(), 3);
    QVERIFY(keys({QStringLiteral("ctrl+v")}));
    QTRY_COMPARE(m_manager->bufferLength(), 0);
    QCOMPARE(m_manager->sessionStartOffset(), 19);
    QVERIFY(keys({QStringLiteral("Return")}));
    QTRY_COMPARE(m_manager->sessionStartOffset(), 0);
    savedMousepadText();   // nothing left unsaved: mousepad quits without asking
    const QString log = m_log->text();
    for (const char *line : {"[InlineTranslation] Trigger detected: lang=ja, triggerLen=5",
                             "[InlineTranslation] AX source: 'Hello' (5 chars)",
                             "[InlineTranslation] Deleting 10 chars then pasting (mode: translate_only)",
                             "[InlineTranslation] Session start updated \u2192 16",
                             "[InlineTranslation] AX cursor: 27, sessionStart: 16"})
        QVERIFY2(log.contains(QString::fromUtf8(line)), line);
    QTRY_COMPARE(QString::fromUtf8(clipboardText()), userClipboard);
}

void InlineTest::replacesTypedTextInQtEditor()
{
    openQtEditor(QStringLiteral("Earlier line"));
    m_manager->start();
    QSignalSpy finished(m_manager.get(), &InlineTranslationManager::translationFinished);
    AppState::shared().setOutputMode(OutputMode::Bilingual);
    AppState::shared().setBilingualTemplate(QStringLiteral("{translated} ({original})"));
    m_server->enqueue(translation(QStringLiteral("Buenos días")));
    // Return starts a new line and a new session: the earlier line is never taken.
    QVERIFY(keys({QStringLiteral("Return")}));
    QVERIFY(typeText(QStringLiteral("Good morning @es ")));
    QVERIFY(waitForTranslation(finished));
    AppState::shared().setOutputMode(OutputMode::TranslateOnly);
    QCOMPARE(lastRequestText(), QStringLiteral("Good morning"));
    QTRY_COMPARE(editorText(), QStringLiteral("Earlier line\nBuenos días (Good morning)"));
    QVERIFY(m_log->text().contains(QStringLiteral("Deleting 17 chars then pasting (mode: bilingual)")));
}

void InlineTest::switchingFieldsStartsANewSession()
{
    m_app = DesktopApp::gtkFields({QStringLiteral("--second-entry"), QStringLiteral("Start:"), QStringLiteral("--dump"),
                                   path(QStringLiteral("fields.json"))});
    QVERIFY(m_app);
    QVERIFY(m_app->waitUntilActive());
    QVERIFY(fieldHolds(QString()));
    m_manager->start();
    QSignalSpy finished(m_manager.get(), &InlineTranslationManager::translationFinished);
    m_server->enqueue(translation(QStringLiteral("Bonjour")));
    QVERIFY(typeText(QStringLiteral("Hello @fr ")));
    QVERIFY(waitForTranslation(finished));
    QTRY_COMPARE(fieldsText(QStringLiteral("entry")), QStringLiteral("Bonjour"));
    QCOMPARE(m_manager->sessionStartOffset(), 7);

    // Tab to the second entry (caret after its "Start:"): its whole line is the source.
    m_server->enqueue(translation(QStringLiteral("Début: chat")));
    QVERIFY(keys({QStringLiteral("Tab"), QStringLiteral("End")}));
    QVERIFY(typeText(QStringLiteral(" cat @fr ")));
    QVERIFY(waitForTranslation(finished, 2));
    QCOMPARE(lastRequestText(), QStringLiteral("Start: cat"));
    QTRY_COMPARE(fieldsText(QStringLiteral("second_entry")), QStringLiteral("Début: chat"));
    QCOMPARE(fieldsText(QStringLiteral("entry")), QStringLiteral("Bonjour"));
    QVERIFY(m_log->text().contains(QStringLiteral("AX: focused element changed \u2014 resetting sessionStartOffset")));
}

void InlineTest::germanLayoutEmojiAndCombiningAccents_data()
{
    QTest::addColumn<QString>("application");
    QTest::newRow("gtk editor") << "mousepad";
    QTest::newRow("qt editor") << "qt_test_editor";
}

// Letters with accents precomposed and combining, an emoji beyond the BMP: every toolkit takes
// them away with its own count of Delete presses; nothing may stay or go beyond the text.
void InlineTest::germanLayoutEmojiAndCombiningAccents()
{
    QFETCH(QString, application);
    const QString line = QStringLiteral("Café \U0001F600 de\u0301j\u00E0");
    if (application == QLatin1String("mousepad"))
        openMousepad((QStringLiteral("Kept line\n") + line).toUtf8());
    else
        openQtEditor(QStringLiteral("Kept line\\n") + line);
    setLayout(QStringLiteral("de"));
    m_manager->start();
    QSignalSpy finished(m_manager.get(), &InlineTranslationManager::translationFinished);
    m_server->enqueue(translation(QStringLiteral("Kaffee \U0001F600 schon")));
    QVERIFY(typeText(QStringLiteral(" ok ")));
    QVERIFY(keys({QStringLiteral("ISO_Level3_Shift+q"), QStringLiteral("d"), QStringLiteral("e"), QStringLiteral("space")}));
    QVERIFY(waitForTranslation(finished));
    QCOMPARE(lastRequestText(), line + QStringLiteral(" ok"));
    const QString expected = QStringLiteral("Kept line\nKaffee \U0001F600 schon");
    if (application == QLatin1String("mousepad"))
        QCOMPARE(savedMousepadText(), expected);
    else
        QTRY_COMPARE(editorText(), expected);
}

void InlineTest::passwordFieldIsNeverBuffered()
{
    openQtEditor(QString(), {QStringLiteral("--focus"), QStringLiteral("password")});
    QVERIFY(QTest::qWaitFor([&] {
        const auto field = QCoro::waitFor(m_accessibility->focusedElement());
        return field && field->isPassword;
    }, 20000));
    m_manager->start();
    QSignalSpy applied(m_manager.get(), &InlineTranslationManager::keysApplied);
    QVERIFY(typeText(QStringLiteral("secret @ja ")));
    QTRY_VERIFY(QJsonDocument::fromJson(fileBytes(path(QStringLiteral("editor.json")))).object()
                    .value(QStringLiteral("password_length")).toInt() == 11);
    QTRY_VERIFY(applied.count() > 0);
    QTest::qWait(300);   // a translation would have started by now
    QCOMPARE(m_manager->bufferLength(), 0);
    QVERIFY(m_server->requests().isEmpty());
    QVERIFY(!AppState::shared().isTranslating());
    const QString log = m_log->text();
    QVERIFY(log.contains(QStringLiteral("Password field focused")));
    QVERIFY(!log.contains(QStringLiteral("secret")));
    QVERIFY(!log.contains(QStringLiteral("Trigger detected")));
}

void InlineTest::failedTranslationKeepsTextAndNotifies()
{
    NoticeWatch notices;
    QVERIFY(notices.isListening());

    openQtEditor(QString());
    m_manager->start();
    QSignalSpy finished(m_manager.get(), &InlineTranslationManager::translationFinished);
    m_server->enqueue(LoopbackHttpServer::Reply::json(504, "{}"));
    QVERIFY(typeText(QStringLiteral("Hello @ja ")));
    QVERIFY(waitForTranslation(finished));
    QTest::qWait(200);
    QCOMPARE(editorText(), QStringLiteral("Hello @ja "));
    QCOMPARE(m_notices, QStringList{QStringLiteral("inline_timeout: Translation timed out")});
    QVERIFY(m_log->text().contains(QStringLiteral("[InlineTranslation] \u2717 Error: ")));

    m_server->enqueue(LoopbackHttpServer::Reply::json(400, R"({"error":"validation_error","message":"Unsupported text"})"));
    QVERIFY(typeText(QStringLiteral("again @ja ")));
    QVERIFY(waitForTranslation(finished, 2));
    QCOMPARE(m_notices.last(), QStringLiteral("inline_server: Unsupported text"));

    QTest::qWait(300);
    QVERIFY2(notices.sawString(QStringLiteral("Translation timed out")), qPrintable(notices.calls()));
    QVERIFY(notices.posted(QStringLiteral("inline_timeout")));
    QVERIFY(notices.sawString(QStringLiteral("Unsupported text")));
}

void InlineTest::fallbackWithoutAccessibility()
{
    // A GTK window that does not join the accessibility bus: no text to read, so the line is
    // selected and copied.
    qputenv("NO_AT_BRIDGE", "1");
    m_app = DesktopApp::gtkFields({QStringLiteral("--text"), QStringLiteral("Left "), QStringLiteral("--dump"),
                                   path(QStringLiteral("fields.json"))});
    qunsetenv("NO_AT_BRIDGE");
    QVERIFY(m_app);
    QVERIFY(m_app->waitUntilActive());
    QTest::qWait(200);
    m_manager->start();
    QSignalSpy finished(m_manager.get(), &InlineTranslationManager::translationFinished);
    const QString userClipboard = QStringLiteral("kept for the user");
    QGuiApplication::clipboard()->setText(userClipboard);

    m_server->enqueue(translation(QStringLiteral("Gauche bonjour")));
    QVERIFY(typeText(QStringLiteral("hello @fr ")));
    QVERIFY(waitForTranslation(finished));
    QCOMPARE(lastRequestText(), QStringLiteral("Left hello"));
    QTRY_COMPARE(fieldsText(QStringLiteral("entry")), QStringLiteral("Gauche bonjour"));
    QTRY_COMPARE(QString::fromUtf8(clipboardText()), userClipboard);
    QString log = m_log->text();
    QVERIFY(log.contains(QStringLiteral("AX unavailable \u2014 clipboard fallback")));
    QVERIFY(log.contains(QStringLiteral("Clipboard source: 'Left hello'")));
    QVERIFY(log.contains(QStringLiteral("\u2713 Fallback result: 'Gauche bonjour'")));

    // A failure: the trigger is gone, the line stays, unselected (typing appends to it).
    m_server->enqueue(LoopbackHttpServer::Reply::json(500, R"({"message":"boom"})"));
    QVERIFY(typeText(QStringLiteral(" x @fr ")));
    QVERIFY(waitForTranslation(finished, 2));
    QVERIFY(typeText(QStringLiteral("!")));
    QTRY_COMPARE(fieldsText(QStringLiteral("entry")), QStringLiteral("Gauche bonjour x!"));
    QCOMPARE(m_notices.last(), QStringLiteral("inline_err: Translation failed, try again"));
    QTRY_COMPARE(QString::fromUtf8(clipboardText()), userClipboard);
    QVERIFY(m_log->text().contains(QStringLiteral("\u2717 Fallback error: ")));
}

void InlineTest::secondTriggerDuringTranslationIsSkipped()
{
    openQtEditor(QString());
    m_manager->start();
    QSignalSpy finished(m_manager.get(), &InlineTranslationManager::translationFinished);
    auto slow = translation(QStringLiteral("こんにちは"));
    slow.delay = std::chrono::milliseconds(2500);
    m_server->enqueue(slow);
    QVERIFY(typeText(QStringLiteral("Hello @ja ")));
    QTRY_COMPARE_WITH_TIMEOUT(m_server->requests().size(), 1, 10000);
    QVERIFY(InlineTranslationHUD::shared().panel());
    QTRY_VERIFY(InlineTranslationHUD::shared().panel()->isVisible());
    runToolRaw(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), screenshotDir() + QStringLiteral("/inline-hud.png")});
    QVERIFY(typeText(QStringLiteral("more @fr ")));
    QTRY_VERIFY(m_log->text().contains(QStringLiteral("[InlineTranslation] Skipped \u2014 already translating")));
    QVERIFY(waitForTranslation(finished));
    QCOMPARE(m_server->requests().size(), 1);
    QCOMPARE(finished.count(), 1);
    // The first translation went where it was typed; the second trigger was left as typed.
    QTRY_COMPARE(editorText(), QStringLiteral("こんにちは"));
}

void InlineTest::startAndStop()
{
    m_manager->start();
    m_manager->start();
    QVERIFY(m_manager->isRunning());
    QCOMPARE(m_log->count(QStringLiteral("[InlineTranslation] \u2713 Started")), 1);
    m_manager->stop();
    m_manager->stop();
    QCOMPARE(m_log->count(QStringLiteral("[InlineTranslation] Stopped")), 1);

    // Stopped, nothing is watched.
    openQtEditor(QString());
    QSignalSpy applied(m_manager.get(), &InlineTranslationManager::keysApplied);
    QVERIFY(typeText(QStringLiteral("Hello @ja ")));
    QTRY_COMPARE(editorText(), QStringLiteral("Hello @ja "));
    QTest::qWait(200);
    QCOMPARE(applied.count(), 0);

    // Switching the setting off makes a typed trigger do nothing.
    AppState::shared().setInlineTranslationEnabled(false);
    m_manager->start();
    QVERIFY(typeText(QStringLiteral("x @ja ")));
    QTRY_VERIFY(m_log->text().contains(QStringLiteral("Trigger detected")));
    QTest::qWait(300);
    QVERIFY(m_server->requests().isEmpty());
    AppState::shared().setInlineTranslationEnabled(true);
}

void InlineTest::trayProgramTranslatesInlineWhenSwitchedOn()
{
    QTemporaryDir config;
    QVERIFY(writeSettingsFile(config.path(), R"({"inline_translation_enabled": true, "has_launched_before": true})"));
    TrayProgram program(config.path(), {QStringLiteral("PARLANTO_SERVICE_URL=") + m_server->url().toString()});
    QVERIFY2(!program.waitForLine(QStringLiteral("[InlineTranslation] \u2713 Started")).isEmpty(),
             qPrintable(program.lines().join(QLatin1Char('\n'))));
    openMousepad("");
    m_server->enqueue(translation(QStringLiteral("Hola")));
    QVERIFY(typeText(QStringLiteral("Hello @es ")));
    QVERIFY2(!program.waitForLine(QStringLiteral("[InlineTranslation] Session start updated")).isEmpty(),
             qPrintable(program.lines().join(QLatin1Char('\n'))));
    QCOMPARE(savedMousepadText(), QStringLiteral("Hola"));
}

void InlineTest::switchFollowsTheSetting()
{
    SettingsStore::shared().setBool(SettingsKeys::hasLaunchedBefore, true);
    AppState::shared().setInlineTranslationEnabled(true);
    auto controller = std::make_unique<ApplicationController>();
    controller->launch();
    QCOMPARE(m_log->count(QStringLiteral("[InlineTranslation] \u2713 Started")), 1);
    AppState::shared().setInlineTranslationEnabled(false);
    QCOMPARE(m_log->count(QStringLiteral("[InlineTranslation] Stopped")), 1);
    AppState::shared().setInlineTranslationEnabled(true);
    QCOMPARE(m_log->count(QStringLiteral("[InlineTranslation] \u2713 Started")), 2);

    openQtEditor(QString());
    m_server->enqueue(translation(QStringLiteral("Ciao")));
    QVERIFY(typeText(QStringLiteral("Hello @it ")));
    QTRY_COMPARE_WITH_TIMEOUT(editorText(), QStringLiteral("Ciao"), 10000);
    controller.reset();
    QCOMPARE(m_log->count(QStringLiteral("[InlineTranslation] Stopped")), 2);
}

QTEST_MAIN(InlineTest)
#include "tst_inline.moc"
