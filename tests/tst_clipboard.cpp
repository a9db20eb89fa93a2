// The clipboard and synthesised keys against the real X server and real applications of the
// desktop test session: mousepad (a GTK editor from Debian), xterm, our Qt editor, and a Qt
// process owning the clipboard. What the user's clipboard holds is always read back by another
// X client (xclip), target by target, byte for byte.
#include "state/HotkeyConfig.h"
#include "state/KeyCodes.h"
#include "support/ClipboardFormats.h"
#include "support/DesktopApp.h"
#include "system/ApplicationChords.h"
#include "system/ClipboardManager.h"
#include "system/KeyboardSimulator.h"
#include "system/x11/X11KeySynthesiser.h"
#include "system/x11/X11Pasteboard.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QFile>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QCoro/QCoroTask>

#include <signal.h>

namespace {

void setLayout(const QString &layout, const QString &variant = {})
{
    QStringList arguments{layout};
    if (!variant.isEmpty())
        arguments << QStringLiteral("-variant") << variant;
    QCOMPARE(runToolRaw(QStringLiteral("setxkbmap"), arguments).exitCode, 0);
}

QByteArray fileBytes(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

template <>
char *QTest::toString(const std::optional<QString> &value)
{
    return value ? QTest::toString(QLatin1Char('"') + *value + QLatin1Char('"')) : qstrdup("none");
}

class ClipboardTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    X11KeySynthesiser *m_synthesiser = nullptr;
    std::unique_ptr<KeyboardSimulator> m_keys;
    X11Pasteboard *m_pasteboard = nullptr;
    std::unique_ptr<ClipboardManager> m_manager;
    std::unique_ptr<DesktopApp> m_owner;   // the user's clipboard
    std::unique_ptr<DesktopApp> m_app;     // the application under test
    Formats m_userFormats;

    QString path(const QString &name) const { return m_dir.filePath(name); }

    void writeFile(const QString &name, const QByteArray &bytes)
    {
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }

    // Another X client puts text, HTML, a PNG, a file list and a private binary type on the
    // clipboard; m_userFormats is what a third client reads from it.
    void giveUserAClipboard()
    {
        QFile::remove(path(QStringLiteral("owner.ready")));
        QStringList arguments;
        for (const char *name : {"text/plain", "text/html", "image/png", "text/uri-list", "application/x-parlanto-private"})
            arguments << QStringLiteral("--data") << QStringLiteral("%1=%2").arg(QLatin1String(name), path(QString::fromLatin1(name).replace(QLatin1Char('/'), QLatin1Char('_'))));
        arguments << QStringLiteral("--ready") << path(QStringLiteral("owner.ready"));
        m_owner = DesktopApp::program(qEnvironmentVariable("PARLANTO_TEST_APPS_DIR") + QStringLiteral("/clipboard_owner"),
                                      arguments);
        QVERIFY(m_owner);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(path(QStringLiteral("owner.ready"))), 10000);
        m_userFormats = clipboardFormats();
        for (const char *name : {"text/plain", "text/html", "image/png", "text/uri-list", "application/x-parlanto-private"})
            QVERIFY2(m_userFormats.contains(QLatin1String(name)), name);
    }

    void openMousepad(const QByteArray &content)
    {
        writeFile(QStringLiteral("mousepad.txt"), content);
        m_app = DesktopApp::program(QStringLiteral("mousepad"), {path(QStringLiteral("mousepad.txt"))});
        QVERIFY(m_app);
        QVERIFY(m_app->waitUntilActive());
        QTest::qWait(300);   // the text view takes the focus after the window
    }

    // mousepad's text as it saves it (once it was changed).
    QByteArray savedMousepadText()
    {
        const QString file = path(QStringLiteral("mousepad.txt"));
        const QDateTime before = QFileInfo(file).lastModified();
        if (!xdotool({QStringLiteral("key"), QStringLiteral("ctrl+s")}))
            return "<ctrl+s failed>";
        QDeadlineTimer deadline(5000);
        while (QFileInfo(file).lastModified() == before && !deadline.hasExpired())
            QTest::qWait(20);
        QTest::qWait(100);
        return QFileInfo(file).lastModified() == before ? "<not saved> " + fileBytes(file) : fileBytes(file);
    }

    void openQtEditor(const QString &text, const QStringList &extra = {})
    {
        m_app = DesktopApp::qtEditor(QStringList{QStringLiteral("--text"), text, QStringLiteral("--dump"),
                                                 path(QStringLiteral("editor.json"))} + extra);
        QVERIFY(m_app);
        QVERIFY(m_app->waitUntilActive());
        QTest::qWait(200);
    }

    QString editorField(const QString &field)
    {
        return QJsonDocument::fromJson(fileBytes(path(QStringLiteral("editor.json")))).object().value(field).toString();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "runs in the desktop test session");
        auto synthesiser = std::make_unique<X11KeySynthesiser>();
        QVERIFY(synthesiser->isConnected());
        m_synthesiser = synthesiser.get();
        m_keys = std::make_unique<KeyboardSimulator>(std::move(synthesiser));
        auto pasteboard = std::make_unique<X11Pasteboard>();
        QVERIFY(pasteboard->isConnected());
        m_pasteboard = pasteboard.get();
        m_manager = std::make_unique<ClipboardManager>(std::move(pasteboard), *m_keys);

        writeFile(QStringLiteral("text_plain"), QStringLiteral("Plain ✓ text\nsecond line").toUtf8());
        writeFile(QStringLiteral("text_html"), QStringLiteral("<b>bold</b> &amp; ünïcödé 😀").toUtf8());
        writeFile(QStringLiteral("text_uri-list"), "file:///tmp/a%20b.txt\r\nfile:///tmp/c.txt\r\n");
        QByteArray binary;
        for (int i = 0; i < 4096; ++i)
            binary.append(char(i * 7 % 256));
        writeFile(QStringLiteral("application_x-parlanto-private"), binary);
        // Noise does not compress: a PNG of over a megabyte, which travels in increments.
        QImage image(700, 500, QImage::Format_RGB32);
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                image.setPixel(x, y, QRandomGenerator::global()->generate());
        QVERIFY(image.save(path(QStringLiteral("image_png")), "PNG"));
        QVERIFY(QFileInfo(path(QStringLiteral("image_png"))).size() > 1000000);
    }

    void cleanup()
    {
        runToolRaw(QStringLiteral("xdotool"), {QStringLiteral("keyup"), QStringLiteral("shift")});
        setLayout(QStringLiteral("us"));
        m_app.reset();
        m_owner.reset();
        QTest::qWait(200);
    }

    // The whole clipboard survives a snapshot even once its owner has gone: every target comes
    // back from the snapshot alone, byte for byte.
    void snapshotRestoresEveryFormatByteForByte()
    {
        giveUserAClipboard();
        const PasteboardSnapshot snapshot = QCoro::waitFor(m_manager->snapshot());
        QCOMPARE(snapshot.items.size(), 1);
        m_owner.reset();
        QTRY_COMPARE_WITH_TIMEOUT(clipboardFormats(), Formats{}, 5000);

        m_manager->restore(snapshot);
        QVERIFY(sameFormats(clipboardFormats(), m_userFormats));

        // Another raw owner hands the megabyte PNG over in increments; it arrives whole.
        X11Pasteboard other;
        QVERIFY(other.write(snapshot.items));
        const PasteboardSnapshot again = QCoro::waitFor(m_manager->snapshot());
        QCOMPARE(again.items, snapshot.items);
    }

    void captureFromGtkEditor_data()
    {
        QTest::addColumn<QString>("layout");
        QTest::addColumn<QString>("variant");
        QTest::addColumn<int>("shiftHeldMs");   // -1: not held; 0: held throughout

        QTest::newRow("us") << "us" << "" << -1;
        QTest::newRow("shift released while waiting") << "us" << "" << 300;
        QTest::newRow("shift held throughout") << "us" << "" << 0;
        QTest::newRow("german") << "de" << "" << -1;
        QTest::newRow("french") << "fr" << "" << -1;
        QTest::newRow("dvorak") << "us" << "dvorak" << -1;
    }

    // The exact selected text, whatever the layout and whatever the user still holds; the
    // user's clipboard comes back byte for byte after the caller restores it.
    void captureFromGtkEditor()
    {
        QFETCH(QString, layout);
        QFETCH(QString, variant);
        QFETCH(int, shiftHeldMs);
        const QString text = QStringLiteral("Grüße aus Köln 😀 – «ok»\nzweite Zeile: ñ, 日本語\n\tdritte");
        giveUserAClipboard();
        setLayout(layout, variant);
        openMousepad(text.toUtf8());
        QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("ctrl+a")}));
        const PasteboardSnapshot user = QCoro::waitFor(m_manager->snapshot());

        if (shiftHeldMs >= 0)
            QVERIFY(xdotool({QStringLiteral("keydown"), QStringLiteral("shift")}));
        if (shiftHeldMs > 0)
            QTimer::singleShot(shiftHeldMs, [] { QProcess::startDetached(QStringLiteral("xdotool"), {QStringLiteral("keyup"), QStringLiteral("shift")}); });
        const std::optional<QString> captured = QCoro::waitFor(m_manager->captureSelectedText(QStringLiteral("mousepad")));
        QCOMPARE(captured, std::optional<QString>(text));

        m_manager->restore(user);
        QVERIFY(sameFormats(clipboardFormats(), m_userFormats));
    }

    // With nothing selected there is nothing to translate, and the clipboard is as before
    // without the caller doing anything.
    void captureWithNothingSelected()
    {
        giveUserAClipboard();
        openMousepad("nothing selected here\n");
        QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("ctrl+End")}));
        QCOMPARE(QCoro::waitFor(m_manager->captureSelectedText(QStringLiteral("mousepad"))), std::nullopt);
        QVERIFY(sameFormats(clipboardFormats(), m_userFormats));
    }

    // A password manager's copy is never taken for text to translate.
    void secretCopyGivesNothing()
    {
        giveUserAClipboard();
        writeFile(QStringLiteral("secret.txt"), "hunter2");
        writeFile(QStringLiteral("secret.hint"), "secret");
        m_app = DesktopApp::program(qEnvironmentVariable("PARLANTO_TEST_APPS_DIR") + QStringLiteral("/clipboard_owner"),
                                    {QStringLiteral("--on-copy"), QStringLiteral("--data"),
                                     QStringLiteral("text/plain=") + path(QStringLiteral("secret.txt")),
                                     QStringLiteral("--data"),
                                     QStringLiteral("x-kde-passwordManagerHint=") + path(QStringLiteral("secret.hint")),
                                     QStringLiteral("--ready"), path(QStringLiteral("secret.ready"))});
        QVERIFY(m_app && m_app->waitUntilActive());
        QCOMPARE(QCoro::waitFor(m_manager->captureSelectedText(QStringLiteral("clipboard_owner"))), std::nullopt);
        QVERIFY2(QFile::exists(path(QStringLiteral("secret.ready"))), "the application did copy");
        QVERIFY(sameFormats(clipboardFormats(), m_userFormats));
    }

    // A terminal's selection is read without any keystroke: the program running in it (which
    // Ctrl+C would interrupt) goes on running. A selection in a window that is not the active
    // one does not count.
    void captureFromTerminalKeepsCommandRunning()
    {
        giveUserAClipboard();
        m_app = DesktopApp::program(QStringLiteral("xterm"),
                                    {QStringLiteral("-geometry"), QStringLiteral("80x10+0+0"), QStringLiteral("-e"),
                                     QStringLiteral("sh"), QStringLiteral("-c"),
                                     QStringLiteral("echo PARLANTO TERMINAL WORDS; exec sleep 6007")});
        QVERIFY(m_app && m_app->waitUntilActive());
        QTRY_COMPARE_WITH_TIMEOUT(runToolRaw(QStringLiteral("pgrep"), {QStringLiteral("-f"), QStringLiteral("sleep 6007")}).exitCode, 0, 5000);
        const QRect window = DesktopApp::activeWindowGeometry();
        QVERIFY(xdotool({QStringLiteral("mousemove"), QString::number(window.x() + 30), QString::number(window.y() + 8),
                         QStringLiteral("click"), QStringLiteral("--repeat"), QStringLiteral("3"), QStringLiteral("1")}));
        // A triple click selects the line with its line break.
        QTRY_COMPARE_WITH_TIMEOUT(xclip(QStringLiteral("primary"), QStringLiteral("UTF8_STRING")).out,
                                  QByteArray("PARLANTO TERMINAL WORDS\n"), 5000);

        QCOMPARE(QCoro::waitFor(m_manager->captureSelectedText(QStringLiteral("xterm"))),
                 std::optional<QString>(QStringLiteral("PARLANTO TERMINAL WORDS\n")));
        QTest::qWait(300);
        QCOMPARE(runToolRaw(QStringLiteral("pgrep"), {QStringLiteral("-f"), QStringLiteral("sleep 6007")}).exitCode, 0);
        QVERIFY(sameFormats(clipboardFormats(), m_userFormats));

        auto other = DesktopApp::qtEditor({QStringLiteral("--text"), QStringLiteral("elsewhere")});
        QVERIFY(other && other->waitUntilActive());
        QCOMPARE(QCoro::waitFor(m_manager->captureSelectedText(QStringLiteral("xterm"))), std::nullopt);
    }

    // Whatever the spelling of a terminal's identifier, no copy key is ever sent to it; other
    // applications get one.
    void terminalsNeverGetTheCopyKey()
    {
        const quint64 sent = m_synthesiser->sentEvents();
        for (const char *id : {"XTerm", "xterm", "UXTerm", "gnome-terminal-server", "org.gnome.Terminal",
                               "org.gnome.Terminal.desktop", "konsole", "org.kde.konsole", "xfce4-terminal", "kitty",
                               "Alacritty", "terminator", "Tilix", "URxvt"}) {
            QVERIFY2(!QCoro::waitFor(m_keys->simulateCopy(QString::fromLatin1(id))), id);
            QCOMPARE(chordsForApplication(QString::fromLatin1(id)).capture, ApplicationChords::Capture::ActiveSelection);
        }
        QCOMPARE(m_synthesiser->sentEvents(), sent);
        QCOMPARE(chordsForApplication(QStringLiteral("org.gnome.Terminal")).paste,
                 std::optional<KeyChord>(KeyChord{KeyCodes::V, Modifier::Command | Modifier::Shift}));
        QCOMPARE(chordsForApplication(QStringLiteral("mousepad")).copy,
                 std::optional<KeyChord>(KeyChord{KeyCodes::C, Modifier::Command}));
    }

    // An owner that stops answering costs a snapshot its formats, never the capture.
    void hungClipboardOwnerDoesNotHangCapture()
    {
        giveUserAClipboard();
        openMousepad("still captured\n");
        QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("ctrl+a")}));
        m_owner->sendSignal(SIGSTOP);
        const PasteboardSnapshot user = QCoro::waitFor(m_manager->snapshot());
        QVERIFY(user.items.isEmpty());
        QCOMPARE(QCoro::waitFor(m_manager->captureSelectedText(QStringLiteral("mousepad"))),
                 std::optional<QString>(QStringLiteral("still captured\n")));
        m_owner->sendSignal(SIGCONT);
    }

    void pasteReplacesSelection_data()
    {
        QTest::addColumn<QString>("application");
        QTest::newRow("gtk editor") << "mousepad";
        QTest::newRow("qt editor") << "qt_test_editor";
        QTest::newRow("window that does not paste") << "clipboard_owner";
    }

    // The translation replaces the selection, and the user's clipboard comes back byte for
    // byte once the editor has taken the text.
    void pasteReplacesSelection()
    {
        QFETCH(QString, application);
        const QString translated = QStringLiteral("Bonjour le monde 🌍 – ünï\nligne deux");
        giveUserAClipboard();
        if (application == QLatin1String("mousepad")) {
            openMousepad("Hello world\n");
            QVERIFY(xdotool({QStringLiteral("key"), QStringLiteral("ctrl+a")}));
        } else if (application == QLatin1String("qt_test_editor")) {
            openQtEditor(QStringLiteral("Hello world"), {QStringLiteral("--select-all")});
        } else {
            m_app = DesktopApp::program(qEnvironmentVariable("PARLANTO_TEST_APPS_DIR") + QStringLiteral("/clipboard_owner"),
                                        {QStringLiteral("--on-copy")});
            QVERIFY(m_app && m_app->waitUntilActive());
        }
        const PasteboardSnapshot user = QCoro::waitFor(m_manager->snapshot());
        const qint64 before = m_pasteboard->changeCount();
        QVERIFY(QCoro::waitFor(m_manager->pasteAndRestore(translated, user, application)));
        QVERIFY(m_pasteboard->changeCount() > before);

        if (application == QLatin1String("mousepad"))
            QCOMPARE(savedMousepadText(), translated.toUtf8());
        else if (application == QLatin1String("qt_test_editor"))
            QTRY_COMPARE_WITH_TIMEOUT(editorField(QStringLiteral("editor")), translated, 5000);
        // Restored once taken, or at the deadline when nobody takes the text.
        QTest::qWait(int(ClipboardManager::restoreDeadline.count()) + 100);
        QVERIFY(sameFormats(clipboardFormats(), m_userFormats));
    }

    // What we put on the clipboard only to paste it is marked so that clipboard managers skip it.
    void pastedTextIsMarkedForClipboardManagers()
    {
        QVERIFY(m_pasteboard->writeString(QStringLiteral("tränslated")));
        QCOMPARE(xclip(QStringLiteral("clipboard"), QStringLiteral("x-kde-passwordManagerHint")).out, QByteArray("secret"));
        QCOMPARE(xclip(QStringLiteral("clipboard"), QStringLiteral("UTF8_STRING")).out, QStringLiteral("tränslated").toUtf8());
        // A text left there for the user is an ordinary one.
        QVERIFY(m_pasteboard->writeString(QStringLiteral("kept"), false));
        QVERIFY(xclip(QStringLiteral("clipboard"), QStringLiteral("x-kde-passwordManagerHint")).exitCode != 0);
        QCOMPARE(xclip(QStringLiteral("clipboard"), QStringLiteral("text/plain;charset=utf-8")).out, QByteArray("kept"));
    }

    // Delete and Right Arrow reach the focused field; a count below 1 sends nothing.
    void deleteAndRightArrowInQtEditor()
    {
        openQtEditor(QStringLiteral("hello world"));
        const quint64 sent = m_synthesiser->sentEvents();
        QCoro::waitFor(m_keys->deleteCharacters(0));
        QCoro::waitFor(m_keys->deleteCharacters(-2));
        QCOMPARE(m_synthesiser->sentEvents(), sent);

        for (int i = 0; i < 3; ++i)
            QCoro::waitFor(m_keys->pressRightArrow());
        QCoro::waitFor(m_keys->deleteCharacters(2));
        QTRY_COMPARE_WITH_TIMEOUT(editorField(QStringLiteral("editor")), QStringLiteral("hlo world"), 5000);
        QCOMPARE(m_synthesiser->sentEvents(), sent + 3 * 2 + 2 * 2);
    }

    void typingFallback_data()
    {
        QTest::addColumn<QString>("application");
        QTest::addColumn<QString>("layout");
        QTest::newRow("qt editor, us") << "qt_test_editor" << "us";
        QTest::newRow("qt editor, german") << "qt_test_editor" << "de";
        QTest::newRow("gtk editor, french") << "mousepad" << "fr";
    }

    // The second paste method types the text, characters missing from the layout included; the
    // user's clipboard is back byte for byte.
    void typingFallback()
    {
        QFETCH(QString, application);
        QFETCH(QString, layout);
        const QString text = QStringLiteral("Grüße, ñandú & «ça» 😀 – 日本\nLine 2 @#$%{}|~");
        giveUserAClipboard();
        setLayout(layout);
        if (application == QLatin1String("mousepad"))
            openMousepad("");
        else
            openQtEditor(QString());
        const PasteboardSnapshot user = QCoro::waitFor(m_manager->snapshot());
        QVERIFY(QCoro::waitFor(m_manager->pasteByTypingAndRestore(text, user)));
        if (application == QLatin1String("mousepad"))
            QCOMPARE(QString::fromUtf8(savedMousepadText()), text);
        else
            QTRY_COMPARE_WITH_TIMEOUT(editorField(QStringLiteral("editor")), text, 5000);
        QVERIFY(sameFormats(clipboardFormats(), m_userFormats));
    }
};

QTEST_GUILESS_MAIN(ClipboardTest)
#include "tst_clipboard.moc"
