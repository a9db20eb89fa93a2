// Global hotkeys: the manager's identifiers, log lines and conflict notices over a scripted
// registrar, then the X11 grabs in the desktop session with real key events (xdotool, XTest),
// a second X client holding a shortcut, lock keys and other keyboard layouts.
#include "state/HotkeyConfig.h"
#include "support/LogCapture.h"
#include "system/HotkeyManager.h"
#include "system/x11/X11Keymap.h"

#include <QAbstractNativeEventFilter>
#include <QApplication>
#include <QHash>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <xcb/xcb.h>

namespace {

constexpr quint32 commandShift = Modifier::Command | Modifier::Shift;
constexpr quint32 keyA = 0, keyD = 2, keyF = 3, keyZ = 6, keyV = 9, keyE = 14;

HotkeyConfig binding(const QString &language, quint32 keyCode, quint32 modifiers = commandShift, bool enabled = true)
{
    return {QUuid::createUuid(), language, keyCode, modifiers, enabled};
}

QList<quint32> idsOf(const QList<HotkeyManager::Registration> &registrations)
{
    QList<quint32> ids;
    for (const auto &registration : registrations) ids << registration.id;
    return ids;
}

struct Notice {
    QString identifier, title, body;
    friend bool operator==(const Notice &, const Notice &) = default;
};

Notice conflict(const HotkeyConfig &config, const QString &shortcut)
{
    return {"hotkey_conflict_" + config.id.toString(QUuid::WithoutBraces).toUpper(), "Parlanto — Shortcut Conflict",
            shortcut + " couldn't be registered. It may already be in use by another app."};
}

// A registrar whose answers the test decides.
class ScriptedRegistrar : public HotkeyRegistrar
{
public:
    int installStatus = 0;
    QHash<quint64, int> refused;  // (key code, modifiers) -> status
    QList<quint64> pending;       // answered later
    QHash<quint32, quint64> active;
    PressHandler handler;

    static quint64 shortcut(quint32 keyCode, quint32 modifiers) { return (quint64(keyCode) << 32) | modifiers; }

    int installHandler(PressHandler h) override
    {
        if (installStatus == 0)
            handler = std::move(h);
        return installStatus;
    }
    void removeHandler() override { handler = nullptr; }
    Result registerHotkey(quint32 id, quint32 keyCode, quint32 modifiers) override
    {
        const quint64 key = shortcut(keyCode, modifiers);
        if (refused.contains(key))
            return {Outcome::Failed, refused.value(key)};
        active.insert(id, key);
        return {pending.contains(key) ? Outcome::Pending : Outcome::Registered, 0};
    }
    void unregisterHotkey(quint32 id) override { active.remove(id); }
    bool press(quint32 id) { return handler && handler(id); }
    void refuseLater(quint32 id, int status) { Q_EMIT registrationFailed(id, status); }
};

// A second X client: its own connection to the server, grabbing keys on the root window.
class OtherClient
{
public:
    OtherClient()
        : m_connection(xcb_connect(nullptr, nullptr))
    {
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    }
    ~OtherClient() { xcb_disconnect(m_connection); }

    bool grab(quint8 keycode, quint16 modifiers)
    {
        xcb_generic_error_t *error = xcb_request_check(
            m_connection, xcb_grab_key_checked(m_connection, 0, m_root, modifiers, keycode, XCB_GRAB_MODE_ASYNC,
                                               XCB_GRAB_MODE_ASYNC));
        std::free(error);
        return !error;
    }
    void ungrab(quint8 keycode, quint16 modifiers)
    {
        xcb_ungrab_key(m_connection, keycode, m_root, modifiers);
        // A round trip: the ungrab has been carried out.
        std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    }
    quint16 numLockMask() { return X11Keymap::modifierMaskOfKeysym(m_connection, X11Keymap::numLockKeysym); }
    // The modifier and lock state of the keyboard right now.
    quint16 keyboardState()
    {
        auto *reply = xcb_query_pointer_reply(m_connection, xcb_query_pointer(m_connection, m_root), nullptr);
        const quint16 mask = reply ? reply->mask : 0;
        std::free(reply);
        return mask;
    }
    int keyPressesReceived()
    {
        while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
            m_presses += (event->response_type & 0x7f) == XCB_KEY_PRESS;
            std::free(event);
        }
        return m_presses;
    }

private:
    xcb_connection_t *m_connection;
    xcb_window_t m_root = 0;
    int m_presses = 0;
};

// Real key events from another process, through XTest.
void xdotool(const QStringList &arguments)
{
    QCOMPARE(QProcess::execute("xdotool", arguments), 0);
}

// Sees every X event before the hot-key filter (Qt asks the newest filter first) and posts a
// marker at the moment the press passes: a callback made inside the press's handling would
// come before the marker, a deferred one after it.
class PressOrder : public QAbstractNativeEventFilter
{
public:
    QStringList *order = nullptr;
    bool nativeEventFilter(const QByteArray &type, void *message, qintptr *) override
    {
        auto *event = static_cast<xcb_generic_event_t *>(message);
        if (type == "xcb_generic_event_t" && (event->response_type & 0x7f) == XCB_KEY_PRESS
            && reinterpret_cast<xcb_key_press_event_t *>(event)->detail == 26) {
            *order << "press";
            QMetaObject::invokeMethod(qApp, [o = order] { *o << "next turn"; }, Qt::QueuedConnection);
        }
        return false;
    }
};

} // namespace

class HotkeysTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<HotkeyManager> m_manager;
    ScriptedRegistrar *m_scripted = nullptr;
    QStringList m_calls;
    QList<Notice> m_notices;

    // A manager as the application sets it up: callback, notifier, handler.
    void makeManager(std::unique_ptr<HotkeyRegistrar> registrar)
    {
        m_manager = std::make_unique<HotkeyManager>(std::move(registrar));
        m_manager->setHotkeyCallback([this](const QString &language) {
            QCOMPARE(QThread::currentThread(), qApp->thread());
            m_calls << language;
        });
        m_manager->setNotifier([this](const QString &identifier, const QString &title, const QString &body) {
            m_notices << Notice{identifier, title, body};
        });
        m_manager->installEventHandler();
    }
    void makeScripted()
    {
        auto registrar = std::make_unique<ScriptedRegistrar>();
        m_scripted = registrar.get();
        makeManager(std::move(registrar));
    }

private slots:
    void init()
    {
        m_calls.clear();
        m_notices.clear();
    }
    void cleanup()
    {
        m_manager.reset();
        m_scripted = nullptr;
        // Leave the keyboard as the next test expects it, even after a failure.
        OtherClient observer;
        const quint16 state = observer.keyboardState();
        if (state & XCB_MOD_MASK_LOCK)
            QProcess::execute("xdotool", {"key", "Caps_Lock"});
        if (state & observer.numLockMask())
            QProcess::execute("xdotool", {"key", "Num_Lock"});
        QProcess::execute("xdotool", {"keyup", "ctrl+shift+e+v"});
        QProcess::execute("setxkbmap", {"us"});
    }

    // --- the manager over a scripted registrar ---

    // Every enabled binding takes the next identifier, failed or not; disabled ones take none.
    void identifiersLogLinesAndNotices()
    {
        makeScripted();
        m_scripted->refused.insert(ScriptedRegistrar::shortcut(keyD, commandShift), -9878);
        m_scripted->refused.insert(ScriptedRegistrar::shortcut(keyA, commandShift), -9878);
        const QList<HotkeyConfig> list{binding("en", keyE), binding("it", keyZ, commandShift, false),
                                       binding("de", keyD), binding("fr", keyF, Modifier::Command | Modifier::Option),
                                       binding("ja", keyA)};  // key code 0: "no key recorded"
        LogCapture capture;
        m_manager->registerHotkeys(list, true);  // from the settings
        QCOMPARE(capture.lines(), (QStringList{
                                      "[HotkeyManager] Registered hotkey 1 → en: Ctrl+Shift+E",
                                      "[HotkeyManager] Failed to register hotkey: -9878",
                                      "[HotkeyManager] Registered hotkey 3 → fr: Ctrl+Alt+F",
                                      "[HotkeyManager] Failed to register hotkey: -9878",
                                  }));
        QCOMPARE(m_notices, QList<Notice>{conflict(list.at(2), "Ctrl+Shift+D")});
        QCOMPARE(m_manager->registeredHotkeys().at(1).config, list.at(3));
        QCOMPARE(m_manager->hotkeyIDToLanguage(), (QHash<quint32, QString>{{1, "en"}, {3, "fr"}}));

        m_notices.clear();
        m_manager->registerHotkeys(list, false);  // at launch
        QVERIFY(m_notices.isEmpty());
        QCOMPARE(idsOf(m_manager->registeredHotkeys()), (QList<quint32>{5, 7}));
        QVERIFY(m_scripted->active.size() == 2 && m_scripted->active.contains(5) && m_scripted->active.contains(7));

        m_manager->unregisterAll();
        QVERIFY(m_manager->registeredHotkeys().isEmpty() && m_scripted->active.isEmpty());
        m_manager->registerHotkeys(list, false);
        QCOMPARE(idsOf(m_manager->registeredHotkeys()), (QList<quint32>{9, 11}));
    }

    void aLateRefusalIsTreatedLikeAnImmediateOne()
    {
        makeScripted();
        m_scripted->pending << ScriptedRegistrar::shortcut(keyV, commandShift);
        const QList<HotkeyConfig> list{binding("en", keyE), binding("vi", keyV)};
        m_manager->registerHotkeys(list, true);
        QCOMPARE(idsOf(m_manager->registeredHotkeys()), (QList<quint32>{1, 2}));
        LogCapture capture;
        m_scripted->refuseLater(2, 10);
        QCOMPARE(capture.lines(), QStringList{"[HotkeyManager] Failed to register hotkey: 10"});
        QCOMPARE(idsOf(m_manager->registeredHotkeys()), QList<quint32>{1});
        QVERIFY(!m_scripted->press(2));
        QCOMPARE(m_notices, QList<Notice>{conflict(list.at(1), "Ctrl+Shift+V")});
    }

    void pressesReachTheCallbackOneTurnLater()
    {
        makeScripted();
        m_manager->registerHotkeys({binding("en", keyE), binding("vi", keyV)}, false);
        QVERIFY(m_scripted->press(2));
        QVERIFY(m_calls.isEmpty());  // never inside the system's handler
        QTRY_COMPARE(m_calls, QStringList{"vi"});
        QVERIFY(!m_scripted->press(99));  // not ours: left to others

        QVERIFY(m_scripted->press(1));
        m_manager.reset();  // gone before the next turn: nothing runs
        QTest::qWait(50);
        QCOMPARE(m_calls, QStringList{"vi"});
    }

    void handlerAndTeardown()
    {
        auto registrar = std::make_unique<ScriptedRegistrar>();
        registrar->installStatus = -50;
        m_scripted = registrar.get();
        LogCapture capture;
        makeManager(std::move(registrar));
        QCOMPARE(capture.lines(), QStringList{"[HotkeyManager] Failed to install event handler: -50"});

        makeScripted();
        m_manager->registerHotkeys({binding("en", keyE)}, false);
        m_manager->teardown();
        QVERIFY(m_scripted->active.isEmpty());
        QVERIFY(!m_scripted->press(1));
    }

    // --- X11 key grabs, in the desktop session ---

    void x11PressFiresOnceOneTurnLater()
    {
        makeManager(createSystemHotkeyRegistrar());
        PressOrder order;
        order.order = &m_calls;
        qApp->installNativeEventFilter(&order);
        LogCapture capture;
        m_manager->registerHotkeys({binding("en", keyE), binding("vi", keyV)}, true);
        QCOMPARE(capture.lines(), (QStringList{"[HotkeyManager] Registered hotkey 1 → en: Ctrl+Shift+E",
                                               "[HotkeyManager] Registered hotkey 2 → vi: Ctrl+Shift+V"}));

        xdotool({"key", "ctrl+shift+e"});
        QTRY_COMPARE(m_calls, (QStringList{"press", "next turn", "en"}));
        qApp->removeNativeEventFilter(&order);
        m_calls.clear();
        // Ctrl+E alone and Ctrl+Alt+Shift+E are other shortcuts; the V that follows proves they
        // were handled before it.
        xdotool({"key", "ctrl+e", "ctrl+alt+shift+e", "ctrl+shift+v"});
        QTRY_COMPARE(m_calls, QStringList{"vi"});
        QTest::qWait(200);
        QCOMPARE(m_calls, QStringList{"vi"});
        QVERIFY(m_notices.isEmpty());
    }

    void x11LocksDoNotMatter_data()
    {
        QTest::addColumn<QString>("lockKey");
        QTest::newRow("Num Lock on") << "Num_Lock";
        QTest::newRow("Caps Lock on") << "Caps_Lock";
    }
    void x11LocksDoNotMatter()
    {
        QFETCH(QString, lockKey);
        OtherClient observer;
        const quint16 lockBit = lockKey == "Num_Lock" ? observer.numLockMask() : quint16(XCB_MOD_MASK_LOCK);
        QVERIFY(lockBit != 0);
        makeManager(createSystemHotkeyRegistrar());
        m_manager->registerHotkeys({binding("en", keyE)}, false);
        xdotool({"key", lockKey});
        QTRY_VERIFY(observer.keyboardState() & lockBit);
        xdotool({"key", "ctrl+shift+e"});
        QTRY_COMPARE(m_calls, QStringList{"en"});
        xdotool({"key", lockKey});
        QTRY_VERIFY(!(observer.keyboardState() & lockBit));
    }

    void x11ShortcutHeldByAnotherClientIsAConflict()
    {
        OtherClient other;
        const quint16 ctrlShift = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT;
        QVERIFY(other.grab(26, ctrlShift));  // Ctrl+Shift+E, without the lock variants
        makeManager(createSystemHotkeyRegistrar());
        // The same shortcut twice in our own list: the first binding keeps it.
        const QList<HotkeyConfig> list{binding("en", keyE), binding("vi", keyV), binding("fr", keyV)};
        {
            LogCapture capture;
            m_manager->registerHotkeys(list, true);  // from the settings
            QCOMPARE(capture.lines(), (QStringList{"[HotkeyManager] Failed to register hotkey: 10",
                                                   "[HotkeyManager] Registered hotkey 2 → vi: Ctrl+Shift+V",
                                                   "[HotkeyManager] Failed to register hotkey: 10"}));
        }
        QCOMPARE(m_notices, (QList<Notice>{conflict(list.at(0), "Ctrl+Shift+E"), conflict(list.at(2), "Ctrl+Shift+V")}));
        m_notices.clear();
        m_manager->registerHotkeys(list, false);  // at launch
        QVERIFY(m_notices.isEmpty());
        QCOMPARE(idsOf(m_manager->registeredHotkeys()), QList<quint32>{5});

        // The other client keeps its shortcut, and the press is its, not ours.
        xdotool({"key", "ctrl+shift+e", "ctrl+shift+v"});
        QTRY_COMPARE(m_calls, QStringList{"vi"});
        QTRY_COMPARE(other.keyPressesReceived(), 1);

        // Our lock variants of the refused shortcut were given back: once the other client lets
        // go, a third one can take all four.
        other.ungrab(26, ctrlShift);
        OtherClient third;
        const quint16 numLock = third.numLockMask();
        for (quint16 lock : {quint16(0), quint16(XCB_MOD_MASK_LOCK), numLock, quint16(numLock | XCB_MOD_MASK_LOCK)})
            QVERIFY2(third.grab(26, ctrlShift | lock), qPrintable(QString::number(lock)));
    }

    // A binding is a key position: on another layout it still grabs the key the user pressed
    // when recording it, whatever letter that key types there.
    void x11SamePhysicalKeyOnOtherLayouts_data()
    {
        QTest::addColumn<QString>("layout");
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<QString>("letterThere");   // what that key types on the layout
        QTest::addColumn<QString>("letterOfName");
        QTest::newRow("German, Z position types y") << "de" << keyZ << "y" << "z";
        QTest::newRow("French, A position types q") << "fr" << keyA << "q" << "a";
    }
    void x11SamePhysicalKeyOnOtherLayouts()
    {
        QFETCH(QString, layout);
        QFETCH(quint32, keyCode);
        QFETCH(QString, letterThere);
        QFETCH(QString, letterOfName);
        QCOMPARE(QProcess::execute("setxkbmap", {layout}), 0);
        makeManager(createSystemHotkeyRegistrar());
        m_manager->registerHotkeys({binding("xx", keyCode)}, false);
        // xdotool finds each letter's key in the active layout.
        xdotool({"key", "ctrl+shift+" + letterOfName, "ctrl+shift+" + letterThere});
        QTRY_COMPARE(m_calls, QStringList{"xx"});
        QTest::qWait(200);
        QCOMPARE(m_calls, QStringList{"xx"});
    }

    // While the key of a hot key is down, X11 sends every key to us: the manager says so, and
    // says when it is released.
    void x11HeldHotkeyAndItsRelease()
    {
        makeManager(createSystemHotkeyRegistrar());
        m_manager->registerHotkeys({binding("en", keyE), binding("vi", keyV)}, false);
        QSignalSpy released(m_manager.get(), &HotkeyManager::hotkeyReleased);
        QVERIFY(!m_manager->isHotkeyHeld());
        xdotool({"keydown", "ctrl+shift+e"});
        QTRY_COMPARE(m_calls, QStringList{"en"});
        QVERIFY(m_manager->isHotkeyHeld());
        xdotool({"keyup", "e"});
        QTRY_COMPARE(released.size(), 1);
        QVERIFY(!m_manager->isHotkeyHeld());
        xdotool({"key", "v"});  // still holding Ctrl+Shift
        xdotool({"keyup", "ctrl+shift"});
        QTRY_COMPARE(m_calls, (QStringList{"en", "vi"}));
    }
};

QTEST_MAIN(HotkeysTest)
#include "tst_hotkeys.moc"
