// GLib and libatspi headers come first: they use Qt's keywords as identifiers.
#include <atspi/atspi.h>
#include <dbus/dbus.h>
#include <glib.h>
#include <xcb/xcb.h>

#include "system/x11/AtspiReader.h"

#include "state/Log.h"
#include "system/TextOffsets.h"

#include <QCoro/QCoroFuture>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QFuture>
#include <QHash>
#include <QPromise>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace {

const char *const tag = "Accessibility";

// Every call into an application gives up after this long; one that takes nearly as long is
// taken for a time-out (libatspi often reports none) and its application for hung.
constexpr int callTimeoutMs = 200;
constexpr int slowCallMs = 180;
// The background probe of a hung application waits this long before asking again.
constexpr int probeTimeoutMs = 1000;
// Left alone this long when it cannot even be probed.
constexpr int fallbackHangMs = 5000;
// Bounds of the walk through an application without the Collection interface.
constexpr int walkNodeLimit = 4000;
constexpr int walkTimeLimitMs = 400;

struct GObjectUnref
{
    void operator()(gpointer object) const
    {
        if (object)
            g_object_unref(object);
    }
};
template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref>;
using AccessiblePtr = GObjectPtr<AtspiAccessible>;

struct GFree
{
    void operator()(gpointer memory) const { g_free(memory); }
};
template <typename T>
using GMemoryPtr = std::unique_ptr<T, GFree>;

AtspiApplication *applicationOf(AtspiAccessible *object)
{
    return object ? ATSPI_OBJECT(object)->app : nullptr;
}

QByteArray busNameOf(AtspiAccessible *object)
{
    AtspiApplication *app = applicationOf(object);
    return app && app->bus_name ? QByteArray(app->bus_name) : QByteArray();
}

AccessibleElementId idOf(AtspiAccessible *object)
{
    const char *path = ATSPI_OBJECT(object)->path;
    return AccessibleElementId(busNameOf(object) + '\n' + (path ? path : ""));
}

bool contains(AtspiStateSet *states, AtspiStateType state)
{
    return states && atspi_state_set_contains(states, state);
}

std::optional<QRect> toRect(const AtspiRect *rect, bool allowNarrow)
{
    if (!rect || rect->height <= 0 || rect->width < 0 || (!allowNarrow && rect->width == 0))
        return std::nullopt;
    return QRect(rect->x, rect->y, rect->width, rect->height);
}

QString processName(qint64 pid)
{
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
    if (!comm.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(comm.readAll()).trimmed();
}

} // namespace

class AtspiReader::Worker
{
public:
    Worker()
    {
        std::unique_lock lock(m_startMutex);
        m_thread = std::thread([this] { run(); });
        m_started.wait(lock, [this] { return m_context != nullptr; });
    }

    ~Worker()
    {
        post([this] {
            m_stopping = true;
            g_main_loop_quit(m_loop);
        });
        m_thread.join();
    }

    // Runs a job on the worker; the future always receives a value (T{} when the reader is
    // unavailable or stopping).
    template <typename T>
    QFuture<T> submit(std::function<T(Worker &)> job)
    {
        auto promise = std::make_shared<QPromise<T>>();
        QFuture<T> future = promise->future();
        promise->start();
        post([this, promise, job = std::move(job)] {
            promise->addResult(m_stopping || !m_available ? T{} : job(*this));
            promise->finish();
        });
        return future;
    }

    std::optional<FocusedElement> readFocused(bool withText);
    std::optional<QRect> readBounds(const AccessibleElementId &element, TextRange range);
    bool readEditable();
    std::optional<QRect> readSelectionRect();

private:
    struct Text
    {
        GObjectPtr<AtspiText> iface;
        int count = 0;                // in the toolkit's unit
        TextOffsets::ToolkitText text; // all of it or a prefix
    };

    void run();
    void post(std::function<void()> job);
    static void onFocusEvent(AtspiEvent *event, void *self);

    // Facts that need no call into the application.
    qint64 pidOf(AtspiAccessible *object);
    bool mayAsk(AtspiAccessible *object);
    bool isHung(const QByteArray &busName);
    QString describe(AtspiAccessible *object);

    // One call into the application that owns `object`: false when it failed, was refused (our
    // own process, a hung application) or ran into the time-out.
    template <typename Call>
    bool ask(AtspiAccessible *object, Call &&call);
    struct ProbeData
    {
        Worker *worker;
        QByteArray busName;
        DBusConnection *bus;
        QElapsedTimer sent;
    };
    void markHung(AtspiAccessible *object);
    void probe(const QByteArray &busName, DBusConnection *bus);
    static void onProbeAnswered(DBusPendingCall *pending, void *data);

    GObjectPtr<AtspiStateSet> statesOf(AtspiAccessible *object);
    AccessiblePtr findFocused();
    AccessiblePtr focusedInApplication(qint64 pid);
    AccessiblePtr focusedByWalk(AtspiAccessible *root);
    struct ActiveWindow
    {
        bool exists = false;
        qint64 pid = 0; // its _NET_WM_PID; 0 when it has none
    };
    ActiveWindow activeWindow();
    AccessibleApplication applicationInfo(AtspiAccessible *object);
    std::optional<Text> openText(AtspiAccessible *object);
    bool readPrefix(AtspiAccessible *object, Text &text, int length);
    std::optional<QRect> rangeRect(AtspiAccessible *object, AtspiText *text, int start, int end, int count);

    std::thread m_thread;
    std::mutex m_startMutex;
    std::condition_variable m_started;
    GMainContext *m_context = nullptr;
    GMainLoop *m_loop = nullptr;
    std::atomic<bool> m_stopping = false;
    bool m_available = false;

    // Worker thread only:
    const qint64 m_ownPid = getpid();
    AtspiEventListener *m_listener = nullptr;
    AccessiblePtr m_focusSource;
    QHash<QByteArray, qint64> m_pids;         // bus name -> process id
    QHash<QByteArray, QString> m_names;       // bus name -> application name
    QHash<QByteArray, QDeadlineTimer> m_hung; // applications left alone, until they answer or until then
    QHash<QByteArray, DBusPendingCall *> m_probes;
    xcb_connection_t *m_x11 = nullptr;
    xcb_atom_t m_activeWindowAtom = XCB_ATOM_NONE;
    xcb_atom_t m_pidAtom = XCB_ATOM_NONE;
};

void AtspiReader::Worker::post(std::function<void()> job)
{
    auto *data = new std::function<void()>(std::move(job));
    GSource *source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(
        source,
        [](gpointer function) -> gboolean {
            (*static_cast<std::function<void()> *>(function))();
            return G_SOURCE_REMOVE;
        },
        data, [](gpointer function) { delete static_cast<std::function<void()> *>(function); });
    g_source_attach(source, m_context);
    g_source_unref(source);
}

void AtspiReader::Worker::run()
{
    // libatspi attaches its connections to GLib's default main context: this thread must own it.
    GMainContext *context = g_main_context_default();
    const bool owner = g_main_context_acquire(context);
    if (!owner) {
        logLine(tag, QStringLiteral("GLib's default main context is in use by another thread (is QT_NO_GLIB=1 set?): "
                                    "nothing will be read"));
        context = g_main_context_new();
        g_main_context_acquire(context);
    }
    {
        std::lock_guard lock(m_startMutex);
        m_context = context;
        m_loop = g_main_loop_new(context, FALSE);
    }
    m_started.notify_all();

    if (owner) {
        // Once per process: libatspi stays connected (or not) for good.
        static const int initialised = atspi_init();
        m_available = initialised == 0 || initialised == 1;
        if (!m_available)
            logLine(tag, QStringLiteral("the accessibility bus is not reachable: nothing will be read"));
    }
    if (m_available) {
        atspi_set_timeout(callTimeoutMs, 0);
        m_listener = atspi_event_listener_new(&Worker::onFocusEvent, this, nullptr);
        GError *error = nullptr;
        if (!atspi_event_listener_register(m_listener, "object:state-changed:focused", &error)) {
            logLine(tag, QStringLiteral("focus events are not delivered: %1")
                             .arg(QString::fromUtf8(error ? error->message : "unknown error")));
            g_clear_error(&error);
        }
        m_x11 = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(m_x11)) {
            xcb_disconnect(m_x11);
            m_x11 = nullptr;
        } else {
            auto intern = [this](const char *name) {
                xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(
                    m_x11, xcb_intern_atom(m_x11, 0, static_cast<uint16_t>(strlen(name)), name), nullptr);
                const xcb_atom_t atom = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
                free(reply);
                return atom;
            };
            m_activeWindowAtom = intern("_NET_ACTIVE_WINDOW");
            m_pidAtom = intern("_NET_WM_PID");
        }
    }

    g_main_loop_run(m_loop);

    // Jobs still queued answer "nothing" now that m_stopping is set.
    for (int i = 0; i < 10000 && g_main_context_iteration(context, FALSE); ++i) {
    }
    for (DBusPendingCall *pending : std::as_const(m_probes)) {
        dbus_pending_call_cancel(pending);
        dbus_pending_call_unref(pending);
    }
    m_probes.clear();
    if (m_listener) {
        atspi_event_listener_deregister(m_listener, "object:state-changed:focused", nullptr);
        g_object_unref(m_listener);
    }
    m_focusSource.reset();
    if (m_x11)
        xcb_disconnect(m_x11);
    g_main_loop_unref(m_loop);
    g_main_context_release(context);
    if (!owner)
        g_main_context_unref(context);
}

void AtspiReader::Worker::onFocusEvent(AtspiEvent *event, void *self)
{
    if (event->detail1 == 1 && event->source)
        static_cast<Worker *>(self)->m_focusSource.reset(static_cast<AtspiAccessible *>(g_object_ref(event->source)));
    g_boxed_free(ATSPI_TYPE_EVENT, event);
}

qint64 AtspiReader::Worker::pidOf(AtspiAccessible *object)
{
    // Asked of the bus daemon, not of the application.
    const QByteArray busName = busNameOf(object);
    if (busName.isEmpty())
        return 0;
    if (auto known = m_pids.constFind(busName); known != m_pids.constEnd())
        return *known;
    GError *error = nullptr;
    const guint pid = atspi_accessible_get_process_id(object, &error);
    if (error) {
        g_error_free(error);
        return 0;
    }
    m_pids.insert(busName, pid);
    return pid;
}

bool AtspiReader::Worker::mayAsk(AtspiAccessible *object)
{
    if (!object || !applicationOf(object) || !applicationOf(object)->bus)
        return false;
    const qint64 pid = pidOf(object);
    return pid != 0 && pid != m_ownPid && !isHung(busNameOf(object));
}

bool AtspiReader::Worker::isHung(const QByteArray &busName)
{
    auto hung = m_hung.find(busName);
    if (hung == m_hung.end())
        return false;
    if (!hung->hasExpired())
        return true;
    m_hung.erase(hung);
    return false;
}

QString AtspiReader::Worker::describe(AtspiAccessible *object)
{
    const qint64 pid = pidOf(object);
    QString name = m_names.value(busNameOf(object));
    if (name.isEmpty())
        name = processName(pid);
    return QStringLiteral("%1 (pid %2)").arg(name.isEmpty() ? QStringLiteral("an application") : name).arg(pid);
}

template <typename Call>
bool AtspiReader::Worker::ask(AtspiAccessible *object, Call &&call)
{
    if (!mayAsk(object))
        return false;
    GError *error = nullptr;
    QElapsedTimer clock;
    clock.start();
    call(&error);
    const bool timedOut = clock.elapsed() >= slowCallMs;
    const bool failed = error != nullptr;
    g_clear_error(&error);
    if (timedOut)
        markHung(object);
    return !failed && !timedOut;
}

void AtspiReader::Worker::markHung(AtspiAccessible *object)
{
    const QByteArray busName = busNameOf(object);
    if (busName.isEmpty() || isHung(busName))
        return;
    m_hung.insert(busName, QDeadlineTimer(QDeadlineTimer::Forever));
    logLine(tag, QStringLiteral("%1 does not answer: left alone until it does").arg(describe(object)));
    probe(busName, applicationOf(object)->bus);
}

// Asks the hung application, without waiting, for something that its main loop must answer
// (the role of its root); asked again after every time-out until it answers.
void AtspiReader::Worker::probe(const QByteArray &busName, DBusConnection *bus)
{
    DBusMessage *message = dbus_message_new_method_call(busName.constData(), "/org/a11y/atspi/accessible/root",
                                                        "org.a11y.atspi.Accessible", "GetRole");
    DBusPendingCall *pending = nullptr;
    const bool sent = message && bus && dbus_connection_send_with_reply(bus, message, &pending, probeTimeoutMs)
        && pending;
    if (message)
        dbus_message_unref(message);
    if (!sent) {
        m_hung.insert(busName, QDeadlineTimer(fallbackHangMs)); // no probe: a few seconds then
        return;
    }
    dbus_connection_ref(bus);
    auto *data = new ProbeData{this, busName, bus, {}};
    data->sent.start();
    dbus_pending_call_set_notify(pending, &Worker::onProbeAnswered, data, [](void *memory) {
        auto *probe = static_cast<ProbeData *>(memory);
        dbus_connection_unref(probe->bus);
        delete probe;
    });
    m_probes.insert(busName, pending);
}

void AtspiReader::Worker::onProbeAnswered(DBusPendingCall *pending, void *data)
{
    auto *probe = static_cast<ProbeData *>(data);
    Worker *worker = probe->worker;
    const QByteArray busName = probe->busName;
    DBusConnection *bus = probe->bus;
    const bool waitedFully = probe->sent.elapsed() >= probeTimeoutMs / 2;
    DBusMessage *reply = dbus_pending_call_steal_reply(pending);
    const bool timedOut = reply && dbus_message_get_type(reply) == DBUS_MESSAGE_TYPE_ERROR
        && qstrcmp(dbus_message_get_error_name(reply), DBUS_ERROR_NO_REPLY) == 0;
    if (reply)
        dbus_message_unref(reply);
    worker->m_probes.remove(busName);
    dbus_connection_ref(bus); // the probe data goes with the pending call
    dbus_pending_call_unref(pending);
    if (timedOut && !waitedFully) {
        worker->m_hung.insert(busName, QDeadlineTimer(fallbackHangMs)); // a closed connection, most likely
    } else if (timedOut && !worker->m_stopping) {
        worker->probe(busName, bus);
    } else {
        worker->m_hung.remove(busName);
        logLine(tag, QStringLiteral("%1 answers again").arg(worker->m_names.value(busName, QString::fromLatin1(busName))));
    }
    dbus_connection_unref(bus);
}

GObjectPtr<AtspiStateSet> AtspiReader::Worker::statesOf(AtspiAccessible *object)
{
    GObjectPtr<AtspiStateSet> states;
    ask(object, [&](GError **) { states.reset(atspi_accessible_get_state_set(object)); });
    if (contains(states.get(), ATSPI_STATE_DEFUNCT))
        states.reset();
    return states;
}

AtspiReader::Worker::ActiveWindow AtspiReader::Worker::activeWindow()
{
    if (!m_x11 || m_activeWindowAtom == XCB_ATOM_NONE || m_pidAtom == XCB_ATOM_NONE)
        return {};
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_x11)).data->root;
    auto property = [this](xcb_window_t window, xcb_atom_t name, xcb_atom_t type) -> uint32_t {
        xcb_get_property_reply_t *reply
            = xcb_get_property_reply(m_x11, xcb_get_property(m_x11, 0, window, name, type, 0, 1), nullptr);
        uint32_t value = 0;
        if (reply && reply->format == 32 && xcb_get_property_value_length(reply) >= 4)
            value = *static_cast<uint32_t *>(xcb_get_property_value(reply));
        free(reply);
        return value;
    };
    const xcb_window_t active = property(root, m_activeWindowAtom, XCB_ATOM_WINDOW);
    if (!active)
        return {};
    return {true, property(active, m_pidAtom, XCB_ATOM_CARDINAL)};
}

AccessiblePtr AtspiReader::Worker::findFocused()
{
    // A window whose process is unknown (old X toolkits) exposes nothing to read either.
    const ActiveWindow active = activeWindow();
    if (active.exists && (active.pid == 0 || active.pid == m_ownPid))
        return {};
    if (m_focusSource) {
        AccessiblePtr candidate(static_cast<AtspiAccessible *>(g_object_ref(m_focusSource.get())));
        const qint64 pid = pidOf(candidate.get());
        if (pid != 0 && pid != m_ownPid && (!active.exists || pid == active.pid)) {
            GObjectPtr<AtspiStateSet> states = statesOf(candidate.get());
            if (contains(states.get(), ATSPI_STATE_FOCUSED))
                return candidate;
        }
    }
    return active.exists ? focusedInApplication(active.pid) : AccessiblePtr();
}

AccessiblePtr AtspiReader::Worker::focusedInApplication(qint64 pid)
{
    AccessiblePtr desktop(atspi_get_desktop(0));
    int count = 0;
    if (!ask(desktop.get(), [&](GError **error) { count = atspi_accessible_get_child_count(desktop.get(), error); }))
        return {};
    AccessiblePtr root;
    for (int i = 0; i < count && !root; ++i) {
        AccessiblePtr child;
        ask(desktop.get(), [&](GError **error) { child.reset(atspi_accessible_get_child_at_index(desktop.get(), i, error)); });
        if (child && pidOf(child.get()) == pid)
            root = std::move(child);
    }
    if (!root || !mayAsk(root.get()))
        return {};

    GObjectPtr<AtspiCollection> collection;
    if (!ask(root.get(), [&](GError **) { collection.reset(atspi_accessible_get_collection_iface(root.get())); }))
        return {};
    if (!collection)
        return focusedByWalk(root.get()); // Qt 6.4 offers no Collection

    GObjectPtr<AtspiStateSet> focused(atspi_state_set_new(nullptr));
    atspi_state_set_add(focused.get(), ATSPI_STATE_FOCUSED);
    GObjectPtr<AtspiMatchRule> rule(atspi_match_rule_new(focused.get(), ATSPI_Collection_MATCH_ALL, nullptr,
                                                         ATSPI_Collection_MATCH_NONE, nullptr, ATSPI_Collection_MATCH_NONE,
                                                         nullptr, ATSPI_Collection_MATCH_NONE, FALSE));
    GArray *matches = nullptr;
    if (!ask(root.get(), [&](GError **error) {
            matches = atspi_collection_get_matches(collection.get(), rule.get(), ATSPI_Collection_SORT_ORDER_CANONICAL,
                                                   0, TRUE, error);
        })) {
        if (matches)
            g_array_free(matches, TRUE);
        return {};
    }
    // The deepest match is the element itself rather than a container that shares the state.
    AccessiblePtr result;
    for (guint i = 0; matches && i < matches->len; ++i)
        result.reset(g_array_index(matches, AtspiAccessible *, i));
    if (matches)
        g_array_free(matches, TRUE);
    return result;
}

AccessiblePtr AtspiReader::Worker::focusedByWalk(AtspiAccessible *root)
{
    QElapsedTimer clock;
    clock.start();
    std::vector<AccessiblePtr> pending;
    pending.emplace_back(static_cast<AtspiAccessible *>(g_object_ref(root)));
    for (int visited = 0; !pending.empty() && visited < walkNodeLimit && clock.elapsed() < walkTimeLimitMs; ++visited) {
        AccessiblePtr node = std::move(pending.back());
        pending.pop_back();
        if (node.get() != root) {
            GObjectPtr<AtspiStateSet> states = statesOf(node.get());
            if (!states)
                continue;
            if (contains(states.get(), ATSPI_STATE_FOCUSED))
                return node;
            if (!contains(states.get(), ATSPI_STATE_SHOWING))
                continue;
        }
        int count = 0;
        if (!ask(node.get(), [&](GError **error) { count = atspi_accessible_get_child_count(node.get(), error); }))
            continue;
        for (int i = count - 1; i >= 0; --i) {
            AccessiblePtr child;
            if (ask(node.get(), [&](GError **error) { child.reset(atspi_accessible_get_child_at_index(node.get(), i, error)); })
                && child)
                pending.push_back(std::move(child));
        }
    }
    return {};
}

AccessibleApplication AtspiReader::Worker::applicationInfo(AtspiAccessible *object)
{
    AccessibleApplication info;
    info.pid = pidOf(object);
    const QByteArray busName = busNameOf(object);
    if (!m_names.contains(busName)) {
        AtspiAccessible *root = applicationOf(object)->root;
        GMemoryPtr<gchar> name;
        if (root)
            ask(root, [&](GError **error) { name.reset(atspi_accessible_get_name(root, error)); });
        m_names.insert(busName, name && *name ? QString::fromUtf8(name.get()) : processName(info.pid));
    }
    info.name = m_names.value(busName);
    return info;
}

std::optional<AtspiReader::Worker::Text> AtspiReader::Worker::openText(AtspiAccessible *object)
{
    Text result;
    if (!ask(object, [&](GError **) { result.iface.reset(atspi_accessible_get_text_iface(object)); }) || !result.iface
        || !ask(object, [&](GError **error) { result.count = atspi_text_get_character_count(result.iface.get(), error); }))
        return std::nullopt;
    return result;
}

// The first `length` toolkit offsets of the text (all of it for -1) tell the unit as well as
// the whole would: a prefix without characters beyond the BMP converts one to one.
bool AtspiReader::Worker::readPrefix(AtspiAccessible *object, Text &text, int length)
{
    const int end = length < 0 ? text.count : std::clamp(length, 0, text.count);
    GMemoryPtr<gchar> raw;
    if (!ask(object, [&](GError **error) { raw.reset(atspi_text_get_text(text.iface.get(), 0, end, error)); }))
        return false;
    text.text = TextOffsets::interpret(QString::fromUtf8(raw ? raw.get() : ""), end);
    return true;
}

std::optional<QRect> AtspiReader::Worker::rangeRect(AtspiAccessible *object, AtspiText *text, int start, int end,
                                                    int count)
{
    auto extents = [&](auto &&read) -> GMemoryPtr<AtspiRect> {
        GMemoryPtr<AtspiRect> rect;
        if (!ask(object, [&](GError **error) { rect.reset(read(error)); }))
            rect.reset();
        return rect;
    };
    if (end > start) {
        GMemoryPtr<AtspiRect> rect = extents([&](GError **error) {
            return atspi_text_get_range_extents(text, start, end, ATSPI_COORD_TYPE_SCREEN, error);
        });
        return toRect(rect.get(), false);
    }
    // A caret: the left edge of the character after it, or the right edge of the one before.
    if (start < count) {
        GMemoryPtr<AtspiRect> next = extents([&](GError **error) {
            return atspi_text_get_character_extents(text, start, ATSPI_COORD_TYPE_SCREEN, error);
        });
        if (auto rect = toRect(next.get(), true))
            return QRect(rect->x(), rect->y(), 1, rect->height());
    }
    if (start > 0) {
        GMemoryPtr<AtspiRect> previous = extents([&](GError **error) {
            return atspi_text_get_character_extents(text, start - 1, ATSPI_COORD_TYPE_SCREEN, error);
        });
        if (auto rect = toRect(previous.get(), true))
            return QRect(rect->x() + rect->width(), rect->y(), 1, rect->height());
    }
    return std::nullopt;
}

std::optional<FocusedElement> AtspiReader::Worker::readFocused(bool withText)
{
    AccessiblePtr object = findFocused();
    if (!object)
        return std::nullopt;
    AtspiRole role = ATSPI_ROLE_INVALID;
    if (!ask(object.get(), [&](GError **error) { role = atspi_accessible_get_role(object.get(), error); }))
        return std::nullopt;
    GObjectPtr<AtspiStateSet> states = statesOf(object.get());
    if (!states)
        return std::nullopt;

    FocusedElement element;
    element.id = idOf(object.get());
    GMemoryPtr<gchar> roleName(atspi_role_get_name(role));
    element.role = QString::fromUtf8(roleName ? roleName.get() : "");
    element.editable = contains(states.get(), ATSPI_STATE_EDITABLE) && !contains(states.get(), ATSPI_STATE_READ_ONLY);
    element.isPassword = role == ATSPI_ROLE_PASSWORD_TEXT;
    element.application = applicationInfo(object.get());
    if (element.isPassword)
        return element; // never a Text call on a password field

    // A lost answer from an application that hung meanwhile makes the whole read none.
    auto failed = [&] { return isHung(busNameOf(object.get())) ? std::nullopt : std::optional(element); };
    std::optional<Text> text = openText(object.get());
    if (!text)
        return failed();
    int caret = -1;
    int selections = 0;
    GMemoryPtr<AtspiRange> selected;
    AtspiText *iface = text->iface.get();
    if (!ask(object.get(), [&](GError **error) { caret = atspi_text_get_caret_offset(iface, error); })
        || !ask(object.get(), [&](GError **error) { selections = atspi_text_get_n_selections(iface, error); })
        || (selections > 0
            && !ask(object.get(), [&](GError **error) { selected.reset(atspi_text_get_selection(iface, 0, error)); }))) {
        if (isHung(busNameOf(object.get())))
            return std::nullopt;
    }
    // Only what the offsets need when the text itself is not wanted.
    int needed = std::max(caret, 0);
    if (selected)
        needed = std::max({needed, selected->start_offset, selected->end_offset});
    if (!readPrefix(object.get(), *text, withText ? -1 : needed))
        return failed();
    const QString &content = text->text.text;
    const TextOffsets::Unit unit = text->text.unit;
    element.hasText = true;
    element.caret = caret >= 0 ? TextOffsets::toCharacters(content, unit, caret) : -1;
    if (selected && selected->start_offset != selected->end_offset) {
        const int start = TextOffsets::toCharacters(content, unit, std::min(selected->start_offset, selected->end_offset));
        const int end = TextOffsets::toCharacters(content, unit, std::max(selected->start_offset, selected->end_offset));
        element.selection = TextRange{start, end - start};
    } else if (element.caret >= 0) {
        element.selection = TextRange{element.caret, 0};
    }
    if (withText)
        element.text = content;
    return element;
}

std::optional<QRect> AtspiReader::Worker::readBounds(const AccessibleElementId &element, TextRange range)
{
    AccessiblePtr object = findFocused();
    if (!object || idOf(object.get()) != element || range.start < 0 || range.length < 0)
        return std::nullopt;
    AtspiRole role = ATSPI_ROLE_INVALID;
    if (!ask(object.get(), [&](GError **error) { role = atspi_accessible_get_role(object.get(), error); })
        || role == ATSPI_ROLE_PASSWORD_TEXT)
        return std::nullopt;
    // A character is at most two offsets in any unit.
    std::optional<Text> text = openText(object.get());
    if (!text || !readPrefix(object.get(), *text, int(std::min<qint64>(2LL * range.end(), text->count))))
        return std::nullopt;
    const int start = TextOffsets::fromCharacters(text->text.text, text->text.unit, range.start);
    const int end = TextOffsets::fromCharacters(text->text.text, text->text.unit, range.end());
    return rangeRect(object.get(), text->iface.get(), start, end, text->count);
}

bool AtspiReader::Worker::readEditable()
{
    AccessiblePtr object = findFocused();
    GObjectPtr<AtspiStateSet> states = object ? statesOf(object.get()) : nullptr;
    return contains(states.get(), ATSPI_STATE_EDITABLE) && !contains(states.get(), ATSPI_STATE_READ_ONLY);
}

std::optional<QRect> AtspiReader::Worker::readSelectionRect()
{
    AccessiblePtr object = findFocused();
    if (!object)
        return std::nullopt;
    AtspiRole role = ATSPI_ROLE_INVALID;
    GObjectPtr<AtspiText> text;
    if (!ask(object.get(), [&](GError **error) { role = atspi_accessible_get_role(object.get(), error); })
        || role == ATSPI_ROLE_PASSWORD_TEXT
        || !ask(object.get(), [&](GError **) { text.reset(atspi_accessible_get_text_iface(object.get())); }) || !text)
        return std::nullopt;
    int selections = 0;
    GMemoryPtr<AtspiRange> selected;
    if (!ask(object.get(), [&](GError **error) { selections = atspi_text_get_n_selections(text.get(), error); })
        || selections < 1
        || !ask(object.get(), [&](GError **error) { selected.reset(atspi_text_get_selection(text.get(), 0, error)); })
        || !selected || selected->start_offset == selected->end_offset)
        return std::nullopt;
    // Offsets stay in the toolkit's unit: no conversion needed for a rectangle.
    return rangeRect(object.get(), text.get(), std::min(selected->start_offset, selected->end_offset),
                     std::max(selected->start_offset, selected->end_offset), -1);
}

namespace {

std::mutex sharedWorkerMutex;
std::weak_ptr<AtspiReader::Worker> sharedWorker;

} // namespace

AtspiReader::AtspiReader()
{
    std::lock_guard lock(sharedWorkerMutex);
    m_worker = sharedWorker.lock();
    if (!m_worker) {
        m_worker = std::make_shared<Worker>();
        sharedWorker = m_worker;
    }
}

AtspiReader::~AtspiReader() = default;

// The futures are named locals: g++ 12 destroys temporaries of a co_await operand twice.
QCoro::Task<std::optional<FocusedElement>> AtspiReader::focusedElement(Read read)
{
    const bool withText = read == Read::WithText;
    QFuture<std::optional<FocusedElement>> result = m_worker->submit<std::optional<FocusedElement>>(
        [withText](Worker &w) { return w.readFocused(withText); });
    co_return co_await result;
}

QCoro::Task<std::optional<QRect>> AtspiReader::boundsForRange(AccessibleElementId element, TextRange range)
{
    QFuture<std::optional<QRect>> result = m_worker->submit<std::optional<QRect>>(
        [element, range](Worker &w) { return w.readBounds(element, range); });
    co_return co_await result;
}

QCoro::Task<bool> AtspiReader::isFocusedElementEditable()
{
    QFuture<bool> result = m_worker->submit<bool>([](Worker &w) { return w.readEditable(); });
    co_return co_await result;
}

QCoro::Task<std::optional<QRect>> AtspiReader::selectionRect()
{
    QFuture<std::optional<QRect>> result
        = m_worker->submit<std::optional<QRect>>([](Worker &w) { return w.readSelectionRect(); });
    co_return co_await result;
}

std::unique_ptr<Accessibility> createSystemAccessibility()
{
    return std::make_unique<AtspiReader>();
}
