#include "system/KeyWatcher.h"

#include <array>
#include <chrono>

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto noteLifetime = std::chrono::seconds(1);

struct Note {
    quint32 keyCode = 0;
    Clock::time_point sent;
};

// A few dozen presses at most are in flight (a deletion of a long text); older notes are
// overwritten first.
struct Notes {
    std::array<Note, 512> ring;
    int first = 0;
    int count = 0;
    int watchers = 0;

    void dropExpired(Clock::time_point now)
    {
        while (count > 0 && now - ring[size_t(first)].sent > noteLifetime) {
            first = (first + 1) % int(ring.size());
            --count;
        }
    }
};

Notes &notes()
{
    static Notes instance;
    return instance;
}

} // namespace

namespace SynthesisedKeys {

void notePress(quint32 nativeKeyCode)
{
    Notes &n = notes();
    if (n.watchers <= 0)
        return;
    const auto now = Clock::now();
    n.dropExpired(now);
    if (n.count == int(n.ring.size())) {
        n.first = (n.first + 1) % int(n.ring.size());
        --n.count;
    }
    n.ring[size_t((n.first + n.count) % int(n.ring.size()))] = {nativeKeyCode, now};
    ++n.count;
}

bool takePress(quint32 nativeKeyCode)
{
    Notes &n = notes();
    if (n.count == 0)
        return false;
    n.dropExpired(Clock::now());
    const int size = int(n.ring.size());
    for (int i = 0; i < n.count; ++i) {
        const int at = (n.first + i) % size;
        if (n.ring[size_t(at)].keyCode != nativeKeyCode)
            continue;
        // Close the gap, keeping the order of the others.
        for (int j = i; j > 0; --j)
            n.ring[size_t((n.first + j) % size)] = n.ring[size_t((n.first + j - 1) % size)];
        n.first = (n.first + 1) % size;
        --n.count;
        return true;
    }
    return false;
}

void setWatching(bool watching)
{
    Notes &n = notes();
    n.watchers += watching ? 1 : -1;
    if (n.watchers <= 0) {
        n.watchers = 0;
        n.count = 0;
    }
}

int pendingCount()
{
    Notes &n = notes();
    n.dropExpired(Clock::now());
    return n.count;
}

} // namespace SynthesisedKeys
