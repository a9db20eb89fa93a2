#pragma once

#include <QObject>
#include <QTimer>
#include <QCoro/QCoroTask>
#include <chrono>
#include <coroutine>
#include <memory>
#include <utility>

// Waits for a signal or a time-out, whichever comes first: true when the signal came. Unlike
// qCoro(object, signal, timeout), emissions after the wait has ended (a second one in the same
// turn of the event loop, or one racing the time-out) are harmless. The waiting coroutine
// resumes from the event loop.
namespace AwaitSignal {

namespace detail {
struct State {
    std::coroutine_handle<> waiting;
    bool finished = false;
    bool signalled = false;

    void finish(bool bySignal)
    {
        if (finished)
            return;
        finished = true;
        signalled = bySignal;
        // Resumed from the event loop, not from inside the emission (which may come from the
        // timer about to be destroyed with the waiting frame).
        if (auto handle = std::exchange(waiting, nullptr))
            QTimer::singleShot(0, [handle] { handle.resume(); });
    }
};

struct Awaiter {
    std::shared_ptr<State> state;
    bool await_ready() const noexcept { return state->finished; }
    void await_suspend(std::coroutine_handle<> handle) noexcept { state->waiting = handle; }
    bool await_resume() const noexcept { return state->signalled; }
};
} // namespace detail

template <typename Sender, typename Signal>
QCoro::Task<bool> wait(Sender *sender, Signal signal, std::chrono::milliseconds timeout)
{
    auto state = std::make_shared<detail::State>();
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, [state] { state->finish(false); });
    const QMetaObject::Connection connection =
        QObject::connect(sender, signal, sender, [state] { state->finish(true); }, Qt::DirectConnection);
    timer.start(std::max(timeout, std::chrono::milliseconds::zero()));
    const bool signalled = co_await detail::Awaiter{state};
    QObject::disconnect(connection);
    co_return signalled;
}

} // namespace AwaitSignal
