#include "system/x11/X11Pasteboard.h"

#include "state/Log.h"
#include "system/AwaitSignal.h"

#include <QSocketNotifier>
#include <QStringDecoder>
#include <algorithm>
#include <cstring>

#include <xcb/xfixes.h>

namespace {

using namespace std::chrono_literals;

const char *const tag = "ClipboardManager";

// Data above this size goes out in increments; every increment is this big at most.
constexpr qsizetype incrementSize = 256 * 1024;
// An outgoing incremental transfer whose requestor stopped reading is dropped after this.
constexpr qint64 abandonedTransferMs = 10000;

const QByteArray secretHintTarget = QByteArrayLiteral("x-kde-passwordManagerHint");

// Targets that describe the selection rather than hold its data, and Qt's internal image
// target that serves nothing once restored.
bool isMetaTarget(const QByteArray &name)
{
    return name == "TARGETS" || name == "MULTIPLE" || name == "TIMESTAMP" || name == "SAVE_TARGETS"
        || name == "DELETE" || name.startsWith("INSERT_") || name == "application/x-qt-image";
}

template <typename Reply>
using ReplyPtr = std::unique_ptr<Reply, decltype(&free)>;

template <typename Reply>
ReplyPtr<Reply> adopt(Reply *reply)
{
    return ReplyPtr<Reply>(reply, &free);
}

std::optional<QString> decodeText(const QByteArray &bytes, const QByteArray &type)
{
    QByteArray data = bytes;
    while (data.endsWith('\0'))
        data.chop(1);
    if (type == "STRING")
        return QString::fromLatin1(data);
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder.decode(data);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

} // namespace

struct X11Pasteboard::Conversion {
    xcb_atom_t selection = 0;
    xcb_atom_t target = 0;
    qsizetype limit = 0;
    bool notified = false;
    bool incremental = false;
    bool done = false;
    bool ok = false;
    Received received;
};

X11Pasteboard::X11Pasteboard(QObject *parent)
    : Pasteboard(parent)
{
    int screenNumber = 0;
    m_connection = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(m_connection)) {
        xcb_disconnect(m_connection);
        m_connection = nullptr;
        logLine(tag, QStringLiteral("cannot open the display: the clipboard is out of reach"));
        return;
    }
    const xcb_setup_t *setup = xcb_get_setup(m_connection);
    m_resourceMask = setup->resource_id_mask;
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(setup);
    for (int i = 0; i < screenNumber && screens.rem; ++i)
        xcb_screen_next(&screens);
    m_root = screens.data->root;

    m_window = xcb_generate_id(m_connection);
    const uint32_t mask[] = {XCB_EVENT_MASK_PROPERTY_CHANGE};
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, m_root, -10, -10, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, mask);

    // XFixes tells every change of the clipboard's owner: the change count.
    const xcb_query_extension_reply_t *xfixes = xcb_get_extension_data(m_connection, &xcb_xfixes_id);
    if (xfixes && xfixes->present) {
        auto version = adopt(xcb_xfixes_query_version_reply(
            m_connection, xcb_xfixes_query_version(m_connection, XCB_XFIXES_MAJOR_VERSION, XCB_XFIXES_MINOR_VERSION),
            nullptr));
        m_xfixesEvent = xfixes->first_event;
        xcb_xfixes_select_selection_input(m_connection, m_window, atom("CLIPBOARD"),
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER
                                              | XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY
                                              | XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    } else {
        logLine(tag, QStringLiteral("the X server lacks XFixes: clipboard changes are seen only when read"));
    }
    for (const char *name : {"PRIMARY", "TARGETS", "TIMESTAMP", "MULTIPLE", "INCR", "ATOM_PAIR", "UTF8_STRING",
                             "TEXT", "text/plain;charset=utf-8", "text/plain", "_NET_ACTIVE_WINDOW",
                             "_PARLANTO_TIME"})
        atom(name);
    atom(secretHintTarget);
    xcb_flush(m_connection);

    m_notifier = new QSocketNotifier(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &X11Pasteboard::processEvents);
    scheduleProcessing();
}

X11Pasteboard::~X11Pasteboard()
{
    if (!m_connection)
        return;
    delete m_notifier;
    xcb_destroy_window(m_connection, m_window);
    xcb_disconnect(m_connection);
}

std::unique_ptr<Pasteboard> createSystemPasteboard()
{
    return std::make_unique<X11Pasteboard>();
}

// ---- round trips to the server ----------------------------------------------------------------

xcb_atom_t X11Pasteboard::atom(const QByteArray &name)
{
    if (const auto found = m_atoms.constFind(name); found != m_atoms.constEnd())
        return *found;
    if (!m_connection)
        return XCB_ATOM_NONE;
    auto reply = adopt(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(name.size()), name.constData()), nullptr));
    scheduleProcessing();
    if (!reply)
        return XCB_ATOM_NONE;
    m_atoms.insert(name, reply->atom);
    m_atomNames.insert(reply->atom, name);
    return reply->atom;
}

QList<QByteArray> X11Pasteboard::atomNames(const QList<xcb_atom_t> &atoms)
{
    std::vector<xcb_get_atom_name_cookie_t> cookies;
    for (xcb_atom_t a : atoms)
        cookies.push_back(m_atomNames.contains(a) ? xcb_get_atom_name_cookie_t{0}
                                                  : xcb_get_atom_name(m_connection, a));
    QList<QByteArray> names;
    for (qsizetype i = 0; i < atoms.size(); ++i) {
        if (cookies[i].sequence) {
            auto reply = adopt(xcb_get_atom_name_reply(m_connection, cookies[i], nullptr));
            if (reply) {
                const QByteArray name(xcb_get_atom_name_name(reply.get()), xcb_get_atom_name_name_length(reply.get()));
                m_atomNames.insert(atoms[i], name);
                m_atoms.insert(name, atoms[i]);
            }
        }
        names << m_atomNames.value(atoms[i]);
    }
    scheduleProcessing();
    return names;
}

// The server's time now, learnt the way ICCCM suggests: a zero-length append to a property of
// our window, whose PropertyNotify carries the time. Other events met meanwhile wait their turn.
xcb_timestamp_t X11Pasteboard::serverTime()
{
    const xcb_atom_t property = atom("_PARLANTO_TIME");
    xcb_change_property(m_connection, XCB_PROP_MODE_APPEND, m_window, property, XCB_ATOM_INTEGER, 32, 0, nullptr);
    xcb_flush(m_connection);
    xcb_timestamp_t time = XCB_CURRENT_TIME;
    while (xcb_generic_event_t *event = xcb_wait_for_event(m_connection)) {
        const auto *notify = reinterpret_cast<const xcb_property_notify_event_t *>(event);
        if ((event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY && notify->window == m_window
            && notify->atom == property) {
            time = notify->time;
            free(event);
            break;
        }
        m_queued.emplace_back(event, &free);
    }
    scheduleProcessing();
    return time;
}

xcb_window_t X11Pasteboard::selectionOwner(xcb_atom_t selection)
{
    auto reply = adopt(xcb_get_selection_owner_reply(m_connection, xcb_get_selection_owner(m_connection, selection),
                                                     nullptr));
    scheduleProcessing();
    return reply ? reply->owner : xcb_window_t(XCB_WINDOW_NONE);
}

qint64 X11Pasteboard::changeCount()
{
    if (!m_connection)
        return 0;
    // The round trip makes sure every owner change before this moment has arrived.
    selectionOwner(atom("CLIPBOARD"));
    processEvents();
    return m_changeCount;
}

// ---- owning a selection -------------------------------------------------------------------------

bool X11Pasteboard::own(xcb_atom_t selection, const PasteboardItem &entries, bool reportTaken)
{
    if (!m_connection)
        return false;
    Ownership ownership;
    for (const PasteboardEntry &entry : entries) {
        const QByteArray name = entry.type.toUtf8();
        if (name.isEmpty() || isMetaTarget(name))
            continue;
        const xcb_atom_t target = atom(name);
        const xcb_atom_t type = atom(entry.wireType.isEmpty() ? name : entry.wireType);
        if (target == XCB_ATOM_NONE || type == XCB_ATOM_NONE)
            continue;
        auto same = std::find_if(ownership.offered.begin(), ownership.offered.end(),
                                 [&](const Offered &o) { return o.target == target; });
        Offered offered{target, type, entry, reportTaken && name != secretHintTarget};
        if (same != ownership.offered.end())
            *same = offered;
        else
            ownership.offered.push_back(offered);
    }
    ownership.time = serverTime();
    xcb_set_selection_owner(m_connection, m_window, selection, ownership.time);
    if (selectionOwner(selection) != m_window) {
        logLine(tag, QStringLiteral("could not take the selection"));
        return false;
    }
    m_owned[selection] = std::move(ownership);
    return true;
}

void X11Pasteboard::clear()
{
    own(atom("CLIPBOARD"), {}, false);
}

bool X11Pasteboard::write(const QList<PasteboardItem> &items)
{
    // An X11 selection has one item.
    return own(atom("CLIPBOARD"), items.isEmpty() ? PasteboardItem{} : items.first(), false);
}

bool X11Pasteboard::writeString(const QString &text, bool transient)
{
    const QByteArray utf8 = text.toUtf8();
    PasteboardItem entries{
        {QStringLiteral("UTF8_STRING"), utf8, {}, 8},
        {QStringLiteral("text/plain;charset=utf-8"), utf8, {}, 8},
        {QStringLiteral("TEXT"), utf8, QByteArrayLiteral("UTF8_STRING"), 8},
        {QStringLiteral("text/plain"), utf8, {}, 8},
    };
    // STRING is Latin-1: offered only when the text fits in it.
    bool latin1 = true;
    for (const QChar c : text)
        latin1 = latin1 && c.unicode() < 0x100;
    if (latin1)
        entries.append({QStringLiteral("STRING"), text.toLatin1(), {}, 8});
    // Clipboard managers leave out of their history what is marked like a password.
    if (transient)
        entries.append({QString::fromLatin1(secretHintTarget), QByteArrayLiteral("secret"), {}, 8});
    return own(atom("CLIPBOARD"), entries, true);
}

// ---- reading a selection ------------------------------------------------------------------------

xcb_atom_t X11Pasteboard::takeProperty()
{
    if (!m_freeProperties.empty()) {
        const xcb_atom_t property = m_freeProperties.back();
        m_freeProperties.pop_back();
        return property;
    }
    return atom("_PARLANTO_SELECTION_" + QByteArray::number(m_propertiesMade++));
}

QCoro::Task<std::optional<X11Pasteboard::Received>> X11Pasteboard::convert(xcb_atom_t selection, xcb_atom_t target,
                                                                             Deadline deadline, qsizetype limit)
{
    if (!m_connection || target == XCB_ATOM_NONE)
        co_return std::nullopt;
    const xcb_atom_t property = takeProperty();
    auto conversion = std::make_shared<Conversion>();
    conversion->selection = selection;
    conversion->target = target;
    conversion->limit = limit;
    m_conversions[property] = conversion;
    xcb_convert_selection(m_connection, m_window, selection, target, property, XCB_CURRENT_TIME);
    xcb_flush(m_connection);

    while (!conversion->done) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left <= 0ms)
            break;
        co_await AwaitSignal::wait(this, &X11Pasteboard::conversionProgress, left);
    }
    m_conversions.erase(property);
    if (!conversion->done) {
        // A late answer may still land in this property: it is never used again.
        xcb_delete_property(m_connection, m_window, property);
        xcb_flush(m_connection);
        co_return std::nullopt;
    }
    // An incremental transfer given up half way may still send chunks into its property.
    if (conversion->ok || !conversion->incremental)
        m_freeProperties.push_back(property);
    if (!conversion->ok)
        co_return std::nullopt;
    co_return conversion->received;
}

X11Pasteboard::Received X11Pasteboard::readProperty(xcb_atom_t property, qsizetype limit, bool *tooLarge)
{
    Received received;
    *tooLarge = false;
    const uint32_t words = static_cast<uint32_t>(std::min<qsizetype>(limit / 4 + 1, 0x3fffffff));
    auto reply = adopt(xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 1, m_window, property, XCB_GET_PROPERTY_TYPE_ANY, 0, words),
        nullptr));
    scheduleProcessing();
    if (!reply)
        return received;
    if (reply->bytes_after > 0) {
        // Not all of it was read, so it was not deleted either.
        xcb_delete_property(m_connection, m_window, property);
        *tooLarge = true;
        return received;
    }
    received.type = reply->type;
    received.format = reply->format ? reply->format : 8;
    // The value's length is counted in bytes, whatever the unit size.
    received.bytes = QByteArray(static_cast<const char *>(xcb_get_property_value(reply.get())),
                                xcb_get_property_value_length(reply.get()));
    if (received.bytes.size() > limit)
        *tooLarge = true;
    return received;
}

void X11Pasteboard::handleSelectionNotify(const xcb_selection_notify_event_t *notify)
{
    if (notify->requestor != m_window)
        return;
    std::shared_ptr<Conversion> conversion;
    xcb_atom_t property = notify->property;
    if (property != XCB_ATOM_NONE) {
        if (auto found = m_conversions.find(property); found != m_conversions.end())
            conversion = found->second;
    } else {
        for (auto &[p, c] : m_conversions) {
            if (!c->notified && c->selection == notify->selection && c->target == notify->target) {
                conversion = c;
                break;
            }
        }
    }
    if (!conversion || conversion->notified) {
        if (property != XCB_ATOM_NONE)
            xcb_delete_property(m_connection, m_window, property);   // a late answer to a request given up
        return;
    }
    conversion->notified = true;
    if (property == XCB_ATOM_NONE) {
        conversion->done = true;
    } else {
        bool tooLarge = false;
        Received received = readProperty(property, conversion->limit, &tooLarge);
        if (received.type == atom("INCR")) {
            conversion->incremental = true;   // the chunks follow as the property is deleted
        } else {
            conversion->done = true;
            conversion->ok = !tooLarge && received.type != XCB_ATOM_NONE;
            conversion->received = std::move(received);
        }
    }
    if (conversion->done)
        QMetaObject::invokeMethod(this, &X11Pasteboard::conversionProgress, Qt::QueuedConnection);
}

void X11Pasteboard::handlePropertyNotify(const xcb_property_notify_event_t *notify)
{
    if (notify->window == m_window) {
        if (notify->state != XCB_PROPERTY_NEW_VALUE)
            return;
        auto found = m_conversions.find(notify->atom);
        if (found == m_conversions.end() || !found->second->incremental || found->second->done)
            return;
        Conversion &conversion = *found->second;
        bool tooLarge = false;
        Received chunk = readProperty(notify->atom, conversion.limit - conversion.received.bytes.size(), &tooLarge);
        if (tooLarge) {
            conversion.done = true;
        } else if (chunk.bytes.isEmpty()) {
            conversion.done = true;
            conversion.ok = true;
        } else {
            conversion.received.type = chunk.type;
            conversion.received.format = chunk.format;
            conversion.received.bytes += chunk.bytes;
        }
        if (conversion.done)
            QMetaObject::invokeMethod(this, &X11Pasteboard::conversionProgress, Qt::QueuedConnection);
        return;
    }
    if (notify->state != XCB_PROPERTY_DELETE)
        return;
    for (Outgoing &transfer : m_outgoing) {
        if (transfer.requestor == notify->window && transfer.property == notify->atom && !transfer.finished) {
            sendNextChunk(transfer);
            break;
        }
    }
    std::erase_if(m_outgoing, [](const Outgoing &t) { return t.finished || t.idle.elapsed() > abandonedTransferMs; });
}

PasteboardText X11Pasteboard::ownedText(xcb_atom_t selection) const
{
    PasteboardText result;
    const auto found = m_owned.find(selection);
    if (found == m_owned.end())
        return result;
    for (const Offered &offered : found->second.offered) {
        if (offered.entry.type.toUtf8() == secretHintTarget)
            result.concealed = offered.entry.bytes.trimmed() == "secret";
    }
    for (const char *name : {"UTF8_STRING", "text/plain;charset=utf-8", "STRING", "text/plain"}) {
        for (const Offered &offered : found->second.offered) {
            if (offered.entry.type == QLatin1String(name)) {
                result.text = decodeText(offered.entry.bytes, name);
                return result;
            }
        }
    }
    return result;
}

QCoro::Task<PasteboardText> X11Pasteboard::readTextOf(xcb_atom_t selection)
{
    PasteboardText result;
    if (!m_connection)
        co_return result;
    const xcb_window_t owner = selectionOwner(selection);
    if (owner == XCB_WINDOW_NONE)
        co_return result;
    if (owner == m_window)
        co_return ownedText(selection);

    const Deadline deadline = std::chrono::steady_clock::now() + readTimeBound;
    QList<QByteArray> targets;
    if (auto list = co_await convert(selection, atom("TARGETS"), deadline, 64 * 1024); list && list->format == 32) {
        QList<xcb_atom_t> atoms;
        for (qsizetype i = 0; i + 4 <= list->bytes.size(); i += 4) {
            xcb_atom_t a;
            std::memcpy(&a, list->bytes.constData() + i, 4);
            atoms << a;
        }
        targets = atomNames(atoms);
    }
    if (targets.contains(secretHintTarget)) {
        const auto hint = co_await convert(selection, atom(secretHintTarget), deadline, 1024);
        result.concealed = hint && hint->bytes.trimmed() == "secret";
    }
    // Owners that do not list their targets are asked for the usual text targets in turn.
    QList<QByteArray> wanted{"UTF8_STRING", "text/plain;charset=utf-8", "STRING", "text/plain"};
    if (!targets.isEmpty())
        wanted.removeIf([&](const QByteArray &name) { return !targets.contains(name); });
    for (const QByteArray &name : std::as_const(wanted)) {
        const auto text = co_await convert(selection, atom(name), deadline, snapshotSizeBound);
        if (!text)
            continue;
        const QByteArray type = m_atomNames.value(text->type, name);
        result.text = decodeText(text->bytes, type == "STRING" ? type : name);
        if (result.text)
            break;
    }
    co_return result;
}

QCoro::Task<PasteboardText> X11Pasteboard::readText()
{
    co_return co_await readTextOf(atom("CLIPBOARD"));
}

QCoro::Task<PasteboardText> X11Pasteboard::readActiveSelection()
{
    if (!m_connection)
        co_return PasteboardText{};
    // PRIMARY counts only when the active window's application owns it: a selection left behind
    // in another window is not what the user is looking at.
    const xcb_window_t owner = selectionOwner(XCB_ATOM_PRIMARY);
    if (owner == XCB_WINDOW_NONE)
        co_return PasteboardText{};
    auto active = adopt(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, m_root, atom("_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW, 0, 1), nullptr));
    scheduleProcessing();
    if (active && xcb_get_property_value_length(active.get()) == 4) {
        xcb_window_t activeWindow;
        std::memcpy(&activeWindow, xcb_get_property_value(active.get()), 4);
        if (activeWindow != XCB_WINDOW_NONE && (activeWindow & ~m_resourceMask) != (owner & ~m_resourceMask))
            co_return PasteboardText{};
    }
    co_return co_await readTextOf(XCB_ATOM_PRIMARY);
}

QCoro::Task<PasteboardSnapshot> X11Pasteboard::snapshot()
{
    PasteboardSnapshot snapshot;
    if (!m_connection)
        co_return snapshot;
    const xcb_atom_t clipboard = atom("CLIPBOARD");
    snapshot.changeCount = changeCount();
    const xcb_window_t owner = selectionOwner(clipboard);
    if (owner == XCB_WINDOW_NONE)
        co_return snapshot;
    if (owner == m_window) {
        PasteboardItem item;
        if (const auto found = m_owned.find(clipboard); found != m_owned.end())
            for (const Offered &offered : found->second.offered)
                item << offered.entry;
        if (!item.isEmpty())
            snapshot.items << item;
        co_return snapshot;
    }

    const Deadline deadline = std::chrono::steady_clock::now() + snapshotTimeBound;
    const auto list = co_await convert(clipboard, atom("TARGETS"), deadline, 64 * 1024);
    if (!list || list->format != 32) {
        logLine(tag, QStringLiteral("the clipboard's owner did not list its formats in time"));
        co_return snapshot;
    }
    QList<xcb_atom_t> atoms;
    for (qsizetype i = 0; i + 4 <= list->bytes.size(); i += 4) {
        xcb_atom_t a;
        std::memcpy(&a, list->bytes.constData() + i, 4);
        if (a != XCB_ATOM_NONE && !atoms.contains(a))
            atoms << a;
    }
    const QList<QByteArray> names = atomNames(atoms);

    PasteboardItem item;
    qsizetype budget = snapshotSizeBound;
    QStringList leftOut;
    for (qsizetype i = 0; i < atoms.size(); ++i) {
        const QByteArray &name = names[i];
        if (name.isEmpty() || isMetaTarget(name))
            continue;
        const auto data = co_await convert(clipboard, atoms[i], deadline, budget);
        if (!data) {
            leftOut << QString::fromUtf8(name);
            continue;
        }
        budget -= data->bytes.size();
        PasteboardEntry entry;
        entry.type = QString::fromUtf8(name);
        entry.bytes = data->bytes;
        const QByteArray typeName = atomNames({data->type}).value(0);
        if (typeName != name)
            entry.wireType = typeName;
        entry.wireFormat = data->format;
        item << entry;
    }
    if (!leftOut.isEmpty())
        logLine(tag, QStringLiteral("snapshot left out formats not handed over in time or too large: %1")
                         .arg(leftOut.join(QLatin1String(", "))));
    if (!item.isEmpty())
        snapshot.items << item;
    co_return snapshot;
}

// ---- answering requests -------------------------------------------------------------------------

void X11Pasteboard::sendData(xcb_window_t requestor, xcb_atom_t property, xcb_atom_t type, quint8 format,
                             const QByteArray &data)
{
    const int unit = format / 8;
    if (data.size() <= incrementSize) {
        xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, requestor, property, type, format,
                            static_cast<uint32_t>(data.size() / unit), data.constData());
        return;
    }
    // The requestor deletes the INCR property, then each chunk; the empty chunk ends it.
    if (requestor != m_window) {
        const uint32_t mask[] = {XCB_EVENT_MASK_PROPERTY_CHANGE};
        xcb_change_window_attributes(m_connection, requestor, XCB_CW_EVENT_MASK, mask);
    }
    const uint32_t size = static_cast<uint32_t>(data.size());
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, requestor, property, atom("INCR"), 32, 1, &size);
    Outgoing transfer;
    transfer.requestor = requestor;
    transfer.property = property;
    transfer.type = type;
    transfer.format = format;
    transfer.data = data;
    transfer.idle.start();
    std::erase_if(m_outgoing, [&](const Outgoing &t) { return t.requestor == requestor && t.property == property; });
    m_outgoing.push_back(std::move(transfer));
}

void X11Pasteboard::sendNextChunk(Outgoing &transfer)
{
    const int unit = transfer.format / 8;
    const qsizetype length = std::min(incrementSize, transfer.data.size() - transfer.offset);
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, transfer.requestor, transfer.property, transfer.type,
                        transfer.format, static_cast<uint32_t>(length / unit),
                        transfer.data.constData() + transfer.offset);
    transfer.offset += length;
    transfer.finished = length == 0;
    transfer.idle.restart();
    xcb_flush(m_connection);
}

bool X11Pasteboard::answer(const Ownership &ownership, xcb_window_t requestor, xcb_atom_t target,
                           xcb_atom_t property, bool *taken)
{
    if (target == atom("TARGETS")) {
        std::vector<xcb_atom_t> targets{atom("TARGETS"), atom("TIMESTAMP"), atom("MULTIPLE")};
        for (const Offered &offered : ownership.offered)
            targets.push_back(offered.target);
        xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_ATOM, 32,
                            static_cast<uint32_t>(targets.size()), targets.data());
        return true;
    }
    if (target == atom("TIMESTAMP")) {
        xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, requestor, property, XCB_ATOM_INTEGER, 32, 1,
                            &ownership.time);
        return true;
    }
    for (const Offered &offered : ownership.offered) {
        if (offered.target != target)
            continue;
        sendData(requestor, property, offered.type, offered.entry.wireFormat, offered.entry.bytes);
        *taken = *taken || offered.countsAsTaken;
        return true;
    }
    return false;
}

bool X11Pasteboard::answerMultiple(const Ownership &ownership, xcb_window_t requestor, xcb_atom_t property,
                                   bool *taken)
{
    auto reply = adopt(xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, requestor, property, XCB_GET_PROPERTY_TYPE_ANY, 0, 4096),
        nullptr));
    if (!reply || reply->format != 32)
        return false;
    const int count = xcb_get_property_value_length(reply.get()) / 4;
    std::vector<xcb_atom_t> pairs(static_cast<size_t>(count));
    std::memcpy(pairs.data(), xcb_get_property_value(reply.get()), pairs.size() * 4);
    for (size_t i = 0; i + 1 < pairs.size(); i += 2) {
        if (pairs[i] == atom("MULTIPLE") || !answer(ownership, requestor, pairs[i], pairs[i + 1], taken))
            pairs[i + 1] = XCB_ATOM_NONE;
    }
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, requestor, property, reply->type, 32,
                        static_cast<uint32_t>(pairs.size()), pairs.data());
    return true;
}

void X11Pasteboard::handleSelectionRequest(const xcb_selection_request_event_t *request)
{
    xcb_selection_notify_event_t notify{};
    notify.response_type = XCB_SELECTION_NOTIFY;
    notify.time = request->time;
    notify.requestor = request->requestor;
    notify.selection = request->selection;
    notify.target = request->target;
    notify.property = XCB_ATOM_NONE;

    bool taken = false;
    const auto owned = m_owned.find(request->selection);
    const bool current = owned != m_owned.end()
        && (request->time == XCB_CURRENT_TIME || request->time >= owned->second.time);
    if (current) {
        // Obsolete requestors name no property: the target's name serves as one.
        const xcb_atom_t property = request->property != XCB_ATOM_NONE ? request->property : request->target;
        const bool ok = request->target == atom("MULTIPLE")
            ? request->property != XCB_ATOM_NONE && answerMultiple(owned->second, request->requestor, property, &taken)
            : answer(owned->second, request->requestor, request->target, property, &taken);
        if (ok)
            notify.property = property;
    }
    xcb_send_event(m_connection, 0, request->requestor, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char *>(&notify));
    xcb_flush(m_connection);
    if (taken)
        QMetaObject::invokeMethod(this, &Pasteboard::pastedTextTaken, Qt::QueuedConnection);
}

// ---- event loop ---------------------------------------------------------------------------------

void X11Pasteboard::scheduleProcessing()
{
    // Replies read from the socket may have brought events with them, which the socket notifier
    // will not announce again.
    if (m_processingScheduled || !m_connection)
        return;
    m_processingScheduled = true;
    QMetaObject::invokeMethod(this, &X11Pasteboard::processEvents, Qt::QueuedConnection);
}

void X11Pasteboard::processEvents()
{
    m_processingScheduled = false;
    if (!m_connection)
        return;
    for (;;) {
        std::unique_ptr<xcb_generic_event_t, decltype(&free)> event(nullptr, &free);
        if (!m_queued.empty()) {
            event = std::move(m_queued.front());
            m_queued.pop_front();
        } else {
            event.reset(xcb_poll_for_event(m_connection));
        }
        if (!event)
            break;
        handleEvent(event.get());
    }
    if (xcb_connection_has_error(m_connection) && m_notifier->isEnabled()) {
        logLine(tag, QStringLiteral("lost the connection to the display"));
        m_notifier->setEnabled(false);
    }
}

void X11Pasteboard::handleEvent(const xcb_generic_event_t *event)
{
    const quint8 type = event->response_type & 0x7f;
    switch (type) {
    case XCB_SELECTION_REQUEST:
        handleSelectionRequest(reinterpret_cast<const xcb_selection_request_event_t *>(event));
        return;
    case XCB_SELECTION_NOTIFY:
        handleSelectionNotify(reinterpret_cast<const xcb_selection_notify_event_t *>(event));
        return;
    case XCB_PROPERTY_NOTIFY:
        handlePropertyNotify(reinterpret_cast<const xcb_property_notify_event_t *>(event));
        return;
    case XCB_SELECTION_CLEAR: {
        const auto *clear = reinterpret_cast<const xcb_selection_clear_event_t *>(event);
        const auto owned = m_owned.find(clear->selection);
        if (owned != m_owned.end() && clear->time >= owned->second.time)
            m_owned.erase(owned);
        return;
    }
    default:
        break;
    }
    if (m_xfixesEvent && type == m_xfixesEvent + XCB_XFIXES_SELECTION_NOTIFY) {
        ++m_changeCount;
        QMetaObject::invokeMethod(this, &Pasteboard::changed, Qt::QueuedConnection);
    }
}
