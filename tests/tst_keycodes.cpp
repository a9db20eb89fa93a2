// Key names, shortcut texts, and the physical key positions checked against the X server's own
// US keymap (the desktop test session's Xvfb).
#include "state/HotkeyConfig.h"
#include "state/KeyCodes.h"

#include <QProcess>
#include <QSet>
#include <QTest>
#include <cstdlib>
#include <xcb/xcb.h>

using KeyCodes::Style;

class KeyCodesTest : public QObject
{
    Q_OBJECT

private slots:
    void shortcutTexts_data()
    {
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<quint32>("modifiers");
        QTest::addColumn<QString>("symbols");
        QTest::addColumn<QString>("words");
        const quint32 all = Modifier::All;
        QTest::newRow("Command-Shift-E") << 14u << 0x300u << QStringLiteral("⌘⇧E") << QStringLiteral("Ctrl+Shift+E");
        QTest::newRow("all four, F1") << 122u << all << QStringLiteral("⌘⌥⌃⇧F1") << QStringLiteral("Ctrl+Alt+Super+Shift+F1");
        QTest::newRow("Option-Control") << 17u << 0x1800u << QStringLiteral("⌥⌃T") << QStringLiteral("Alt+Super+T");
        QTest::newRow("Shift-A, key code 0") << 0u << 0x200u << QStringLiteral("⇧A") << QStringLiteral("Shift+A");
        QTest::newRow("left arrow has no macOS name") << 123u << 0x100u << QStringLiteral("⌘Key123") << QStringLiteral("Ctrl+Left");
        QTest::newRow("Return") << 36u << 0x100u << QStringLiteral("⌘↩") << QStringLiteral("Ctrl+Return");
        QTest::newRow("keypad Enter") << 76u << 0x100u << QStringLiteral("⌘↩") << QStringLiteral("Ctrl+Enter");
        QTest::newRow("Delete") << 51u << 0x800u << QStringLiteral("⌥⌫") << QStringLiteral("Alt+Backspace");
        QTest::newRow("Escape") << 53u << 0u << QStringLiteral("⎋") << QStringLiteral("Esc");
        QTest::newRow("Tab") << 48u << 0x1000u << QStringLiteral("⌃⇥") << QStringLiteral("Super+Tab");
        QTest::newRow("Space") << 49u << 0x100u << QStringLiteral("⌘Space") << QStringLiteral("Ctrl+Space");
        QTest::newRow("keypad 7 reads like 7") << 89u << 0x100u << QStringLiteral("⌘7") << QStringLiteral("Ctrl+7");
        QTest::newRow("F13 only named on Linux") << 105u << 0x100u << QStringLiteral("⌘Key105") << QStringLiteral("Ctrl+F13");
        QTest::newRow("unused code 52") << 52u << 0x100u << QStringLiteral("⌘Key52") << QStringLiteral("Ctrl+Key52");
        QTest::newRow("bits outside the mask") << 14u << (0x300u | 0x10000u) << QStringLiteral("⌘⇧E") << QStringLiteral("Ctrl+Shift+E");
    }

    void shortcutTexts()
    {
        QFETCH(quint32, keyCode);
        QFETCH(quint32, modifiers);
        QFETCH(QString, symbols);
        QFETCH(QString, words);
        QCOMPARE(KeyCodes::shortcutDisplayText(keyCode, modifiers, Style::Symbols), symbols);
        QCOMPARE(KeyCodes::shortcutDisplayText(keyCode, modifiers, Style::Words), words);
        QCOMPARE(KeyCodes::shortcutDisplayText(keyCode, modifiers), words);  // this is Linux
    }

    // macOS names exactly 82 key codes; everything else falls back to "Key<code>".
    void macNamesCoverTheDocumentedKeys()
    {
        int named = 0;
        for (quint32 code = 0; code < 256; ++code)
            named += !KeyCodes::keyName(code, Style::Symbols).startsWith(QLatin1String("Key"));
        QCOMPARE(named, 82);
        const QString fKeys[] = {"F1", "F2", "F3", "F4", "F5", "F6", "F7", "F8", "F9", "F10", "F11", "F12"};
        const quint32 fCodes[] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111};
        for (int i = 0; i < 12; ++i)
            QCOMPARE(KeyCodes::keyName(fCodes[i], Style::Symbols), fKeys[i]);
        QCOMPARE(KeyCodes::keyName(71, Style::Symbols), QStringLiteral("Clear"));
        QCOMPARE(KeyCodes::keyName(92, Style::Symbols), QStringLiteral("9"));
    }

    void positionsRoundTrip()
    {
        QSet<quint32> evdevSeen;
        int mapped = 0;
        for (quint32 code = 0; code < 128; ++code) {
            const auto evdev = KeyCodes::evdevFromKeyCode(code);
            if (!evdev)
                continue;
            ++mapped;
            QVERIFY2(!evdevSeen.contains(*evdev), qPrintable(QStringLiteral("evdev %1 used twice").arg(*evdev)));
            evdevSeen.insert(*evdev);
            QCOMPARE(KeyCodes::keyCodeFromEvdev(*evdev), std::optional<quint32>(code));
            QCOMPARE(KeyCodes::x11KeycodeFromKeyCode(code), std::optional<quint32>(*evdev + 8));
            QCOMPARE(KeyCodes::keyCodeFromX11Keycode(*evdev + 8), std::optional<quint32>(code));
        }
        QVERIFY(mapped > 110);
        QCOMPARE(KeyCodes::evdevFromKeyCode(52), std::nullopt);
        QCOMPARE(KeyCodes::keyCodeFromX11Keycode(3), std::nullopt);
        QCOMPARE(KeyCodes::keyCodeFromEvdev(138), std::optional<quint32>(114u));  // KEY_HELP
    }

    // Every key of the ANSI keyboard lands on the X key that carries the same legend in the US
    // layout: the macOS name for printable keys, the listed keysym for the others.
    void positionsMatchTheXServersKeymap()
    {
        QCOMPARE(QProcess::execute(QStringLiteral("setxkbmap"), {QStringLiteral("us")}), 0);
        xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
        QVERIFY2(!xcb_connection_has_error(connection), "no X server: run inside the desktop session");
        const xcb_setup_t *setup = xcb_get_setup(connection);
        const int first = setup->min_keycode;
        auto *mapping = xcb_get_keyboard_mapping_reply(
            connection, xcb_get_keyboard_mapping(connection, setup->min_keycode, setup->max_keycode - first + 1), nullptr);
        QVERIFY(mapping);
        const xcb_keysym_t *keysyms = xcb_get_keyboard_mapping_keysyms(mapping);
        const int per = mapping->keysyms_per_keycode;
        auto keysymsOf = [&](quint32 x11Keycode) {
            QList<xcb_keysym_t> list;
            for (int level = 0; level < qMin(per, 2); ++level)
                list << keysyms[(int(x11Keycode) - first) * per + level];
            return list;
        };

        const QHash<quint32, xcb_keysym_t> special = {
            {36, 0xff0d}, {48, 0xff09}, {49, 0x20}, {51, 0xff08}, {53, 0xff1b},
            {54, 0xffe4}, {55, 0xffe3}, {56, 0xffe1}, {57, 0xffe5}, {58, 0xffe9}, {59, 0xffeb},
            {60, 0xffe2}, {62, 0xffec}, {71, 0xff7f},
            {65, 0xffae}, {67, 0xffaa}, {69, 0xffab}, {75, 0xffaf}, {76, 0xff8d}, {78, 0xffad}, {81, 0xffbd},
            {82, 0xffb0}, {83, 0xffb1}, {84, 0xffb2}, {85, 0xffb3}, {86, 0xffb4}, {87, 0xffb5}, {88, 0xffb6},
            {89, 0xffb7}, {91, 0xffb8}, {92, 0xffb9},
            {122, 0xffbe}, {120, 0xffbf}, {99, 0xffc0}, {118, 0xffc1}, {96, 0xffc2}, {97, 0xffc3}, {98, 0xffc4},
            {100, 0xffc5}, {101, 0xffc6}, {109, 0xffc7}, {103, 0xffc8}, {111, 0xffc9},
            {114, 0xff63}, {115, 0xff50}, {116, 0xff55}, {117, 0xffff}, {119, 0xff57}, {121, 0xff56},
            {123, 0xff51}, {124, 0xff53}, {125, 0xff54}, {126, 0xff52},
        };
        int checked = 0;
        for (quint32 code = 0; code < 128; ++code) {
            const auto x11 = KeyCodes::x11KeycodeFromKeyCode(code);
            if (!x11)
                continue;
            const QString name = KeyCodes::keyName(code, Style::Symbols);
            xcb_keysym_t expected = 0;
            if (special.contains(code))
                expected = special.value(code);
            else if (name.size() == 1 && name.at(0).unicode() < 0x7f)
                expected = name.toLower().at(0).unicode();
            else
                continue;  // ISO/JIS extras, F13-F20, media keys: XKB gives them media keysyms
            ++checked;
            QVERIFY2(keysymsOf(*x11).contains(expected),
                     qPrintable(QStringLiteral("key code %1 (%2) -> X keycode %3 carries %4, expected keysym %5")
                                    .arg(code).arg(name).arg(*x11)
                                    .arg(QString::number(keysymsOf(*x11).value(0), 16), QString::number(expected, 16))));
        }
        QVERIFY2(checked >= 100, qPrintable(QString::number(checked)));
        std::free(mapping);
        xcb_disconnect(connection);
    }
};

QTEST_GUILESS_MAIN(KeyCodesTest)
#include "tst_keycodes.moc"
