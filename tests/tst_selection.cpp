// Selection translation end to end, driven only through X as a user drives it: the tray program
// runs as its own process against a loopback translation service, text is selected in a real
// GTK editor (mousepad) or our Qt editor, the hotkey is pressed with XTest, and what the user
// sees is read back from outside: the editor's text over AT-SPI or its dump file, the clipboard
// through xclip, the notices through the session bus, the popup through its accessibility tree.
#include "support/NoticeWatch.h"
#include "support/ClipboardFormats.h"
#include "support/DesktopApp.h"
#include "support/LoopbackHttpServer.h"
#include "support/TestSupport.h"
#include "support/TrayProgram.h"
#include "system/FloatingPanel.h"
#include "system/PanelPlacement.h"

#include <QApplication>
#include <QCursor>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace std::chrono_literals;
using Reply = LoopbackHttpServer::Reply;

namespace {

const QString hotkey = QStringLiteral("ctrl+shift+e");

Reply translation(const QByteArray &text)
{
    return Reply::json(200, R"({"translated_text":")" + text + R"(","characters_used":10})");
}

// The showing objects of a process's accessibility tree (role, name, text, extents).
QJsonArray accessibleObjects(qint64 pid)
{
    const ToolResult dump = runToolRaw(QStringLiteral("/usr/bin/python3"),
                                       {qEnvironmentVariable("PARLANTO_TEST_SCRIPTS_DIR") + QStringLiteral("/atspi_dump.py"),
                                        QString::number(pid)});
    return QJsonDocument::fromJson(dump.out).array();
}

QRect extents(const QJsonObject &object)
{
    const QJsonArray box = object.value(QLatin1String("extents")).toArray();
    return box.size() == 4 ? QRect(box[0].toInt(), box[1].toInt(), box[2].toInt(), box[3].toInt()) : QRect();
}

// The first showing object of the role (and name, when given).
QJsonObject findObject(const QJsonArray &objects, const QString &role, const QString &name = {})
{
    for (const QJsonValue &value : objects) {
        const QJsonObject object = value.toObject();
        if (object.value(QLatin1String("role")).toString() == role
            && (name.isNull() || object.value(QLatin1String("name")).toString() == name))
            return object;
    }
    return {};
}

} // namespace

class SelectionTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    LoopbackHttpServer m_server;
    std::unique_ptr<DesktopApp> m_owner; // the user's clipboard
    std::unique_ptr<DesktopApp> m_app;   // where the text is selected
    std::unique_ptr<DesktopApp> m_other; // another application
    std::unique_ptr<TrayProgram> m_agent;
    Formats m_userClipboard;
    QByteArray m_agentSettings;
    qsizetype m_agentLinesShown = 0;

    QString path(const QString &name) const { return m_dir.filePath(name); }

    void writeFile(const QString &name, const QByteArray &bytes)
    {
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
    }

    // The tray program with these settings (a JSON object's members), hotkeys at their defaults;
    // started again only when the settings differ from the running one's.
    void useAgent(const QByteArray &settings = {})
    {
        if (m_agent && m_agent->isRunning() && settings == m_agentSettings)
            return;
        m_agent.reset();
        m_agentSettings = settings;
        m_agentLinesShown = 0;
        const QString config = path(QStringLiteral("config"));
        QVERIFY(writeSettingsFile(config, "{\"has_launched_before\": true"
                                              + (settings.isEmpty() ? QByteArray() : ", " + settings) + '}'));
        m_agent = std::make_unique<TrayProgram>(config, QStringList{QStringLiteral("PARLANTO_SERVICE_URL=")
                                                                    + m_server.url().toString()});
        const QString registered = m_agent->waitForLine(QStringLiteral("[HotkeyManager] Registered hotkey 1"));
        QVERIFY2(registered.endsWith(QLatin1String("Ctrl+Shift+E")), qPrintable(m_agent->lines().join(QLatin1Char('\n'))));
    }

    // Another client puts text, HTML, a PNG and a private type on the clipboard.
    void giveUserAClipboard()
    {
        QFile::remove(path(QStringLiteral("owner.ready")));
        QStringList arguments;
        for (const char *name : {"text/plain", "text/html", "image/png", "application/x-parlanto-private"})
            arguments << QStringLiteral("--data")
                      << QStringLiteral("%1=%2").arg(QLatin1String(name), path(QString::fromLatin1(name).replace(QLatin1Char('/'), QLatin1Char('_'))));
        arguments << QStringLiteral("--ready") << path(QStringLiteral("owner.ready"));
        m_owner = DesktopApp::program(qEnvironmentVariable("PARLANTO_TEST_APPS_DIR") + QStringLiteral("/clipboard_owner"), arguments);
        QVERIFY(m_owner);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(path(QStringLiteral("owner.ready"))), 10000);
        m_userClipboard = clipboardFormats();
        for (const char *name : {"text/plain", "text/html", "image/png", "application/x-parlanto-private"})
            QVERIFY2(m_userClipboard.contains(QLatin1String(name)), name);
    }

    // mousepad on a file, with its second line selected (or nothing, or everything).
    enum class Select { SecondLine, Nothing, All };
    void openMousepad(const QByteArray &content, Select select = Select::SecondLine)
    {
        writeFile(QStringLiteral("mousepad.txt"), content);
        m_app = DesktopApp::program(QStringLiteral("mousepad"), {QStringLiteral("--disable-server"), path(QStringLiteral("mousepad.txt"))});
        QVERIFY(m_app);
        QVERIFY(m_app->waitUntilActive());
        QTest::qWait(300); // the text view takes the focus after the window
        if (select == Select::SecondLine)
            QVERIFY(pressKeys({QStringLiteral("ctrl+Home"), QStringLiteral("Down"), QStringLiteral("shift+End")}));
        else if (select == Select::All)
            QVERIFY(pressKeys({QStringLiteral("ctrl+a")}));
        QTest::qWait(100);
    }

    QString mousepadText()
    {
        // The document view: the largest text object of the window.
        QString text;
        int largest = -1;
        for (const QJsonValue &value : accessibleObjects(m_app->pid())) {
            const QJsonObject object = value.toObject();
            const QRect box = extents(object);
            if (object.contains(QLatin1String("text")) && box.width() * box.height() > largest) {
                largest = box.width() * box.height();
                text = object.value(QLatin1String("text")).toString();
            }
        }
        return text;
    }

    // Our Qt editor; `focus` names the field holding the selection (its whole text).
    std::unique_ptr<DesktopApp> openQtEditor(const QString &text, const QString &focus, const QString &dump,
                                             const QString &title = QStringLiteral("Parlanto Test Editor"))
    {
        auto app = DesktopApp::qtEditor({QStringLiteral("--text"), text, QStringLiteral("--focus"), focus,
                                         QStringLiteral("--select-all"), QStringLiteral("--dump"), path(dump),
                                         QStringLiteral("--title"), title});
        if (app && app->waitUntilActive())
            QTest::qWait(300);
        return app;
    }

    QString editorField(const QString &dump, const QString &field)
    {
        QFile file(path(dump));
        if (!file.open(QIODevice::ReadOnly))
            return QStringLiteral("<no dump>");
        return QJsonDocument::fromJson(file.readAll()).object().value(field).toString();
    }

    QJsonObject lastRequest() const
    {
        return m_server.requests().isEmpty() ? QJsonObject()
                                             : QJsonDocument::fromJson(m_server.requests().last().body).object();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "runs in the desktop test session");
        // mousepad keeps its session in GSettings and, stopped by a signal, would ask to restore
        // it at its next start: this run's settings stay in memory.
        qputenv("GSETTINGS_BACKEND", "memory");
        writeFile(QStringLiteral("text_plain"), QStringLiteral("The user's own text ✓").toUtf8());
        writeFile(QStringLiteral("text_html"), QStringLiteral("<b>bold</b> &amp; ünïcödé 😀").toUtf8());
        QImage image(40, 30, QImage::Format_RGB32);
        image.fill(Qt::darkCyan);
        QVERIFY(image.save(path(QStringLiteral("image_png")), "PNG"));
        QByteArray binary;
        for (int i = 0; i < 2048; ++i)
            binary.append(char(i * 13 % 256));
        writeFile(QStringLiteral("application_x-parlanto-private"), binary);
    }

    void init() { giveUserAClipboard(); }

    void cleanup()
    {
        if (QTest::currentTestFailed() && m_agent)
            qWarning("the program said:\n%s", qPrintable(m_agent->lines().mid(m_agentLinesShown).join(QLatin1Char('\n'))));
        if (m_agent)
            m_agentLinesShown = m_agent->lines().size();
        m_app.reset();
        m_other.reset();
        m_owner.reset();
        m_server.clearQueue();
        QTest::qWait(200);
    }

    // The selection is replaced by its translation (or original, blank line, translation), and
    // the user's clipboard is back byte for byte.
    void replacesTheSelection_data()
    {
        QTest::addColumn<QString>("application");
        QTest::addColumn<bool>("bilingual");
        QTest::newRow("gtk editor") << "mousepad" << false;
        QTest::newRow("gtk editor, bilingual") << "mousepad" << true;
        QTest::newRow("qt editor") << "qt_test_editor" << false;
        QTest::newRow("qt editor, bilingual") << "qt_test_editor" << true;
    }
    void replacesTheSelection()
    {
        QFETCH(QString, application);
        QFETCH(bool, bilingual);
        useAgent(bilingual ? R"("output_mode": "bilingual")" : "");
        m_server.enqueue(translation("Good morning, everyone"));
        const qsizetype before = m_server.requests().size();
        const QString original = QStringLiteral("Buenos días a todos");
        const QString pasted = bilingual ? original + QStringLiteral("\n\nGood morning, everyone")
                                         : QStringLiteral("Good morning, everyone");
        if (application == QLatin1String("mousepad")) {
            openMousepad("First line\n" + original.toUtf8() + "\nLast line\n");
            QVERIFY(xdotool({QStringLiteral("key"), hotkey}));
            QTRY_COMPARE_WITH_TIMEOUT(mousepadText(), QStringLiteral("First line\n") + pasted + QStringLiteral("\nLast line\n"), 8000);
        } else {
            m_app = openQtEditor(original, QStringLiteral("editor"), QStringLiteral("editor.json"));
            QVERIFY(m_app);
            QVERIFY(xdotool({QStringLiteral("key"), hotkey}));
            QTRY_COMPARE_WITH_TIMEOUT(editorField(QStringLiteral("editor.json"), QStringLiteral("editor")), pasted, 8000);
        }
        QCOMPARE(m_server.requests().size(), before + 1);
        QCOMPARE(lastRequest().value(QLatin1String("text")).toString(), original);
        QCOMPARE(lastRequest().value(QLatin1String("target_language")).toString(), QStringLiteral("en"));
        QTRY_VERIFY_WITH_TIMEOUT(sameFormats(clipboardFormats(), m_userClipboard), 5000);
    }

    // Auto-replace off: nothing is pasted; the translation waits on the clipboard with a notice.
    void withoutAutoReplaceTheTranslationWaitsOnTheClipboard()
    {
        useAgent(R"("auto_replace": false)");
        NoticeWatch notices;
        m_server.enqueue(translation("Hello world"));
        openMousepad("First line\nHola mundo\n");
        QVERIFY(xdotool({QStringLiteral("key"), hotkey}));
        QTRY_VERIFY_WITH_TIMEOUT(notices.posted(QStringLiteral("translation_copied")), 8000);
        QVERIFY2(notices.calls().contains(QStringLiteral("Translation copied \u2014 press Ctrl+V to paste")), qPrintable(notices.calls()));
        QCOMPARE(clipboardText(), QByteArray("Hello world"));
        QCOMPARE(mousepadText(), QStringLiteral("First line\nHola mundo\n"));
    }

    // A read-only text: the popup shows beside the selection, Copy copies exactly the text, and
    // it closes by itself after the stored delay.
    void readOnlyTextShowsThePopup()
    {
        useAgent(R"("popup_dismiss_delay": 0)");
        m_server.enqueue(translation("Good evening"));
        m_app = openQtEditor(QStringLiteral("Buenas tardes"), QStringLiteral("readonly"), QStringLiteral("editor.json"));
        QVERIFY(m_app);
        QVERIFY(xdotool({QStringLiteral("key"), hotkey}));
        const QString probes = m_agent->waitForLine(QStringLiteral("[Popup] isEditable="));
        const QRegularExpressionMatch rect =
            QRegularExpression(QStringLiteral("isEditable=false, selectionRect=\\((-?\\d+), (-?\\d+), (\\d+), (\\d+)\\)")).match(probes);
        QVERIFY2(rect.hasMatch(), qPrintable(probes));
        const QRect selection(rect.captured(1).toInt(), rect.captured(2).toInt(), rect.captured(3).toInt(), rect.captured(4).toInt());

        QJsonObject label;
        QTRY_VERIFY_WITH_TIMEOUT(!(label = findObject(accessibleObjects(m_agent->pid()), QStringLiteral("label"), QStringLiteral("EN"))).isEmpty(), 8000);
        const QJsonArray popup = accessibleObjects(m_agent->pid());
        QCOMPARE(findObject(popup, QStringLiteral("text")).value(QLatin1String("text")).toString(), QStringLiteral("Good evening"));
        // The selection rectangle is the read-only field's text, and the popup sits beside it.
        const QJsonArray editor = accessibleObjects(m_app->pid());
        QRect field;
        for (const QJsonValue &value : editor)
            if (value.toObject().value(QLatin1String("text")).toString() == QLatin1String("Buenas tardes")
                && extents(value.toObject()).contains(selection.center()))
                field = extents(value.toObject());
        QVERIFY2(field.isValid(), "the selection rectangle lies in the read-only field");
        const QRect panel = extents(findObject(popup, QStringLiteral("filler")));
        QCOMPARE(panel.topLeft(),
                 PanelPlacement::popupPosition(panel.size(), selection, QCursor::pos(), RoundedPanel::screenGeometries()));
        QCOMPARE(panel.top(), selection.bottom() + 1 + 6);
        screenshotOf(panel, QStringLiteral("selection-popup.png"));
        QVERIFY(m_app->waitUntilActive(1000)); // the editor kept the focus

        const QRect copy = extents(findObject(popup, QStringLiteral("push button"), QStringLiteral("Copy")));
        QVERIFY(xdotool({QStringLiteral("mousemove"), QString::number(copy.center().x()), QString::number(copy.center().y()),
                         QStringLiteral("click"), QStringLiteral("1")}));
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), QByteArray("Good evening"), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(findObject(accessibleObjects(m_agent->pid()), QStringLiteral("label"), QStringLiteral("EN")).isEmpty(), 5000);

        // With a delay stored, the popup goes away on its own.
        useAgent(R"("popup_dismiss_delay": 1)");
        m_server.enqueue(translation("Good evening"));
        QVERIFY(m_app->waitUntilActive());
        QVERIFY(xdotool({QStringLiteral("key"), hotkey}));
        QTRY_VERIFY_WITH_TIMEOUT(!findObject(accessibleObjects(m_agent->pid()), QStringLiteral("label"), QStringLiteral("EN")).isEmpty(), 8000);
        QTRY_VERIFY_WITH_TIMEOUT(findObject(accessibleObjects(m_agent->pid()), QStringLiteral("label"), QStringLiteral("EN")).isEmpty(), 8000);
    }

    // The user went to another application while the service was slow: nothing is pasted
    // anywhere, the translation waits on the clipboard, and clicking the notice copies it again.
    void focusMovedDuringTheTranslation()
    {
        useAgent();
        NoticeWatch notices;
        m_other = openQtEditor(QStringLiteral("Other application"), QStringLiteral("editor"), QStringLiteral("other.json"),
                               QStringLiteral("Other application"));
        QVERIFY(m_other);
        Reply slow = translation("Hello world");
        slow.delay = 2000ms;
        m_server.enqueue(slow);
        openMousepad("First line\nHola mundo\n");
        QVERIFY(xdotool({QStringLiteral("key"), hotkey}));
        QTRY_VERIFY_WITH_TIMEOUT(m_agent->lines().join(QLatin1Char('\n')).contains(QLatin1String("[Popup] capturedText='Hola mundo'")), 5000);
        QVERIFY(xdotool({QStringLiteral("search"), QStringLiteral("--name"), QStringLiteral("^Other application$"),
                         QStringLiteral("windowactivate"), QStringLiteral("--sync")}));
        QVERIFY(m_other->waitUntilActive());

        QTRY_VERIFY_WITH_TIMEOUT(notices.posted(QStringLiteral("translation_ready")), 8000);
        QCOMPARE(clipboardText(), QByteArray("Hello world"));
        QCOMPARE(mousepadText(), QStringLiteral("First line\nHola mundo\n"));
        QCOMPARE(editorField(QStringLiteral("other.json"), QStringLiteral("editor")), QStringLiteral("Other application"));

        giveUserAClipboard();
        QVERIFY(runToolRaw(QStringLiteral("dunstctl"), {QStringLiteral("action"), QStringLiteral("0")}).exitCode == 0);
        QTRY_COMPARE_WITH_TIMEOUT(clipboardText(), QByteArray("Hello world"), 5000);
    }

    // Every way a run can end without a translation: the Part's notice or silence, and the
    // user's clipboard and text untouched.
    void runsThatEndWithoutTranslation_data()
    {
        QTest::addColumn<QString>("selection");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("notice");
        QTest::addColumn<QString>("message");
        QTest::newRow("nothing selected") << "nothing" << 0 << QByteArray() << QString() << QString();
        QTest::newRow("5,001 characters") << "5001" << 0 << QByteArray() << "text_too_long"
                                         << "Text too long (max 5,000 characters)";
        QTest::newRow("401") << "line" << 401 << QByteArray(R"({"error":"unauthorized"})") << "unauthorized"
                             << "Your session has expired. Please sign in again.";
        QTest::newRow("429 quota") << "line" << 429 << QByteArray(R"({"error":"quota_exceeded"})") << "quota_exceeded"
                                   << "Translation quota used up";
        QTest::newRow("429 rate limit") << "line" << 429 << QByteArray(R"({"error":"slow_down","message":"Wait"})")
                                        << "unknown_error" << "Translation failed, try again";
        QTest::newRow("400 too long") << "line" << 400
                                      << QByteArray(R"({"error":"validation_error","message":"Text exceeds the limit"})")
                                      << "text_too_long" << "Text too long (max 5,000 characters)";
        QTest::newRow("400 other") << "line" << 400 << QByteArray(R"({"error":"bad_input","message":"No such language"})")
                                   << "unknown_error" << "Translation failed, try again";
        QTest::newRow("500") << "line" << 500 << QByteArray(R"({"error":"internal","message":"Engine down"})")
                             << "unknown_error" << "Translation failed, try again";
        QTest::newRow("502") << "line" << 502 << QByteArray("<html>bad gateway</html>") << "timeout" << "Translation timed out";
        QTest::newRow("200 not JSON") << "line" << 200 << QByteArray("<html></html>") << "unknown_error"
                                      << "Translation failed, try again";
    }
    void runsThatEndWithoutTranslation()
    {
        QFETCH(QString, selection);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, notice);
        QFETCH(QString, message);
        useAgent();
        NoticeWatch notices;
        const qsizetype before = m_server.requests().size();
        if (status)
            m_server.enqueue(body.startsWith('{') ? Reply::json(status, body) : Reply::text(status, body));
        QByteArray content = "First line\nHola mundo\n";
        if (selection == QLatin1String("5001")) {
            // Lines of 50 characters (newline included), all selected: 5,001 characters in all.
            content = QByteArray("Lorem ipsum dolor sit amet, consectetur adipiscin\n").repeated(100) + 'x';
            QCOMPARE(content.size(), 5001);
        }
        openMousepad(content, selection == QLatin1String("nothing") ? Select::Nothing
                              : selection == QLatin1String("5001") ? Select::All : Select::SecondLine);
        QVERIFY(xdotool({QStringLiteral("key"), hotkey}));

        if (notice.isEmpty()) {
            QVERIFY(!m_agent->waitForLine(QStringLiteral("[Popup] captureSelectedText returned nil")).isEmpty());
            QTest::qWait(500);
            QCOMPARE(notices.count(), 0);
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(notices.posted(notice), 8000);
            QVERIFY2(notices.sawString(message), qPrintable(notices.calls()));
            QCOMPARE(notices.count(), 1);
        }
        QCOMPARE(m_server.requests().size(), before + (status ? 1 : 0));
        QVERIFY(sameFormats(clipboardFormats(), m_userClipboard));
        QCOMPARE(mousepadText(), QString::fromUtf8(content));
    }

    // A second press while a run is under way does nothing: one request, one paste.
    void secondPressDuringARunIsIgnored()
    {
        useAgent();
        Reply slow = translation("Hello world");
        slow.delay = 1500ms;
        m_server.enqueue(slow);
        const qsizetype before = m_server.requests().size();
        openMousepad("First line\nHola mundo\n");
        QVERIFY(xdotool({QStringLiteral("key"), hotkey}));
        QTRY_COMPARE_WITH_TIMEOUT(m_server.requests().size(), before + 1, 5000);
        QVERIFY(xdotool({QStringLiteral("key"), hotkey}));
        QTRY_COMPARE_WITH_TIMEOUT(mousepadText(), QStringLiteral("First line\nHello world\n"), 8000);
        QTest::qWait(1000);
        QCOMPARE(m_server.requests().size(), before + 1);
        QCOMPARE(mousepadText(), QStringLiteral("First line\nHello world\n"));
        QTRY_VERIFY_WITH_TIMEOUT(sameFormats(clipboardFormats(), m_userClipboard), 5000);
    }

private:
    void screenshotOf(const QRect &area, const QString &name)
    {
        const QString file = screenshotDir() + QLatin1Char('/') + name;
        runToolRaw(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("-crop"),
                                              QStringLiteral("%1x%2+%3+%4").arg(area.width() + 200).arg(area.height() + 120)
                                                  .arg(std::max(0, area.x() - 100)).arg(std::max(0, area.y() - 80)),
                                              file});
    }
};

QTEST_MAIN(SelectionTest)
#include "tst_selection.moc"
