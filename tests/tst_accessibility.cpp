// The accessibility reads against real applications in the desktop test session: a GTK 3
// window (entry, read-only text view, password entry), mousepad (a GTK editor from Debian) and
// our own Qt editor. The same text, holding characters beyond the BMP and combining accents,
// must give the same character ranges whatever unit the toolkit counts in.
#include "support/LogCapture.h"
#include "support/DesktopApp.h"
#include "support/TestSupport.h"
#include "system/Accessibility.h"
#include "system/TextOffsets.h"
#include "system/x11/AtspiReader.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QPainter>
#include <QScreen>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

// "e" + combining acute, "é" precomposed, an emoji, "i" + combining diaeresis, a thumbs-up with
// a skin tone (two characters beyond the BMP, one grapheme).
const QString sample = QString::fromUtf8("e\u0301t\u00e9 \U0001F600 nai\u0308ve \U0001F44D\U0001F3FD fin");
// Four graphemes to the right of the start ("é", "t", "é", " "), then nine selected ones
// ("😀", " ", "n", "a", "ï", "v", "e", " ", "👍🏽"): characters 5 to 16.
const QStringList selectKeys = QStringList{"Home"} + QStringList(4, "Right") + QStringList(9, "shift+Right");
constexpr TextRange sampleSelection{5, 11};

template <typename T>
T await(QCoro::Task<T> &&task)
{
    return QCoro::waitFor(std::move(task));
}

// Reads the focused element until `accept` takes it (applications register, focus and handle
// keys at their own pace); the last read otherwise.
std::optional<FocusedElement> readUntil(Accessibility &reader, const std::function<bool(const FocusedElement &)> &accept,
                                        Accessibility::Read read = Accessibility::Read::WithText)
{
    std::optional<FocusedElement> element;
    const QDeadlineTimer deadline(10000);
    do {
        element = await(reader.focusedElement(read));
        if (element && accept(*element))
            break;
        QTest::qWait(100);
    } while (!deadline.hasExpired());
    return element;
}

// Share of the pixels of `area` painted in a selection highlight (a saturated blue).
double highlightShare(const QImage &screen, const QRect &area)
{
    int hits = 0, total = 0;
    const QRect clipped = area.intersected(screen.rect());
    for (int y = clipped.top(); y <= clipped.bottom(); ++y) {
        for (int x = clipped.left(); x <= clipped.right(); ++x, ++total) {
            const QColor c = screen.pixelColor(x, y);
            hits += c.hsvHue() >= 190 && c.hsvHue() <= 230 && c.hsvSaturation() > 90 && c.value() > 90;
        }
    }
    return total ? double(hits) / total : 0.0;
}

} // namespace

class AccessibilityTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<AtspiReader> m_reader = std::make_unique<AtspiReader>();

private Q_SLOTS:
    void offsetsInEveryToolkitUnit();
    void fieldsOfRealApplications_data();
    void fieldsOfRealApplications();
    void fieldsFocusedBeforeTheReaderStarted();
    void focusFollowsTheActiveWindow();
    void ourOwnWindowIsNeverAsked();
    void hungApplicationCostsOneBoundedDelay();
};

void AccessibilityTest::offsetsInEveryToolkitUnit()
{
    using namespace TextOffsets;
    const int characters = characterCount(sample);
    QCOMPARE(characters, 20);

    // GTK and Chromium: code points. Qt: UTF-16 units. Firefox: U+FEFF after each character
    // beyond the BMP, offsets then UTF-16 units of the text without it.
    QCOMPARE(interpret(sample, characters).unit, Unit::CodePoint);
    QCOMPARE(interpret(sample, sample.size()).unit, Unit::Utf16);
    QString padded = sample;
    for (const char *c : {"\U0001F600", "\U0001F44D", "\U0001F3FD"})
        padded.replace(QString::fromUtf8(c), QString::fromUtf8(c) + QChar(0xFEFF));
    const ToolkitText firefox = interpret(padded, characterCount(padded));
    QCOMPARE(firefox.text, sample);
    QCOMPARE(firefox.unit, Unit::Utf16);
    // A lone U+FEFF that pads nothing is text.
    QCOMPARE(interpret(QString::fromUtf8("\uFEFFab"), 3).text, QString::fromUtf8("\uFEFFab"));

    // The selection of the key presses, in each unit, is the same run of characters.
    QCOMPARE(toCharacters(sample, Unit::CodePoint, 5), 5);
    QCOMPARE(toCharacters(sample, Unit::Utf16, 19), 16);   // after 😀 and 👍🏽 (3 pairs)
    QCOMPARE(fromCharacters(sample, Unit::Utf16, 16), 19);
    QCOMPARE(toCharacters(sample, Unit::Utf16, 6), 6);     // inside 😀: the whole character
    QCOMPARE(fromCharacters(sample, Unit::Utf16, 99), sample.size());
    QCOMPARE(toCharacters(sample, Unit::CodePoint, -3), 0);
    QCOMPARE(characterMid(sample, 5, 11), QString::fromUtf8("\U0001F600 nai\u0308ve \U0001F44D\U0001F3FD"));
    QCOMPARE(characterMid(sample, 17), "fin");
}

void AccessibilityTest::fieldsOfRealApplications_data()
{
    QTest::addColumn<QString>("application");
    QTest::addColumn<QString>("field");
    QTest::addColumn<bool>("editable");
    QTest::addColumn<bool>("password");

    QTest::newRow("GTK entry") << "gtk" << "entry" << true << false;
    QTest::newRow("GTK read-only text view") << "gtk" << "readonly" << false << false;
    QTest::newRow("GTK password entry") << "gtk" << "password" << true << true;
    QTest::newRow("mousepad document") << "mousepad" << "editor" << true << false;
    QTest::newRow("Qt line edit") << "qt" << "entry" << true << false;
    QTest::newRow("Qt text edit") << "qt" << "editor" << true << false;
    QTest::newRow("Qt read-only text edit") << "qt" << "readonly" << false << false;
    QTest::newRow("Qt password line edit") << "qt" << "password" << true << true;
}

void AccessibilityTest::fieldsOfRealApplications()
{
    QFETCH(QString, application);
    QFETCH(QString, field);
    QFETCH(bool, editable);
    QFETCH(bool, password);

    const QString secret = "hunter2-do-not-read";
    LogCapture log;
    QTemporaryDir dir;
    std::unique_ptr<DesktopApp> app;
    if (application == "gtk") {
        app = DesktopApp::gtkFields({"--text", sample, "--password", secret, "--focus", field});
    } else if (application == "qt") {
        app = DesktopApp::qtEditor({"--text", sample, "--focus", field});
    } else {
        QFile file(dir.filePath("sample.txt"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(sample.toUtf8());
        file.close();
        app = DesktopApp::program("mousepad", {"--disable-server", file.fileName()});
    }
    QVERIFY(app);
    QVERIFY2(app->waitUntilActive(), "the application's window never became active");
    const qint64 pid = app->pid();
    if (application == "qt" && password)  // typed into the field; it must still never be read
        QVERIFY(pressKeys({"h", "u", "n"}));
    if (!password)
        QVERIFY(pressKeys(selectKeys));

    std::optional<FocusedElement> element = readUntil(*m_reader, [&](const FocusedElement &e) {
        return e.application.pid == pid && (password || e.selection == sampleSelection);
    });
    QVERIFY2(element, "nothing focused was read");
    qInfo("%s: role \"%s\", editable %d, password %d, caret %d, app \"%s\"", QTest::currentDataTag(),
          qPrintable(element->role), element->editable, element->isPassword, element->caret,
          qPrintable(element->application.name));
    QCOMPARE(element->application.pid, pid);
    QVERIFY(!element->id.isNull());
    QCOMPARE(element->editable, editable);
    QCOMPARE(element->isPassword, password);
    QCOMPARE(await(m_reader->isFocusedElementEditable()), editable);

    if (password) {
        QCOMPARE(element->role, "password text");
        QVERIFY(!element->hasText && !element->text && !element->selection);
        QCOMPARE(element->caret, -1);
        QVERIFY(!await(m_reader->selectionRect()));
        QVERIFY(!await(m_reader->boundsForRange(element->id, TextRange{0, 1})));
        QVERIFY(!log.finish().contains(secret));
        return;
    }

    QVERIFY(element->hasText);
    QCOMPARE(element->text.value_or(QString()), sample);
    QCOMPARE(element->selection, std::optional<TextRange>(sampleSelection));
    QCOMPARE(element->caret, sampleSelection.end());
    // The same element, read again, is recognisably the same.
    const std::optional<FocusedElement> again = await(m_reader->focusedElement());
    QVERIFY(again && again->id == element->id && !again->text);

    // The selection's rectangle lies on the selected text, inside the window.
    const std::optional<QRect> selection = await(m_reader->selectionRect());
    QVERIFY(selection);
    const QRect window = DesktopApp::activeWindowGeometry();
    qInfo("selection %d,%d %dx%d in window %d,%d %dx%d", selection->x(), selection->y(), selection->width(),
          selection->height(), window.x(), window.y(), window.width(), window.height());
    QVERIFY(window.contains(*selection));
    QVERIFY(selection->width() > 20 && selection->height() > 5);
    const QImage screen = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
    const QString shot = screenshotDir() + QString("/accessibility-%1-%2.png").arg(application, field);
    {
        // The window as it was, with the rectangle read drawn around the selection.
        QImage picture = screen.copy(window);
        QPainter painter(&picture);
        painter.setPen(Qt::red);
        painter.drawRect(selection->translated(-window.topLeft()).adjusted(-1, -1, 0, 0));
        painter.end();
        picture.save(shot);
    }
    const double inside = highlightShare(screen, *selection);
    const double below = highlightShare(screen, selection->translated(0, selection->height() * 2));
    qInfo("highlight: %.2f on the rectangle, %.2f below it (%s)", inside, below, qPrintable(shot));
    QVERIFY(inside > 0.4 && below < 0.1);

    // Bounds of character ranges: the selected characters, and the caret after the last one.
    QCOMPARE(await(m_reader->boundsForRange(element->id, sampleSelection)), selection);
    const int end = TextOffsets::characterCount(sample);
    const std::optional<QRect> last = await(m_reader->boundsForRange(element->id, TextRange{end - 1, 1}));
    const std::optional<QRect> caret = await(m_reader->boundsForRange(element->id, TextRange{end, 0}));
    QVERIFY(last && caret);
    QCOMPARE(caret->width(), 1);
    QVERIFY2(qAbs(caret->left() - (last->right() + 1)) <= 2, "the caret at the end is not after the last character");
    QVERIFY(qAbs(caret->center().y() - last->center().y()) <= 2);
    // An element that is no longer the focused one has no bounds.
    QVERIFY(!await(m_reader->boundsForRange(AccessibleElementId("gone"), sampleSelection)));
}

void AccessibilityTest::fieldsFocusedBeforeTheReaderStarted()
{
    // No focus event tells a new reader about these fields: it finds them in the active
    // window's application, through Collection (GTK) or a walk of the visible tree (Qt 6.4).
    auto check = [this](std::unique_ptr<DesktopApp> app, TextRange expected) {
        QVERIFY(app && app->waitUntilActive());
        const qint64 pid = app->pid();
        QVERIFY(readUntil(*m_reader, [&](const FocusedElement &e) { return e.application.pid == pid && e.selection == expected; }));
        m_reader.reset(); // readers share their thread: the last one takes it down
        m_reader = std::make_unique<AtspiReader>();
        const std::optional<FocusedElement> element = await(m_reader->focusedElement(Accessibility::Read::WithText));
        QVERIFY2(element, qPrintable(app->name()));
        QCOMPARE(element->application.pid, pid);
        QCOMPARE(element->selection, std::optional<TextRange>(expected));
        QCOMPARE(element->text.value_or(QString()), sample);
        QVERIFY(await(m_reader->selectionRect()));
    };
    check(DesktopApp::qtEditor({"--text", sample, "--focus", "entry", "--select-all"}),
          TextRange{0, TextOffsets::characterCount(sample)});
    check(DesktopApp::gtkFields({"--text", sample, "--select", "5", "16"}), sampleSelection);
}

void AccessibilityTest::focusFollowsTheActiveWindow()
{
    std::unique_ptr<DesktopApp> gtk = DesktopApp::gtkFields({"--text", sample});
    QVERIFY(gtk && gtk->waitUntilActive());
    const qint64 pid = gtk->pid();
    auto ofGtk = [pid](const FocusedElement &e) { return e.application.pid == pid; };
    QVERIFY(readUntil(*m_reader, ofGtk));
    const QString gtkWindow = runTool("xdotool", {"getactivewindow"});

    // Windows that expose nothing: xterm (it names its process), xlogo (it does not). The GTK
    // entry may well keep its focused state meanwhile; it is not what the user is typing into.
    for (const QString &program : {QStringLiteral("xterm"), QStringLiteral("xlogo")}) {
        std::unique_ptr<DesktopApp> other = DesktopApp::program(program, {});
        QVERIFY(other);
        QTRY_VERIFY_WITH_TIMEOUT(DesktopApp::activeWindowPid() != pid
                                     && runTool("xdotool", {"getactivewindow"}) != gtkWindow,
                                 10000);
        QVERIFY2(!await(m_reader->focusedElement()), qPrintable(program));
        QVERIFY(!await(m_reader->isFocusedElementEditable()));
    }
    runTool("xdotool", {"windowactivate", "--sync", gtkWindow});
    const std::optional<FocusedElement> element = readUntil(*m_reader, ofGtk);
    QVERIFY(element && ofGtk(*element));
    QVERIFY(element->editable);
}

void AccessibilityTest::ourOwnWindowIsNeverAsked()
{
    // Our own process is on the accessibility bus too (accessibility is always on here).
    QLineEdit edit("our own text");
    edit.setWindowTitle("accessibility test's own window");
    edit.show();
    QVERIFY(QTest::qWaitForWindowExposed(&edit));
    runTool("xdotool", {"windowactivate", QString::number(edit.winId())});
    edit.activateWindow();
    edit.setFocus();
    edit.selectAll();
    QTRY_COMPARE(DesktopApp::activeWindowPid(), qint64(QCoreApplication::applicationPid()));
    QTRY_VERIFY(edit.hasFocus());

    QElapsedTimer clock;
    clock.start();
    QVERIFY(!await(m_reader->focusedElement()));
    QVERIFY(!await(m_reader->isFocusedElementEditable()));
    QVERIFY(!await(m_reader->selectionRect()));
    qInfo("three reads with our own window active: %lld ms", clock.elapsed());
    QVERIFY(clock.elapsed() < 1000);
}

void AccessibilityTest::hungApplicationCostsOneBoundedDelay()
{
    LogCapture log;
    std::unique_ptr<DesktopApp> app = DesktopApp::gtkFields({"--text", sample, "--hang", "5"});
    QVERIFY(app && app->waitUntilActive());
    const qint64 pid = app->pid();
    QVERIFY(readUntil(*m_reader, [pid](const FocusedElement &e) { return e.application.pid == pid; }));

    // The GUI thread keeps turning while the reader waits: the largest gap between ticks.
    QElapsedTimer sinceTick;
    qint64 largestGap = 0;
    QTimer ticker;
    ticker.setInterval(10);
    QObject::connect(&ticker, &QTimer::timeout, [&] { largestGap = std::max(largestGap, sinceTick.restart()); });
    sinceTick.start();
    ticker.start();

    app->sendSignal(SIGUSR1);
    QTest::qWait(300); // the script's main loop picks the signal up, then sleeps

    QString figures;
    for (int i = 0; i < 5; ++i) {
        QElapsedTimer clock;
        clock.start();
        QVERIFY2(!await(m_reader->focusedElement(Accessibility::Read::WithText)), "a hung application's field was read");
        const qint64 cost = clock.elapsed();
        figures += QString(" %1").arg(cost);
        QVERIFY(cost < 1000);
    }
    ticker.stop();
    qInfo("reads while hung (ms):%s; largest GUI gap %lld ms", qPrintable(figures), largestGap);
    QVERIFY(largestGap < 1000);

    // Once it answers again, it is read again.
    const auto element = readUntil(*m_reader, [pid](const FocusedElement &e) { return e.application.pid == pid; });
    QVERIFY(element && element->application.pid == pid);
    QCOMPARE(element->text.value_or(QString()), sample);
    const QString output = log.finish();
    QCOMPARE(output.count("does not answer"), 1);
    QCOMPARE(output.count("answers again"), 1);
}

QTEST_MAIN(AccessibilityTest)
#include "tst_accessibility.moc"
