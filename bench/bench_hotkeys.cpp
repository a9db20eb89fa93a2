// Hot-key latency on X11: from an XTest key press sent by another X client to the manager's
// callback (one event-loop turn after the grab delivered the press), over a few dozen presses;
// and the time to (re-)register a list of bindings, grabs and their checks included.
//   scripts/desktop-session build/bench/bench_hotkeys
#include "state/HotkeyConfig.h"
#include "state/KeyCodes.h"
#include "system/HotkeyManager.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

namespace {

void report(const char *what, QList<double> samples)
{
    if (samples.isEmpty()) {
        std::printf("%-34s no samples\n", what);
        return;
    }
    std::sort(samples.begin(), samples.end());
    const auto at = [&](double q) { return samples.at(std::min<qsizetype>(samples.size() - 1, qsizetype(q * samples.size()))); };
    std::printf("%-34s n=%lld  min %.2f  median %.2f  p95 %.2f  max %.2f ms\n", what, static_cast<long long>(samples.size()),
                samples.first(), at(0.5), at(0.95), samples.last());
}

class KeySender
{
public:
    KeySender() : m_connection(xcb_connect(nullptr, nullptr)) {}
    ~KeySender() { xcb_disconnect(m_connection); }
    bool ok() const { return !xcb_connection_has_error(m_connection); }
    void send(quint8 type, quint32 keyCode)
    {
        const auto keycode = KeyCodes::x11KeycodeFromKeyCode(keyCode);
        xcb_test_fake_input(m_connection, type, quint8(*keycode), XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_flush(m_connection);
    }

private:
    xcb_connection_t *m_connection;
};

// Runs the event loop until done() holds, checking whenever a wake-up() quits it, or until two
// seconds have passed.
QEventLoop *waiting = nullptr;
void wakeUp()
{
    if (waiting)
        waiting->quit();
}
bool waitFor(const std::function<bool()> &done)
{
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < 2000) {
        QEventLoop loop;
        waiting = &loop;
        QTimer::singleShot(50, &loop, &QEventLoop::quit);
        loop.exec();
        waiting = nullptr;
    }
    return done();
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    KeySender keys;
    if (!keys.ok()) {
        std::fprintf(stderr, "no X server\n");
        return 1;
    }
    constexpr quint32 command = 55, shift = 56;  // left Ctrl and Shift on Linux
    constexpr int presses = 40;

    HotkeyManager manager(createSystemHotkeyRegistrar());
    QElapsedTimer clock;
    clock.start();
    qint64 pressedAt = 0;
    QList<double> latencies;
    int calls = 0;
    manager.setHotkeyCallback([&](const QString &) {
        latencies << (clock.nsecsElapsed() - pressedAt) / 1e6;
        ++calls;
        wakeUp();
    });
    QObject::connect(&manager, &HotkeyManager::hotkeyReleased, &wakeUp);
    manager.installEventHandler();

    QList<double> registrations;
    const QList<HotkeyConfig> bindings{
        {QUuid::createUuid(), QStringLiteral("en"), KeyCodes::E, Modifier::Command | Modifier::Shift, true},
        {QUuid::createUuid(), QStringLiteral("vi"), KeyCodes::V, Modifier::Command | Modifier::Shift, true},
    };
    for (int i = 0; i < 20; ++i) {
        const qint64 start = clock.nsecsElapsed();
        manager.registerHotkeys(bindings, false);
        registrations << (clock.nsecsElapsed() - start) / 1e6;
    }
    if (manager.registeredHotkeys().size() != 2) {
        std::fprintf(stderr, "the bindings could not be registered\n");
        return 1;
    }

    int lost = 0;
    for (int i = 0; i < presses; ++i) {
        keys.send(XCB_KEY_PRESS, command);
        keys.send(XCB_KEY_PRESS, shift);
        const int before = calls;
        pressedAt = clock.nsecsElapsed();
        keys.send(XCB_KEY_PRESS, KeyCodes::E);
        lost += !waitFor([&] { return calls > before; });
        keys.send(XCB_KEY_RELEASE, KeyCodes::E);
        keys.send(XCB_KEY_RELEASE, shift);
        keys.send(XCB_KEY_RELEASE, command);
        waitFor([&] { return !manager.isHotkeyHeld(); });
    }
    manager.teardown();

    std::printf("Hot keys on X11 (%d presses through XTest, %d lost)\n", presses, lost);
    report("press -> callback", latencies);
    report("register 2 bindings (4 grabs each)", registrations);
    return lost == 0 ? 0 : 1;
}
