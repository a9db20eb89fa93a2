// The program as a user starts it: the desktop session it runs in, the tray program, and the
// command line against a real loopback service and the session's real keyring.
#include "support/LoopbackHttpServer.h"
#include "support/TestSupport.h"
#include "support/TrayProgram.h"
#include "service/KeychainStore.h"
#include "system/SystemKeychain.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>

using namespace std::chrono_literals;

namespace {

struct Run {
    int exitCode = -1;
    QString out;
    QString err;
};

// Starts the program with the given arguments and environment additions and, while the test's
// event loop keeps serving the loopback server, waits for it to end.
Run runProgram(const QStringList &arguments, const QStringList &environment = {},
               const std::optional<QByteArray> &standardInput = std::nullopt)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("PARLANTO_SERVICE_URL"));
    for (const QString &assignment : environment)
        env.insert(assignment.section(QLatin1Char('='), 0, 0), assignment.section(QLatin1Char('='), 1));
    process.setProcessEnvironment(env);
    process.start(parlantoBinary(), arguments);
    if (!process.waitForStarted(5000))
        return {};
    if (standardInput) {
        process.write(*standardInput);
        process.closeWriteChannel();
    }
    QElapsedTimer timer;
    timer.start();
    while (process.state() != QProcess::NotRunning && timer.elapsed() < 20000)
        QTest::qWait(10);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QString runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput());
}

// The classes of the windows that the system tray (trayer) has embedded, e.g. "parlanto".
QStringList trayClients()
{
    QStringList clients;
    const QStringList tree = runTool(QStringLiteral("xwininfo"), {QStringLiteral("-root"), QStringLiteral("-tree")})
                                 .split(QLatin1Char('\n'));
    int panelIndent = -1;
    for (const QString &line : tree) {
        const QString trimmed = line.trimmed();
        if (!trimmed.startsWith(QLatin1String("0x")))
            continue;
        const int indent = line.size() - line.trimmed().size();
        if (trimmed.contains(QLatin1String("(\"panel\" \"trayer\")"))) {
            panelIndent = indent;
        } else if (panelIndent >= 0 && indent <= panelIndent) {
            panelIndent = -1;
        } else if (panelIndent >= 0) {
            const qsizetype open = trimmed.indexOf(QLatin1String("(\""));
            if (open >= 0)
                clients << trimmed.mid(open + 2).section(QLatin1Char('"'), 0, 0);
        }
    }
    return clients;
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

} // namespace

class ProgramTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void desktopSessionIsLive();
    void trayProgramStartsWithStoredSettings();
    void trayProgramStartsWithDefaultsAndKeepsUnreadableFile();
    void commandLineTranslates();
    void commandLineReportsErrors();
    void commandLineSendsTheKeyringToken();
    void commandLineTranslatesOfflineWithoutConfiguration();
    void commandLineChoosesEngineAndSource();
    void commandLineListsEngines();
    void commandLineRejectsUnknownEngines();
};

void ProgramTest::desktopSessionIsLive()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "no DISPLAY: run the tests through scripts/test");
    QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
    QVERIFY2(QSystemTrayIcon::isSystemTrayAvailable(), "no system tray in the session");
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    QVERIFY2(bus, "no D-Bus session bus");
    for (const char *name : {"org.freedesktop.secrets", "org.freedesktop.Notifications", "org.a11y.Bus"})
        QVERIFY2(bus->isServiceRegistered(QString::fromLatin1(name)), name);
    QVERIFY2(QFileInfo(parlantoBinary()).isExecutable(), "the program was not built");
}

void ProgramTest::trayProgramStartsWithStoredSettings()
{
    QTemporaryDir config;
    writeFile(config.filePath(QStringLiteral("parlanto/settings.json")), R"({
        "auto_replace": false, "output_mode": "bilingual", "bilingual_template": "{translated}\n--\n{original}",
        "default_language": "fr", "inline_translation_enabled": true, "popup_dismiss_delay": 30,
        "hotkey_configs": {"data": "W3siaWQiOiI0RjlFNkQ0Qi0xQjJBLTRDM0QtOEU1Ri02QTdCOEM5RDBFMUYiLCJ0YXJnZXRMYW5ndWFnZSI6ImphIiwia2V5Q29kZSI6MCwibW9kaWZpZXJzIjo0MDk2LCJpc0VuYWJsZWQiOmZhbHNlfV0="}
    })");
    QVERIFY(!trayClients().contains(QLatin1String("parlanto")));
    TrayProgram program(config.path());
    const QString line = program.waitForLine(QStringLiteral("[Settings] loaded:"));
    QVERIFY2(!line.isEmpty(), qPrintable(program.lines().join(QLatin1Char('\n'))));
    for (const char *expected : {"auto_replace=false", "output_mode=bilingual",
                                 "bilingual_template=\"{translated}\\n--\\n{original}\"", "default_language=fr",
                                 "inline_translation_enabled=true", "popup_dismiss_delay=30",
                                 "hotkeys=[ja key 0 modifiers 0x1000 (disabled)]"})
        QVERIFY2(line.contains(QLatin1String(expected)), qPrintable(line + QStringLiteral(" lacks ") + QLatin1String(expected)));

    // The icon is embedded in the tray and the program stays up.
    QTRY_COMPARE_WITH_TIMEOUT(trayClients().count(QLatin1String("parlanto")), 1, 10000);
    QTest::qWait(300);
    QVERIFY(program.isRunning());
    const QString shots = screenshotDir();
    runTool(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("-crop"),
                                       QStringLiteral("200x24+1080+0"), shots + QStringLiteral("/tray-idle.png")});
    QVERIFY(QFileInfo::exists(shots + QStringLiteral("/tray-idle.png")));
}

void ProgramTest::trayProgramStartsWithDefaultsAndKeepsUnreadableFile()
{
    QTemporaryDir config;
    const QString file = config.filePath(QStringLiteral("parlanto/settings.json"));
    writeFile(file, "{ \"auto_replace\": tru");
    TrayProgram program(config.path());
    const QString line = program.waitForLine(QStringLiteral("[Settings] loaded:"));
    QVERIFY2(line.contains(QLatin1String("auto_replace=true output_mode=translate_only")), qPrintable(line));
    QVERIFY(line.contains(QLatin1String("hotkeys=[en key 14 modifiers 0x300, vi key 9 modifiers 0x300]")));
    QVERIFY(program.lines().join(QLatin1Char('\n')).contains(QLatin1String("moved aside")));
    const QStringList aside = QDir(config.filePath(QStringLiteral("parlanto")))
                                  .entryList({QStringLiteral("settings.json.unreadable-*")});
    QCOMPARE(aside.size(), 1);
    QFile kept(config.filePath(QStringLiteral("parlanto/") + aside.first()));
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(kept.readAll(), QByteArray("{ \"auto_replace\": tru"));
}

void ProgramTest::commandLineTranslates()
{
    LoopbackHttpServer server;
    server.enqueue(LoopbackHttpServer::Reply::json(
        200, R"({"translated_text":"Buenos días","characters_used":12,"remaining_quota":4988})"));
    const Run run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("es"),
                                QStringLiteral("Good"), QStringLiteral("morning")},
                               {QStringLiteral("PARLANTO_SERVICE_URL=") + server.url().toString()});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QStringLiteral("Buenos días\n"));
    QCOMPARE(server.requests().size(), 1);
    QCOMPARE(server.requests().first().path, QByteArray("/translate"));
    const QJsonObject body = QJsonDocument::fromJson(server.requests().first().body).object();
    QCOMPARE(body, (QJsonObject{{QStringLiteral("text"), QStringLiteral("Good morning")},
                                {QStringLiteral("target_language"), QStringLiteral("es")},
                                {QStringLiteral("mode"), QStringLiteral("translate")}}));
}

void ProgramTest::commandLineReportsErrors()
{
    LoopbackHttpServer server;
    const QString url = QStringLiteral("PARLANTO_SERVICE_URL=") + server.url().toString();
    server.enqueue(LoopbackHttpServer::Reply::json(429, R"({"error":"rate_limited"})"));
    Run run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("ja"), QStringLiteral("hi")}, {url});
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.err, QStringLiteral("Too many requests. Please wait a moment.\n"));
    QVERIFY(run.out.isEmpty());

    run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("xx"), QStringLiteral("hi")}, {url});
    QCOMPARE(run.exitCode, 2);
    QVERIFY2(run.err.contains(QLatin1String("unknown language \"xx\"")), qPrintable(run.err));

    run = runProgram({QStringLiteral("translate"), QStringLiteral("hi")}, {url});
    QCOMPARE(run.exitCode, 2);

    run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("es"), QStringLiteral("hi")},
                     {QStringLiteral("PARLANTO_SERVICE_URL=http://192.0.2.1/")});
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.err, QStringLiteral("Invalid URL\n"));
    QCOMPARE(server.requests().size(), 1);
}

void ProgramTest::commandLineSendsTheKeyringToken()
{
    KeychainStore keychain(createSystemKeychainBackend());
    const std::optional<QString> previous = keychain.load(KeychainStore::sessionTokenKey);
    QVERIFY(keychain.save(KeychainStore::sessionTokenKey, QStringLiteral("tok-ü-42")));
    LoopbackHttpServer server;
    server.enqueue(LoopbackHttpServer::Reply::json(200, R"({"translated_text":"Bonjour","characters_used":5})"));
    const Run run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("fr"), QStringLiteral("Hello")},
                               {QStringLiteral("PARLANTO_SERVICE_URL=") + server.url().toString()});
    if (previous)
        keychain.save(KeychainStore::sessionTokenKey, *previous);
    else
        keychain.remove(KeychainStore::sessionTokenKey);
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(server.requests().first().header("Authorization"), QString::fromUtf8("Bearer tok-ü-42").toUtf8());
    QVERIFY2(!run.out.contains(QLatin1String("tok-")) && !run.err.contains(QLatin1String("tok-")), "the token was printed");
}

void ProgramTest::commandLineTranslatesOfflineWithoutConfiguration()
{
    Run run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("es"), QStringLiteral("Good morning")});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QStringLiteral("Buenos días\n")); // diagnostics go to standard error

    // Standard input, all of it, line breaks and paragraphs kept.
    run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("en"), QStringLiteral("-")}, {},
                     QByteArray("Buenos días.\n\nEl gato duerme.\n"));
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QStringLiteral("Good morning.\n\nThe cat sleeps.\n"));

    run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("ja"), QStringLiteral("Good morning")});
    QCOMPARE(run.exitCode, 1);
    QVERIFY2(run.err.contains(QLatin1String("cannot translate into Japanese")), qPrintable(run.err));
    QVERIFY(run.out.isEmpty());
}

void ProgramTest::commandLineChoosesEngineAndSource()
{
    LoopbackHttpServer server;
    server.enqueue(LoopbackHttpServer::Reply::json(200, R"({"translatedText":"Hola\n\nmundo"})"));
    Run run = runProgram({QStringLiteral("translate"), QStringLiteral("--engine"), QStringLiteral("libretranslate"),
                          QStringLiteral("--from=en"), QStringLiteral("--to"), QStringLiteral("es"), QStringLiteral("-")},
                         {QStringLiteral("PARLANTO_LIBRETRANSLATE_URL=") + server.url().toString(),
                          QStringLiteral("PARLANTO_LIBRETRANSLATE_KEY=lt-env-key")},
                         QString::fromUtf8("Hello\n\nwörld\n").toUtf8());
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QStringLiteral("Hola\n\nmundo\n"));
    QCOMPARE(server.requests().size(), 1);
    QCOMPARE(QJsonDocument::fromJson(server.requests().first().body).object(),
             (QJsonObject{{QStringLiteral("q"), QString::fromUtf8("Hello\n\nwörld")},
                          {QStringLiteral("source"), QStringLiteral("en")},
                          {QStringLiteral("target"), QStringLiteral("es")},
                          {QStringLiteral("format"), QStringLiteral("text")},
                          {QStringLiteral("api_key"), QStringLiteral("lt-env-key")}}));

    // PARLANTO_ENGINE chooses when --engine is not given; the key comes from the environment.
    server.enqueue(LoopbackHttpServer::Reply::json(456, R"({"message":"Quota Exceeded"})"));
    run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("de"), QStringLiteral("Hello")},
                     {QStringLiteral("PARLANTO_ENGINE=deepl"), QStringLiteral("PARLANTO_DEEPL_URL=") + server.url().toString(),
                      QStringLiteral("PARLANTO_DEEPL_KEY=dl-env-key:fx")});
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.err, QStringLiteral("You have used this month's translation quota.\n"));
    QCOMPARE(server.requests().last().path, QByteArray("/v2/translate"));
    QCOMPARE(server.requests().last().header("Authorization"), QByteArray("DeepL-Auth-Key dl-env-key:fx"));
    QVERIFY(!run.out.contains(QLatin1String("env-key")) && !run.err.contains(QLatin1String("env-key")));

    run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("es"), QStringLiteral("-")}, {},
                     QByteArray("caf\xe9\n"));
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.err, QStringLiteral("parlanto translate: standard input is not UTF-8 text\n"));
}

void ProgramTest::commandLineListsEngines()
{
    Run run = runProgram({QStringLiteral("engines")});
    QCOMPARE(run.exitCode, 0);
    const QStringList lines = run.out.split(QLatin1Char('\n'));
    const auto lineOf = [&](const QString &engine) {
        for (const QString &line : lines) {
            if (line.mid(2).startsWith(engine + QLatin1Char(' ')))
                return line;
        }
        return QString();
    };
    QVERIFY2(lineOf(QStringLiteral("offline")).startsWith(QLatin1String("* offline         ready")), qPrintable(run.out));
    QVERIFY(run.out.contains(QLatin1String("directions: ")) && run.out.contains(QString::fromUtf8("en → es"))
            && run.out.contains(QString::fromUtf8("en → pt (via es)")));
    QVERIFY2(lineOf(QStringLiteral("service")).contains(QLatin1String("not configured")), qPrintable(run.out));
    QVERIFY(lineOf(QStringLiteral("deepl")).contains(QLatin1String("not configured")));
    QVERIFY(lineOf(QStringLiteral("deepl")).contains(QLatin1String("no API key stored as \"deepl_api_key\"")));
    QVERIFY(lineOf(QStringLiteral("libretranslate")).contains(QLatin1String("not configured")));
    QVERIFY(lineOf(QStringLiteral("openai")).contains(QLatin1String("https://api.openai.com/v1, model \"gpt-4o-mini\"")));

    run = runProgram({QStringLiteral("engines")},
                     {QStringLiteral("PARLANTO_ENGINE=openai"), QStringLiteral("PARLANTO_OPENAI_URL=http://127.0.0.1:11434/v1"),
                      QStringLiteral("PARLANTO_OPENAI_MODEL=llama3.2"), QStringLiteral("PARLANTO_DEEPL_KEY=dl-secret:fx")});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.out.contains(QLatin1String("* openai          ready           http://127.0.0.1:11434/v1, model \"llama3.2\"")),
             qPrintable(run.out));
    QVERIFY(run.out.contains(QLatin1String("  offline         ready")));
    QVERIFY(run.out.contains(QLatin1String("deepl           ready           https://api-free.deepl.com, API key stored")));
    QVERIFY(!run.out.contains(QLatin1String("dl-secret")));
}

void ProgramTest::commandLineRejectsUnknownEngines()
{
    const QString valid = QStringLiteral("use one of: service, offline, deepl, libretranslate, openai\n");
    Run run = runProgram({QStringLiteral("translate"), QStringLiteral("--engine"), QStringLiteral("google"),
                          QStringLiteral("--to"), QStringLiteral("es"), QStringLiteral("hi")});
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.err, QStringLiteral("parlanto translate: unknown engine \"google\"; ") + valid);

    run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("es"), QStringLiteral("hi")},
                     {QStringLiteral("PARLANTO_ENGINE=bing")});
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.err, QStringLiteral("parlanto translate: PARLANTO_ENGINE names an unknown engine \"bing\"; ") + valid);

    run = runProgram({QStringLiteral("translate"), QStringLiteral("--from"), QStringLiteral("xx"), QStringLiteral("--to"),
                      QStringLiteral("es"), QStringLiteral("hi")});
    QCOMPARE(run.exitCode, 2);
    QVERIFY2(run.err.contains(QLatin1String("unknown language \"xx\"")), qPrintable(run.err));

    run = runProgram({QStringLiteral("translate"), QStringLiteral("--to"), QStringLiteral("es"), QStringLiteral("--engine")});
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.err, QStringLiteral("parlanto translate: --engine needs a value\n"));
}

QTEST_MAIN(ProgramTest)
#include "tst_program.moc"
