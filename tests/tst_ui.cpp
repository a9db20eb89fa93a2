// What the user sees: the placement of the floating panels, the translation popup, the
// progress pill, the tray item and the notifications, on the test session's real X server,
// its tray and its notification server (dunst).
#include "support/NoticeWatch.h"
#include "support/TestSupport.h"
#include "inline/InlineTranslationHUD.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"
#include "system/PanelPlacement.h"
#include "ui/Localisation.h"
#include "ui/MenuBarController.h"
#include "ui/NotificationManager.h"
#include "ui/TranslationPopup.h"

#include <QApplication>
#include <QClipboard>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>

namespace {

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(10000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

void screenshot(const QString &name, QRect area)
{
    QTest::qWait(150);
    run(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("-crop"),
                                   QStringLiteral("%1x%2+%3+%4").arg(area.width()).arg(area.height()).arg(area.x()).arg(area.y()),
                                   screenshotDir() + QLatin1Char('/') + name});
}

// A window that counts the mouse presses it receives.
class PressCounter : public QWidget
{
public:
    int presses = 0;

protected:
    void mousePressEvent(QMouseEvent *) override { ++presses; }
};

const QList<QRect> oneScreen{QRect(0, 0, 1280, 800)};

} // namespace

class UiTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void hudPlacement_data();
    void hudPlacement();
    void popupPlacement_data();
    void popupPlacement();
    void popupLayoutFollowsTheText();
    void popupCopiesAndCloses();
    void popupClosesAfterTheStoredDelay();
    void popupNeverTakesTheFocus();
    void hudShowsOnceAndLetsClicksThrough();
    void trayMenuAndAnimation();
    void notificationsReachTheServerAndClicksCopy();

private:
    QTemporaryDir m_config;
    JsonSettingsStore *m_store = nullptr;
};

void UiTest::initTestCase()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "no DISPLAY: run the tests through scripts/test");
    auto store = std::make_unique<JsonSettingsStore>(m_config.filePath(QStringLiteral("settings.json")));
    m_store = store.get();
    SettingsStore::setShared(std::move(store));
    installTranslations(QLocale(QLocale::English));
}

void UiTest::hudPlacement_data()
{
    QTest::addColumn<std::optional<QRect>>("caret");
    QTest::addColumn<QPoint>("mouse");
    QTest::addColumn<QList<QRect>>("screens");
    QTest::addColumn<QPoint>("expected");
    // Left of the caret, 2 px away, centred on the caret line (caret 2x20 at 600,300).
    QTest::newRow("left of caret") << std::optional(QRect(600, 300, 2, 20)) << QPoint() << oneScreen << QPoint(476, 298);
    // Near the left edge it flips to 4 px after the caret.
    QTest::newRow("flips right") << std::optional(QRect(50, 300, 2, 20)) << QPoint() << oneScreen << QPoint(56, 298);
    // No caret: centred on the pointer, to its left.
    QTest::newRow("pointer") << std::optional<QRect>() << QPoint(700, 400) << oneScreen << QPoint(576, 388);
    QTest::newRow("empty caret") << std::optional(QRect()) << QPoint(700, 400) << oneScreen << QPoint(576, 388);
    // Kept 8 px inside the bottom of the screen.
    QTest::newRow("bottom edge") << std::optional(QRect(600, 790, 2, 20)) << QPoint() << oneScreen << QPoint(476, 768);
    // The screen holding the caret's centre counts, not the primary one.
    QTest::newRow("second screen") << std::optional(QRect(1290, 100, 2, 20))
                                   << QPoint() << QList<QRect>{QRect(0, 0, 1280, 800), QRect(1280, 0, 1024, 768)}
                                   << QPoint(1296, 98);
}

void UiTest::hudPlacement()
{
    QFETCH(std::optional<QRect>, caret);
    QFETCH(QPoint, mouse);
    QFETCH(QList<QRect>, screens);
    QFETCH(QPoint, expected);
    QCOMPARE(PanelPlacement::hudPosition(QSize(122, 24), caret, mouse, screens), expected);
}

void UiTest::popupPlacement_data()
{
    QTest::addColumn<std::optional<QRect>>("selection");
    QTest::addColumn<QPoint>("mouse");
    QTest::addColumn<QPoint>("expected");
    // Left-aligned with the selection, 6 px below it.
    QTest::newRow("below") << std::optional(QRect(200, 100, 300, 40)) << QPoint() << QPoint(200, 146);
    // Near the bottom: 6 px above the selection.
    QTest::newRow("above") << std::optional(QRect(200, 700, 300, 40)) << QPoint() << QPoint(200, 566);
    // Near the right edge: pushed left so that 8 px remain.
    QTest::newRow("right edge") << std::optional(QRect(1100, 100, 100, 20)) << QPoint() << QPoint(912, 126);
    QTest::newRow("left edge") << std::optional(QRect(2, 100, 100, 20)) << QPoint() << QPoint(8, 126);
    // No selection: below the pointer, or above it near the bottom.
    QTest::newRow("pointer") << std::optional<QRect>() << QPoint(400, 300) << QPoint(400, 308);
    QTest::newRow("pointer low") << std::optional<QRect>() << QPoint(400, 760) << QPoint(400, 624);
}

void UiTest::popupPlacement()
{
    QFETCH(std::optional<QRect>, selection);
    QFETCH(QPoint, mouse);
    QFETCH(QPoint, expected);
    QCOMPARE(PanelPlacement::popupPosition(QSize(360, 128), selection, mouse, oneScreen), expected);
}

void UiTest::popupLayoutFollowsTheText()
{
    m_store->setNumber(SettingsKeys::popupDismissDelay, 0);
    TranslationPopup &popup = TranslationPopup::shared();
    const QRect selection(300, 200, 240, 18);
    popup.show(QStringLiteral("Xin chào"), QStringLiteral("vi"), selection);
    QWidget *panel = popup.panel();
    QVERIFY(panel);
    QVERIFY(QTest::qWaitForWindowExposed(panel));
    QCOMPARE(panel->size(), QSize(360, 128));
    QCOMPARE(panel->frameGeometry().topLeft(), QPoint(300, 224));
    QCOMPARE(panel->findChild<QLabel *>(QStringLiteral("language"))->text(), QStringLiteral("VI"));
    QCOMPARE(panel->findChild<QPushButton *>(QStringLiteral("copy"))->text(), QStringLiteral("Copy"));
    screenshot(QStringLiteral("popup-short.png"), panel->frameGeometry().adjusted(-20, -20, 20, 20));

    QString longText;
    for (int i = 0; i < 40; ++i)
        longText += QStringLiteral("This is a long translation that wraps over many lines. ");
    popup.show(longText, QStringLiteral("en"), selection);
    QVERIFY(popup.panel() != panel); // the first one was replaced
    panel = popup.panel();
    QVERIFY(QTest::qWaitForWindowExposed(panel));
    QCOMPARE(panel->size(), QSize(360, 252));
    QCOMPARE(TranslationPopup::textAreaHeight(longText), 160);
    screenshot(QStringLiteral("popup-long.png"), panel->frameGeometry().adjusted(-20, -20, 20, 20));
    popup.closePanel();
    QVERIFY(!popup.panel());
}

void UiTest::popupCopiesAndCloses()
{
    m_store->setNumber(SettingsKeys::popupDismissDelay, 0);
    TranslationPopup &popup = TranslationPopup::shared();
    popup.show(QStringLiteral("Guten Morgen, Welt"), QStringLiteral("de"), std::nullopt);
    QVERIFY(QTest::qWaitForWindowExposed(popup.panel()));
    QPushButton *copy = popup.panel()->findChild<QPushButton *>(QStringLiteral("copy"));
    const QPoint centre = copy->mapToGlobal(copy->rect().center());
    run(QStringLiteral("xdotool"), {QStringLiteral("mousemove"), QString::number(centre.x()), QString::number(centre.y()),
                                    QStringLiteral("click"), QStringLiteral("1")});
    QTRY_VERIFY(!popup.panel());
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("Guten Morgen, Welt"));
}

void UiTest::popupClosesAfterTheStoredDelay()
{
    TranslationPopup &popup = TranslationPopup::shared();
    m_store->setNumber(SettingsKeys::popupDismissDelay, 0.4);
    popup.show(QStringLiteral("first"), QStringLiteral("fr"), std::nullopt);
    QVERIFY(popup.panel());
    QTRY_VERIFY_WITH_TIMEOUT(!popup.panel(), 5000);

    // A second popup within the first one's delay gets its own full delay.
    m_store->setNumber(SettingsKeys::popupDismissDelay, 1.0);
    popup.show(QStringLiteral("first"), QStringLiteral("fr"), std::nullopt);
    QTest::qWait(700);
    popup.show(QStringLiteral("second"), QStringLiteral("fr"), std::nullopt);
    QPointer<QWidget> second = popup.panel();
    QTest::qWait(500);
    QVERIFY2(second, "the second popup closed on the first one's timer");
    QTRY_VERIFY_WITH_TIMEOUT(!second, 5000);

    m_store->setNumber(SettingsKeys::popupDismissDelay, 0);
    popup.show(QStringLiteral("stays"), QStringLiteral("fr"), std::nullopt);
    QTest::qWait(600);
    QVERIFY(popup.panel());
    popup.closePanel();
}

void UiTest::popupNeverTakesTheFocus()
{
    QTemporaryDir dir;
    const QString dump = dir.filePath(QStringLiteral("dump.json"));
    QProcess editor;
    editor.start(qEnvironmentVariable("PARLANTO_TEST_APPS_DIR") + QStringLiteral("/qt_test_editor"),
                 {QStringLiteral("--dump"), dump, QStringLiteral("--title"), QStringLiteral("Focus Keeper")});
    QVERIFY(editor.waitForStarted());
    QString window;
    QTRY_VERIFY_WITH_TIMEOUT(!(window = run(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--name"),
                                                                        QStringLiteral("Focus Keeper")})).isEmpty(), 10000);
    run(QStringLiteral("xdotool"), {QStringLiteral("windowactivate"), QStringLiteral("--sync"), window});

    m_store->setNumber(SettingsKeys::popupDismissDelay, 0);
    TranslationPopup::shared().show(QStringLiteral("Hola"), QStringLiteral("es"), QRect(100, 100, 50, 16));
    InlineTranslationHUD::shared().show(QRect(400, 300, 2, 18));
    QVERIFY(QTest::qWaitForWindowExposed(TranslationPopup::shared().panel()));
    QTest::qWait(200);
    QCOMPARE(run(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")}), window);
    run(QStringLiteral("xdotool"), {QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("20"), QStringLiteral("typed")});
    QTRY_VERIFY_WITH_TIMEOUT([&] {
        QFile file(dump);
        return file.open(QIODevice::ReadOnly)
            && QJsonDocument::fromJson(file.readAll()).object().value(QStringLiteral("editor")).toString() == QLatin1String("typed");
    }(), 5000);
    TranslationPopup::shared().closePanel();
    InlineTranslationHUD::shared().hide();
    editor.terminate();
    editor.waitForFinished();
}

void UiTest::hudShowsOnceAndLetsClicksThrough()
{
    PressCounter below;
    below.setWindowTitle(QStringLiteral("Below the pill"));
    below.setGeometry(300, 250, 400, 200);
    below.show();
    QVERIFY(QTest::qWaitForWindowExposed(&below));

    InlineTranslationHUD &hud = InlineTranslationHUD::shared();
    hud.show(QRect(600, 340, 2, 18));
    QWidget *pill = hud.panel();
    QVERIFY(QTest::qWaitForWindowExposed(pill));
    QCOMPARE(pill->frameGeometry(), QRect(476, 337, 122, 24));
    hud.show(QRect(100, 100, 2, 18)); // a second show changes nothing
    QCOMPARE(hud.panel(), pill);
    QCOMPARE(pill->frameGeometry().topLeft(), QPoint(476, 337));
    screenshot(QStringLiteral("hud.png"), QRect(440, 320, 200, 60));

    // A click on the pill reaches the window beneath it.
    const QPoint centre = pill->frameGeometry().center();
    run(QStringLiteral("xdotool"), {QStringLiteral("mousemove"), QString::number(centre.x()), QString::number(centre.y()),
                                    QStringLiteral("click"), QStringLiteral("1")});
    QTRY_COMPARE(below.presses, 1);
    hud.hide();
    QVERIFY(!hud.panel());
}

void UiTest::trayMenuAndAnimation()
{
    QVERIFY(QSystemTrayIcon::isSystemTrayAvailable());
    MenuBarController menuBar;
    QCOMPARE(menuBar.currentIconName(), QStringLiteral("translate"));
    QCOMPARE(menuBar.currentDescription(), QStringLiteral("Parlanto"));
    const QList<QAction *> actions = menuBar.menu()->actions();
    QCOMPARE(actions.size(), 3);
    QCOMPARE(actions.at(0)->text(), QStringLiteral("Settings…"));
    QCOMPARE(actions.at(0)->shortcut(), QKeySequence(QStringLiteral("Ctrl+Shift+,")));
    QVERIFY(actions.at(1)->isSeparator());
    QCOMPARE(actions.at(2)->text(), QStringLiteral("Quit Parlanto"));
    QCOMPARE(actions.at(2)->shortcut(), QKeySequence(QStringLiteral("Ctrl+Q")));
    QSignalSpy quit(&menuBar, &MenuBarController::quitRequested);
    actions.at(2)->trigger();
    QCOMPARE(quit.count(), 1);

    QTest::qWait(300);
    screenshot(QStringLiteral("tray-idle-icon.png"), QRect(1180, 0, 100, 24));

    QStringList frames;
    QObject::connect(menuBar.trayIcon(), &QObject::objectNameChanged, [] {});
    menuBar.startAnimating();
    frames << menuBar.currentIconName();
    QCOMPARE(menuBar.currentDescription(), QStringLiteral("Parlanto translating"));
    screenshot(QStringLiteral("tray-busy-icon.png"), QRect(1180, 0, 100, 24));
    for (int tick = 0; tick < 3; ++tick) {
        const QString before = menuBar.currentIconName();
        QTRY_VERIFY_WITH_TIMEOUT(menuBar.currentIconName() != before, 2000);
        frames << menuBar.currentIconName();
        if (tick == 0)
            menuBar.startAnimating(); // a second start neither resets the frames nor adds a timer
    }
    QCOMPARE(frames, (QStringList{QStringLiteral("arrow.triangle.2.circlepath"), QStringLiteral("arrow.2.circlepath"),
                                  QStringLiteral("arrow.triangle.2.circlepath"), QStringLiteral("arrow.2.circlepath")}));
    menuBar.stopAnimating();
    QTRY_COMPARE(menuBar.currentIconName(), QStringLiteral("translate"));
    QTest::qWait(700);
    QCOMPARE(menuBar.currentIconName(), QStringLiteral("translate"));
    QCOMPARE(menuBar.currentDescription(), QStringLiteral("Parlanto"));
}

void UiTest::notificationsReachTheServerAndClicksCopy()
{
    NotificationManager &notifications = NotificationManager::shared();
    QVERIFY2(notifications.isAuthorised(), "no notification server in the session");
    NoticeWatch notices;
    QVERIFY(notices.isListening());
    run(QStringLiteral("dunstctl"), {QStringLiteral("close-all")});

    const QString first = notifications.post(QStringLiteral("Parlanto"), QStringLiteral("Translation timed out"), {},
                                             QStringLiteral("timeout"));
    const QString second = notifications.post(QStringLiteral("Parlanto"), QStringLiteral("Translation timed out"), {},
                                              QStringLiteral("timeout"));
    QVERIFY(first.startsWith(QLatin1String("timeout-")));
    QVERIFY(first != second);
    QTRY_COMPARE(run(QStringLiteral("dunstctl"), {QStringLiteral("count"), QStringLiteral("displayed")}), QStringLiteral("2"));
    run(QStringLiteral("dunstctl"), {QStringLiteral("close-all")});

    QSignalSpy copied(&notifications, &NotificationManager::textCopied);
    notifications.notifyTranslationReady(QStringLiteral("Bonjour tout le monde"));
    QTRY_COMPARE(run(QStringLiteral("dunstctl"), {QStringLiteral("count"), QStringLiteral("displayed")}), QStringLiteral("1"));
    QGuiApplication::clipboard()->setText(QStringLiteral("something else"));
    run(QStringLiteral("dunstctl"), {QStringLiteral("action"), QStringLiteral("0")});
    QTRY_COMPARE(copied.count(), 1);
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("Bonjour tout le monde"));

    QTest::qWait(300);
    QVERIFY2(notices.sawString(QStringLiteral("Translation timed out")), qPrintable(notices.calls()));
    QVERIFY(notices.sawString(first));
    QVERIFY(notices.sawString(QStringLiteral("Your translation is ready and on the clipboard. Click to copy it again.")));
    QVERIFY(notices.sawString(QStringLiteral("default")));
    run(QStringLiteral("dunstctl"), {QStringLiteral("close-all")});
}

QTEST_MAIN(UiTest)
#include "tst_ui.moc"
