// The program's life as a user meets it: the one-time launch-at-login offer, parlanto:// links
// handed to the running instance (directly and through xdg-open after an installation), the
// Translation settings tab against a loopback service and the session's real keyring, and the
// interface language chosen from the locale.
#include "support/DesktopApp.h"
#include "support/LoopbackHttpServer.h"
#include "support/TestSupport.h"
#include "support/TrayProgram.h"

#include "service/EngineSettings.h"
#include "service/KeychainStore.h"
#include "service/TranslationService.h"
#include "state/AppState.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"
#include "system/LoginItem.h"
#include "system/SystemKeychain.h"
#include "ui/Localisation.h"
#include "ui/SettingsWindow.h"
#include "ui/TranslationSettingsTab.h"

#include <QComboBox>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

#include <csignal>

namespace {

struct ToolRun {
    int exitCode = -1;
    QString out;
};

// Runs a program to its end with extra environment assignments ("NAME=value").
ToolRun runWith(const QString &program, const QStringList &arguments, const QStringList &environment = {})
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString &assignment : environment)
        env.insert(assignment.section(QLatin1Char('='), 0, 0), assignment.section(QLatin1Char('='), 1));
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(30000))
        return {};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()).trimmed()};
}

// The visible top-level windows of a process whose title is exactly `title`.
QStringList visibleWindows(qint64 pid, const QString &title)
{
    const QString out = runTool(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--all"),
                                                           QStringLiteral("--onlyvisible"), QStringLiteral("--pid"),
                                                           QString::number(pid), QStringLiteral("--name"),
                                                           QLatin1Char('^') + title + QLatin1Char('$')});
    return out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

QString activeWindowName()
{
    return runTool(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow"), QStringLiteral("getwindowname")});
}

bool isViewable(const QString &window)
{
    return runTool(QStringLiteral("xwininfo"), {QStringLiteral("-id"), window}).contains(QLatin1String("Map State: IsViewable"));
}

QByteArray fileContents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every name and text the accessibility tree of a process shows (tests/apps/atspi_dump.py).
QString accessibleTexts(qint64 pid)
{
    return runWith(QStringLiteral("/usr/bin/python3"),
                   {qEnvironmentVariable("PARLANTO_TEST_SCRIPTS_DIR") + QStringLiteral("/atspi_dump.py"), QString::number(pid)})
        .out;
}

// The secret stored in the session's Secret Service under one of our accounts; empty if none.
QString keyringSecret(const QString &account, int *exitCode = nullptr)
{
    const ToolRun run = runWith(QStringLiteral("secret-tool"), {QStringLiteral("lookup"), QStringLiteral("service"),
                                                                QStringLiteral("app.parlanto.Parlanto"),
                                                                QStringLiteral("account"), account});
    if (exitCode)
        *exitCode = run.exitCode;
    return run.exitCode == 0 ? run.out : QString();
}

// id -> translation of a .ts file.
QMap<QString, QString> translationsOf(const QString &path, QString *language = nullptr)
{
    QMap<QString, QString> result;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return result;
    QXmlStreamReader xml(&file);
    QString id;
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement())
            continue;
        if (xml.name() == QLatin1String("TS") && language)
            *language = xml.attributes().value(QLatin1String("language")).toString();
        else if (xml.name() == QLatin1String("message"))
            id = xml.attributes().value(QLatin1String("id")).toString();
        else if (xml.name() == QLatin1String("translation")) {
            const bool unfinished = xml.attributes().value(QLatin1String("type")) == QLatin1String("unfinished");
            const QString text = xml.readElementText();
            result.insert(id, unfinished ? QString() : text);
        }
    }
    return result;
}

QStringList placeholders(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("%\\d|\\{original\\}|\\{translated\\}"));
    QStringList found;
    for (const QRegularExpressionMatch &match : pattern.globalMatch(text))
        found << match.captured();
    found.sort();
    return found;
}

} // namespace

class LifecycleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void autostartEntryFollowsTheLoginItem();
    void firstLaunchOffersLaunchAtLoginOnce();
    void acceptedOfferWritesTheAutostartEntry();
    void linksReachTheRunningInstance();
    void xdgOpenLinkAfterInstallation();
    void linkAtStartAndTerminationSignal();
    void translationTabTestsTheEngine();
    void translationTabKeepsSecretsInTheKeyring();
    void translationTabScreenshot();
    void everyTextIdIsTranslated();
    void interfaceLanguageFollowsTheLocale();

private:
    QTemporaryDir m_config;
    std::unique_ptr<DesktopApp> m_xterm;
};

void LifecycleTest::initTestCase()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "no DISPLAY: run the tests in the desktop test session");
    QVERIFY(m_config.isValid());
    // This process's own settings and autostart folder.
    qputenv("XDG_CONFIG_HOME", m_config.path().toLocal8Bit());
    KeychainStore::setSharedBackend(createSystemKeychainBackend());
    installTranslations(QLocale(QLocale::English));
}

void LifecycleTest::cleanup()
{
    m_xterm.reset();
    KeychainStore::shared().remove(KeychainStore::sessionTokenKey);
    KeychainStore::shared().remove(EngineSettings::keyAccount(EngineIds::deepl));
}

void LifecycleTest::autostartEntryFollowsTheLoginItem()
{
    LoginItem &item = LoginItem::shared();
    const QString path = m_config.filePath(QStringLiteral("autostart/parlanto.desktop"));
    QCOMPARE(LoginItem::autostartFilePath(), path);
    QVERIFY(!item.isEnabled());

    QVERIFY(item.setEnabled(true) && item.isEnabled());
    const ToolRun validation = runWith(QStringLiteral("desktop-file-validate"), {path});
    QVERIFY2(validation.exitCode == 0 && validation.out.isEmpty(), qPrintable(validation.out));
    QVERIFY(fileContents(path).contains("\nExec=" + QCoreApplication::applicationFilePath().toUtf8() + '\n'));

    // An entry that a session's settings switched off stays in place but counts as off.
    QFile file(path);
    QVERIFY(file.open(QIODevice::Append) && file.write("Hidden=true\n") > 0);
    file.close();
    QVERIFY(!item.isEnabled());

    QVERIFY(item.setEnabled(false));
    QVERIFY(!QFileInfo::exists(path));
    QVERIFY(item.setEnabled(false)); // already off: not an error

    qunsetenv("XDG_CONFIG_HOME");
    QCOMPARE(LoginItem::autostartFilePath(), QDir::homePath() + QStringLiteral("/.config/autostart/parlanto.desktop"));
    qputenv("XDG_CONFIG_HOME", m_config.path().toLocal8Bit());
}

// Declined once in English; the second launch (English again) does not ask.
void LifecycleTest::firstLaunchOffersLaunchAtLoginOnce()
{
    QTemporaryDir config;
    const QString autostart = config.filePath(QStringLiteral("autostart/parlanto.desktop"));
    {
        TrayProgram program(config.path());
        QVERIFY2(!program.waitForLine(QStringLiteral("[Parlanto] launch-at-login offer: shown")).isEmpty(),
                 qPrintable(program.lines().join(QLatin1Char('\n'))));
        // Asked once, and remembered before any answer.
        const QJsonObject settings = QJsonDocument::fromJson(fileContents(config.filePath(QStringLiteral("parlanto/settings.json")))).object();
        QCOMPARE(settings.value(SettingsKeys::hasLaunchedBefore).toBool(), true);
        QTRY_VERIFY_WITH_TIMEOUT(!visibleWindows(program.pid(), QStringLiteral("Parlanto")).isEmpty(), 10000);
        QTRY_COMPARE_WITH_TIMEOUT(DesktopApp::activeWindowPid(), program.pid(), 10000);
        runTool(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"),
                                           screenshotDir() + QStringLiteral("/launch-at-login-offer.png")});
        const QString texts = accessibleTexts(program.pid());
        for (const char *id : {"alert.launch_at_login.title", "alert.launch_at_login.message", "alert.launch_at_login.yes",
                               "alert.launch_at_login.not_now"})
            QVERIFY2(texts.contains(qtTrId(id)), qPrintable(texts));
        QVERIFY(pressKeys({QStringLiteral("Escape")})); // "Not Now"
        QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] launch-at-login offer: not now")).isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(visibleWindows(program.pid(), QStringLiteral("Parlanto")).isEmpty(), 10000);
        QVERIFY(!QFileInfo::exists(autostart));
        QVERIFY(program.isRunning());
    }
    TrayProgram program(config.path(), {QStringLiteral("LANG=en_GB.UTF-8"), QStringLiteral("LANGUAGE="),
                                        QStringLiteral("LC_ALL="), QStringLiteral("LC_MESSAGES=")});
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] interface language: en")).isEmpty());
    QVERIFY2(!program.waitForLine(QStringLiteral("[Parlanto] launch-at-login offer: made before")).isEmpty(),
             qPrintable(program.lines().join(QLatin1Char('\n'))));
    QVERIFY(visibleWindows(program.pid(), QStringLiteral("Parlanto")).isEmpty());
    QVERIFY(!QFileInfo::exists(autostart));
}

// Accepted under a Spanish locale: Spanish texts on screen, and the autostart entry written.
void LifecycleTest::acceptedOfferWritesTheAutostartEntry()
{
    const auto spanish = translationsOf(sourceDir() + QStringLiteral("/translations/parlanto_es.ts"));
    QTemporaryDir config;
    TrayProgram program(config.path(), {QStringLiteral("LANG=es_ES.UTF-8"), QStringLiteral("LANGUAGE="),
                                        QStringLiteral("LC_ALL="), QStringLiteral("LC_MESSAGES=")});
    QVERIFY2(!program.waitForLine(QStringLiteral("[Parlanto] interface language: es")).isEmpty(),
             qPrintable(program.lines().join(QLatin1Char('\n'))));
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] launch-at-login offer: shown")).isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(!visibleWindows(program.pid(), QStringLiteral("Parlanto")).isEmpty(), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(DesktopApp::activeWindowPid(), program.pid(), 10000);
    runTool(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"),
                                       screenshotDir() + QStringLiteral("/launch-at-login-offer-es.png")});
    const QString texts = accessibleTexts(program.pid());
    for (const char *id : {"alert.launch_at_login.title", "alert.launch_at_login.yes", "alert.launch_at_login.not_now"})
        QVERIFY2(texts.contains(spanish.value(QLatin1String(id))), qPrintable(texts));
    QVERIFY(pressKeys({QStringLiteral("Return")})); // the default button, "Yes, Launch at Login"
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] launch-at-login offer: yes")).isEmpty());
    QVERIFY2(!program.waitForLine(QStringLiteral("[LoginItem] launch at login on")).isEmpty(),
             qPrintable(program.lines().join(QLatin1Char('\n'))));

    const QString autostart = config.filePath(QStringLiteral("autostart/parlanto.desktop"));
    const QByteArray entry = fileContents(autostart);
    QVERIFY2(entry.contains("\nExec=" + QFileInfo(parlantoBinary()).canonicalFilePath().toUtf8() + '\n'), entry.constData());
    QCOMPARE(runWith(QStringLiteral("desktop-file-validate"), {autostart}).exitCode, 0);
}

void LifecycleTest::linksReachTheRunningInstance()
{
    QTemporaryDir config;
    QVERIFY(writeSettingsFile(config.path(), R"({"has_launched_before": true})"));
    TrayProgram program(config.path());
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] launch-at-login offer: made before")).isEmpty());

    m_xterm = DesktopApp::program(QStringLiteral("xterm"), {});
    QVERIFY(m_xterm && m_xterm->waitUntilActive());

    // Links that are not ours, or not for the settings, change nothing.
    for (const QString &link : {QStringLiteral("parlanto://about"), QStringLiteral("https://settings"),
                                QStringLiteral("PARLANTO://settings"), QStringLiteral("parlanto:settings"),
                                QStringLiteral("parlanto://about?token=secret-in-link#x")}) {
        const ToolRun second = runWith(parlantoBinary(), {link});
        QCOMPARE(second.exitCode, 0);
        QVERIFY2(second.out.contains(QLatin1String("already running")), qPrintable(second.out));
        QVERIFY2(!program.waitForLine(QStringLiteral("[Parlanto] ignored link: ") + link.section(QLatin1Char('?'), 0, 0)).isEmpty(),
                 qPrintable(program.lines().join(QLatin1Char('\n'))));
    }
    QVERIFY(!program.lines().join(QLatin1Char('\n')).contains(QLatin1String("secret-in-link")));
    QCOMPARE(DesktopApp::activeWindowPid(), m_xterm->pid());
    QVERIFY(visibleWindows(program.pid(), QStringLiteral("Parlanto Settings")).isEmpty()
            && visibleWindows(program.pid(), QStringLiteral(".*")).size() <= 1); // the tray icon at most

    // The settings link opens the window of the running instance and gives it the focus.
    const ToolRun second = runWith(parlantoBinary(), {QStringLiteral("parlanto://settings")});
    QCOMPARE(second.exitCode, 0);
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] link: opening the settings window")).isEmpty());
    QTRY_COMPARE_WITH_TIMEOUT(DesktopApp::activeWindowPid(), program.pid(), 10000);
    QVERIFY(isViewable(runTool(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")})));
    const QString title = activeWindowName();
    QCOMPARE(title, qtTrId("settings.title"));

    // Closing the last window (the window manager's Close, Alt+F4 under openbox) does not quit:
    // the next link brings the settings window back.
    QVERIFY(pressKeys({QStringLiteral("alt+F4")}));
    QTRY_VERIFY_WITH_TIMEOUT(visibleWindows(program.pid(), title).isEmpty(), 10000);
    QCOMPARE(runWith(parlantoBinary(), {QStringLiteral("parlanto://settings")}).exitCode, 0);
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] link: opening the settings window")).isEmpty());
    QTRY_COMPARE_WITH_TIMEOUT(DesktopApp::activeWindowPid(), program.pid(), 10000);
    QCOMPARE(activeWindowName(), title);

    // Back to the terminal; a plain second start exits (so one instance stays) and brings the
    // settings window back.
    runTool(QStringLiteral("xdotool"), {QStringLiteral("windowactivate"), QStringLiteral("--sync"),
                                        runTool(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--pid"),
                                                                            QString::number(m_xterm->pid())})
                                            .section(QLatin1Char('\n'), 0, 0)});
    QVERIFY(m_xterm->waitUntilActive());
    const ToolRun plain = runWith(parlantoBinary(), {});
    QCOMPARE(plain.exitCode, 0);
    QVERIFY2(plain.out.contains(QLatin1String("already running")), qPrintable(plain.out));
    QTRY_COMPARE_WITH_TIMEOUT(DesktopApp::activeWindowPid(), program.pid(), 10000);
    QCOMPARE(activeWindowName(), title);
    QVERIFY(program.isRunning());
}

void LifecycleTest::xdgOpenLinkAfterInstallation()
{
    // Installed as `cmake --install` does it, into a prefix of its own that XDG_DATA_HOME names.
    const QString buildDir = QFileInfo(parlantoBinary()).absoluteDir().absoluteFilePath(QStringLiteral(".."));
    QVERIFY(QFileInfo::exists(buildDir + QStringLiteral("/CMakeCache.txt")));
    QTemporaryDir prefix;
    const ToolRun install = runWith(QStringLiteral("cmake"), {QStringLiteral("--install"), buildDir,
                                                              QStringLiteral("--prefix"), prefix.path()});
    QVERIFY2(install.exitCode == 0, qPrintable(install.out));
    for (const char *installed : {"bin/parlanto", "share/applications/parlanto.desktop",
                                  "share/icons/hicolor/scalable/apps/parlanto.svg"})
        QVERIFY2(QFileInfo::exists(prefix.filePath(QLatin1String(installed))), installed);
    const QString entry = prefix.filePath(QStringLiteral("share/applications/parlanto.desktop"));
    const ToolRun validation = runWith(QStringLiteral("desktop-file-validate"), {entry});
    QVERIFY2(validation.exitCode == 0 && validation.out.isEmpty(), qPrintable(validation.out));

    QTemporaryDir userConfig;
    const QStringList environment{QStringLiteral("XDG_DATA_HOME=") + prefix.filePath(QStringLiteral("share")),
                                  QStringLiteral("XDG_CONFIG_HOME=") + userConfig.path()};
    QCOMPARE(runWith(QStringLiteral("update-desktop-database"), {prefix.filePath(QStringLiteral("share/applications"))}).exitCode, 0);
    QCOMPARE(runWith(QStringLiteral("xdg-mime"), {QStringLiteral("default"), QStringLiteral("parlanto.desktop"),
                                                  QStringLiteral("x-scheme-handler/parlanto")}, environment).exitCode, 0);

    QTemporaryDir config;
    QVERIFY(writeSettingsFile(config.path(), R"({"has_launched_before": true})"));
    TrayProgram program(config.path());
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] launch-at-login offer: made before")).isEmpty());
    m_xterm = DesktopApp::program(QStringLiteral("xterm"), {});
    QVERIFY(m_xterm && m_xterm->waitUntilActive());

    const ToolRun open = runWith(QStringLiteral("xdg-open"), {QStringLiteral("parlanto://settings")}, environment);
    QVERIFY2(open.exitCode == 0, qPrintable(open.out));
    QVERIFY2(open.out.contains(QLatin1String("already running")), qPrintable(open.out));
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] link: opening the settings window")).isEmpty());
    QTRY_COMPARE_WITH_TIMEOUT(DesktopApp::activeWindowPid(), program.pid(), 10000);
    QVERIFY(isViewable(runTool(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")})));
}

void LifecycleTest::linkAtStartAndTerminationSignal()
{
    QTemporaryDir config;
    QVERIFY(writeSettingsFile(config.path(), R"({"has_launched_before": true})"));
    // Started with the link itself: the settings window comes up once the start-up has run.
    TrayProgram program(config.path(), {}, {QStringLiteral("parlanto://settings")});
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] launch-at-login offer: made before")).isEmpty());
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] link: opening the settings window")).isEmpty());
    QTRY_COMPARE_WITH_TIMEOUT(DesktopApp::activeWindowPid(), program.pid(), 10000);
    QCOMPARE(activeWindowName(), qtTrId("settings.title"));

    ::kill(static_cast<pid_t>(program.pid()), SIGTERM);
    QVERIFY(!program.waitForLine(QStringLiteral("[Parlanto] termination signal: quitting")).isEmpty());
    QVERIFY2(!program.waitForLine(QStringLiteral("[Parlanto] quit: hotkeys unregistered")).isEmpty(),
             qPrintable(program.lines().join(QLatin1Char('\n'))));
    QTRY_VERIFY_WITH_TIMEOUT(!program.isRunning(), 10000);
}

void LifecycleTest::translationTabTestsTheEngine()
{
    LoopbackHttpServer server;
    qputenv("PARLANTO_SERVICE_URL", server.url().toString().toUtf8());
    AppState::shared().setDefaultLanguage(QStringLiteral("en"));
    TranslationSettingsTab tab;
    tab.show();
    QVERIFY(QTest::qWaitForWindowExposed(&tab));
    QCOMPARE(tab.quotaLabel()->text(), qtTrId("translation.quota.unknown"));

    // With a service configured it is the engine in use until another is chosen.
    QCOMPARE(tab.engineMenu()->currentData().toString(), EngineIds::service);
    tab.engineMenu()->setCurrentIndex(tab.engineMenu()->findData(EngineIds::offline));
    QCOMPARE(EngineSettings::selectedEngine(), EngineIds::offline);
    tab.engineMenu()->setCurrentIndex(tab.engineMenu()->findData(EngineIds::service));
    QCOMPARE(SettingsStore::shared().stringValue(SettingsKeys::translationEngine), EngineIds::service);

    QSignalSpy finished(&tab, &TranslationSettingsTab::testFinished);
    server.enqueue(LoopbackHttpServer::Reply::json(
        200, R"({"translated_text":"Buenos días","characters_used":12,"remaining_quota":4988})"));
    QTest::mouseClick(tab.testButton(), Qt::LeftButton);
    QVERIFY(finished.wait(15000));
    QCOMPARE(tab.testResultLabel()->text(), QStringLiteral("“Good morning” → “Buenos días”"));
    const QJsonObject body = QJsonDocument::fromJson(server.requests().last().body).object();
    QCOMPARE(body.value(QStringLiteral("text")).toString(), QStringLiteral("Good morning"));
    QCOMPARE(body.value(QStringLiteral("target_language")).toString(), QStringLiteral("es"));
    // The quota the service reported is shown at once.
    QVERIFY2(tab.quotaLabel()->text().contains(QLocale().toString(4988)), qPrintable(tab.quotaLabel()->text()));

    // An error is shown by its message; the button is usable again.
    server.enqueue(LoopbackHttpServer::Reply::json(401, R"({"error":"unauthorized"})"));
    QTest::mouseClick(tab.testButton(), Qt::LeftButton);
    QVERIFY(finished.wait(15000));
    QCOMPARE(tab.testResultLabel()->text(), TranslationError::unauthorized().userMessage());
    QVERIFY(tab.testButton()->isEnabled());

    // Another engine is tested with what was just typed into its fields, without pressing Return:
    // a DeepL server of the user's choosing and a key.
    LoopbackHttpServer deepl;
    tab.engineMenu()->setCurrentIndex(tab.engineMenu()->findData(EngineIds::deepl));
    QLineEdit *url = tab.engineField(EngineIds::deepl, QStringLiteral("url"));
    url->setFocus();
    QTest::keyClicks(url, deepl.url().toString());
    QLineEdit *key = tab.engineField(EngineIds::deepl, QStringLiteral("key"));
    key->setFocus();
    QTest::keyClicks(key, QStringLiteral("test-key:fx"));
    deepl.enqueue(LoopbackHttpServer::Reply::json(200, R"({"translations":[{"detected_source_language":"EN","text":"Buen día"}]})"));
    QTest::mouseClick(tab.testButton(), Qt::LeftButton);
    QVERIFY(finished.wait(15000));
    QCOMPARE(tab.testResultLabel()->text(), QStringLiteral("“Good morning” → “Buen día”"));
    QCOMPARE(SettingsStore::shared().stringValue(SettingsKeys::deeplUrl), deepl.url().toString());
    QCOMPARE(deepl.requests().size(), 1);
    QCOMPARE(deepl.requests().first().header("Authorization"), QByteArray("DeepL-Auth-Key test-key:fx"));
    qunsetenv("PARLANTO_SERVICE_URL");
    SettingsStore::shared().remove(SettingsKeys::deeplUrl);
    SettingsStore::shared().remove(SettingsKeys::translationEngine);
}

void LifecycleTest::translationTabKeepsSecretsInTheKeyring()
{
    LoopbackHttpServer server;
    qputenv("PARLANTO_SERVICE_URL", server.url().toString().toUtf8());
    TranslationSettingsTab tab;
    tab.show();
    QVERIFY(QTest::qWaitForWindowExposed(&tab));
    QCOMPARE(tab.accountStatusLabel()->text(), qtTrId("translation.account.signed_out"));
    QVERIFY(!tab.signOutButton()->isEnabled());

    // Paste to sign in: the token goes to the real Secret Service, the field stays masked.
    const QString token = QStringLiteral("tok-") + QString::number(QCoreApplication::applicationPid());
    QCOMPARE(tab.tokenField()->echoMode(), QLineEdit::Password);
    tab.tokenField()->setFocus();
    tab.tokenField()->insert(token + QLatin1Char('\n'));
    QVERIFY(tab.signInButton()->isEnabled());
    QTest::mouseClick(tab.signInButton(), Qt::LeftButton);
    QCOMPARE(keyringSecret(KeychainStore::sessionTokenKey), token);
    QCOMPARE(tab.accountStatusLabel()->text(), qtTrId("translation.account.signed_in"));
    QVERIFY(tab.tokenField()->text().isEmpty());

    // The service now gets the token with the Test request.
    QSignalSpy finished(&tab, &TranslationSettingsTab::testFinished);
    tab.engineMenu()->setCurrentIndex(tab.engineMenu()->findData(EngineIds::service));
    server.enqueue(LoopbackHttpServer::Reply::json(200, R"({"translated_text":"Buenos días","characters_used":12})"));
    QTest::mouseClick(tab.testButton(), Qt::LeftButton);
    QVERIFY(finished.wait(15000));
    QCOMPARE(server.requests().last().header("Authorization"), QByteArray("Bearer ") + token.toUtf8());

    // Sign out deletes it from the keyring.
    QTest::mouseClick(tab.signOutButton(), Qt::LeftButton);
    int exitCode = 0;
    QCOMPARE(keyringSecret(KeychainStore::sessionTokenKey, &exitCode), QString());
    QCOMPARE(exitCode, 1);
    QCOMPARE(tab.accountStatusLabel()->text(), qtTrId("translation.account.signed_out"));

    // An engine's API key: to the keyring, shown masked, never into the settings file.
    QLineEdit *key = tab.engineField(EngineIds::deepl, QStringLiteral("key"));
    QCOMPARE(key->echoMode(), QLineEdit::Password);
    tab.engineMenu()->setCurrentIndex(tab.engineMenu()->findData(EngineIds::deepl));
    key->setFocus();
    QTest::keyClicks(key, QStringLiteral("dk-secret:fx"));
    QTest::keyClick(key, Qt::Key_Return);
    QCOMPARE(keyringSecret(QStringLiteral("deepl_api_key")), QStringLiteral("dk-secret:fx"));
    QFile settings(m_config.filePath(QStringLiteral("parlanto/settings.json")));
    QVERIFY(settings.open(QIODevice::ReadOnly));
    QVERIFY(!settings.readAll().contains("dk-secret"));
    QVERIFY(key->displayText() != key->text());
    // A fresh tab shows that a key is stored, masked.
    TranslationSettingsTab again;
    QCOMPARE(again.engineField(EngineIds::deepl, QStringLiteral("key"))->text(), QStringLiteral("dk-secret:fx"));
    QVERIFY(!again.engineField(EngineIds::deepl, QStringLiteral("key"))->displayText().contains(QLatin1String("dk")));
    // Emptying the field removes the key.
    key->clear();
    Q_EMIT key->editingFinished();
    QCOMPARE(keyringSecret(QStringLiteral("deepl_api_key")), QString());
    qunsetenv("PARLANTO_SERVICE_URL");
    SettingsStore::shared().remove(SettingsKeys::translationEngine);
}

void LifecycleTest::translationTabScreenshot()
{
    qputenv("PARLANTO_SERVICE_URL", "https://service.invalid");
    KeychainStore::shared().save(KeychainStore::sessionTokenKey, QStringLiteral("screenshot-token"));
    AppState::shared().setQuotaRemaining(48210);
    SettingsWindow window;
    auto *tab = window.findChild<TranslationSettingsTab *>();
    QVERIFY(tab);
    window.tabs()->setCurrentWidget(tab);
    window.move(40, 40);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    tab->engineMenu()->setCurrentIndex(tab->engineMenu()->findData(EngineIds::service));
    QVERIFY(window.grab().save(screenshotDir() + QStringLiteral("/translation-tab-service.png")));
    tab->engineMenu()->setCurrentIndex(tab->engineMenu()->findData(EngineIds::openai));
    QVERIFY(window.grab().save(screenshotDir() + QStringLiteral("/translation-tab-openai.png")));
    // Nothing is cut off: every control shown fits the window.
    for (QWidget *child : tab->findChildren<QWidget *>()) {
        if (child->isVisible())
            QVERIFY2(window.rect().contains(QRect(child->mapTo(&window, QPoint(0, 0)), child->size())),
                     qPrintable(child->objectName()));
    }
    qunsetenv("PARLANTO_SERVICE_URL");
    SettingsStore::shared().remove(SettingsKeys::translationEngine);
}

void LifecycleTest::everyTextIdIsTranslated()
{
    QString englishLanguage, spanishLanguage;
    const auto english = translationsOf(sourceDir() + QStringLiteral("/translations/parlanto_en.ts"), &englishLanguage);
    const auto spanish = translationsOf(sourceDir() + QStringLiteral("/translations/parlanto_es.ts"), &spanishLanguage);
    QCOMPARE(englishLanguage, QStringLiteral("en"));
    QCOMPARE(spanishLanguage, QStringLiteral("es"));
    QVERIFY(english.size() > 50);

    // Every id the code looks up has its English text.
    static const QRegularExpression lookup(QStringLiteral("qtTrId\\(\"([a-z0-9_.]+)\"\\)"));
    QDirIterator sources(sourceDir() + QStringLiteral("/src"), {QStringLiteral("*.cpp"), QStringLiteral("*.mm"), QStringLiteral("*.h")},
                         QDir::Files, QDirIterator::Subdirectories);
    QStringList missingEnglish;
    while (sources.hasNext()) {
        QFile file(sources.next());
        QVERIFY(file.open(QIODevice::ReadOnly));
        for (const QRegularExpressionMatch &match : lookup.globalMatch(QString::fromUtf8(file.readAll()))) {
            if (english.value(match.captured(1)).isEmpty())
                missingEnglish << match.captured(1) + QStringLiteral(" (") + QFileInfo(file.fileName()).fileName() + QLatin1Char(')');
        }
    }
    QVERIFY2(missingEnglish.isEmpty(), qPrintable(QStringLiteral("no English text: ") + missingEnglish.join(QStringLiteral(", "))));

    // Spanish has every English id, finished, with the same placeholders.
    QStringList missingSpanish, badPlaceholders;
    for (auto it = english.cbegin(); it != english.cend(); ++it) {
        const QString translated = spanish.value(it.key());
        if (translated.trimmed().isEmpty())
            missingSpanish << it.key();
        else if (placeholders(translated) != placeholders(it.value()))
            badPlaceholders << it.key();
    }
    QVERIFY2(missingSpanish.isEmpty(), qPrintable(QStringLiteral("no Spanish text: ") + missingSpanish.join(QStringLiteral(", "))));
    QVERIFY2(badPlaceholders.isEmpty(), qPrintable(QStringLiteral("placeholders differ: ") + badPlaceholders.join(QStringLiteral(", "))));
}

void LifecycleTest::interfaceLanguageFollowsTheLocale()
{
    const auto spanish = translationsOf(sourceDir() + QStringLiteral("/translations/parlanto_es.ts"));
    installTranslations(QLocale(QStringLiteral("es_ES")));
    QCOMPARE(interfaceLanguage(), QStringLiteral("es"));
    QCOMPARE(qtTrId("menu.quit"), spanish.value(QStringLiteral("menu.quit")));
    QCOMPARE(qtTrId("alert.launch_at_login.title"), spanish.value(QStringLiteral("alert.launch_at_login.title")));
    installTranslations(QLocale(QStringLiteral("es_MX")));
    QCOMPARE(interfaceLanguage(), QStringLiteral("es"));
    installTranslations(QLocale(QStringLiteral("de_DE"))); // no German: English
    QCOMPARE(interfaceLanguage(), QStringLiteral("en"));
    QCOMPARE(qtTrId("menu.quit"), QStringLiteral("Quit Parlanto"));
}

QTEST_MAIN(LifecycleTest)
#include "tst_lifecycle.moc"
