#include "system/x11/X11Workspace.h"
#include "system/x11/X11Keymap.h"

#include <QGuiApplication>
#include <QWindow>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

X11Workspace::X11Workspace(QObject *parent)
    : Workspace(parent)
    , m_connection(X11Keymap::qtConnection())
    , m_root(X11Keymap::qtRootWindow())
{
    if (!m_connection || !m_root)
        return;
    m_activeWindowAtom = atom("_NET_ACTIVE_WINDOW");
    m_pidAtom = atom("_NET_WM_PID");
    m_desktopIdAtoms[0] = atom("_GTK_APPLICATION_ID");
    m_desktopIdAtoms[1] = atom("_KDE_NET_WM_DESKTOP_FILE");
    // Add property changes to whatever Qt already selects on the root window: the event mask
    // belongs to the connection, and Qt's is ours.
    xcb_get_window_attributes_reply_t *attributes =
        xcb_get_window_attributes_reply(m_connection, xcb_get_window_attributes(m_connection, m_root), nullptr);
    const uint32_t mask = (attributes ? attributes->your_event_mask : 0) | XCB_EVENT_MASK_PROPERTY_CHANGE;
    std::free(attributes);
    xcb_change_window_attributes(m_connection, m_root, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(m_connection);
    m_lastId = frontmostApplicationId();
    QCoreApplication::instance()->installNativeEventFilter(this);
}

X11Workspace::~X11Workspace()
{
    if (QCoreApplication::instance())
        QCoreApplication::instance()->removeNativeEventFilter(this);
}

xcb_atom_t X11Workspace::atom(const char *name) const
{
    xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, uint16_t(std::strlen(name)), name), nullptr);
    const xcb_atom_t result = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(reply);
    return result;
}

QByteArray X11Workspace::property(xcb_window_t window, xcb_atom_t property, xcb_atom_t type) const
{
    if (property == XCB_ATOM_NONE || window == 0)
        return {};
    xcb_get_property_reply_t *reply = xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, window, property, type, 0, 1024), nullptr);
    QByteArray value;
    if (reply && reply->type != XCB_ATOM_NONE)
        value = QByteArray(static_cast<const char *>(xcb_get_property_value(reply)), xcb_get_property_value_length(reply)) /* already in bytes */;
    std::free(reply);
    return value;
}

xcb_window_t X11Workspace::activeWindow() const
{
    const QByteArray value = property(m_root, m_activeWindowAtom, XCB_ATOM_WINDOW);
    if (value.size() < int(sizeof(xcb_window_t)))
        return 0;
    xcb_window_t window = 0;
    std::memcpy(&window, value.constData(), sizeof window);
    return window;
}

bool X11Workspace::isOwnWindow(xcb_window_t window) const
{
    for (QWindow *own : QGuiApplication::topLevelWindows()) {
        if (own->handle() && own->winId() == window)
            return true;
    }
    const QByteArray pid = property(window, m_pidAtom, XCB_ATOM_CARDINAL);
    return pid.size() == 4 && *reinterpret_cast<const quint32 *>(pid.constData()) == quint32(::getpid());
}

QString X11Workspace::applicationIdOfWindow(xcb_window_t window) const
{
    if (!m_connection || window == 0)
        return {};
    if (isOwnWindow(window))
        return ownApplicationId();
    // The desktop-file id, as GTK and KDE applications announce it.
    for (xcb_atom_t desktopId : m_desktopIdAtoms) {
        const QByteArray id = property(window, desktopId, XCB_GET_PROPERTY_TYPE_ANY);
        if (!id.isEmpty())
            return QString::fromUtf8(id).trimmed();
    }
    // WM_CLASS holds "instance\0class\0".
    const QList<QByteArray> parts = property(window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING).split('\0');
    if (parts.size() >= 2 && !parts.at(1).isEmpty())
        return QString::fromLatin1(parts.at(1)).toLower();
    if (!parts.isEmpty() && !parts.at(0).isEmpty())
        return QString::fromLatin1(parts.at(0)).toLower();
    return {};
}

QString X11Workspace::frontmostApplicationId() const
{
    if (!m_connection)
        return {};
    return applicationIdOfWindow(activeWindow());
}

void X11Workspace::activateSelf()
{
    for (QWindow *window : QGuiApplication::topLevelWindows()) {
        if (!window->isVisible() || window->type() == Qt::Popup || window->type() == Qt::ToolTip)
            continue;
        window->raise();
        window->requestActivate();
        return;
    }
}

bool X11Workspace::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    auto *event = static_cast<xcb_generic_event_t *>(message);
    if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
        return false;
    auto *notify = reinterpret_cast<xcb_property_notify_event_t *>(event);
    if (notify->window != m_root || notify->atom != m_activeWindowAtom)
        return false;
    const QString id = frontmostApplicationId();
    if (!id.isEmpty() && id != m_lastId) {
        m_lastId = id;
        Q_EMIT activeApplicationChanged(id);
    }
    return false;  // Qt watches the root window's properties too
}

std::unique_ptr<Workspace> createSystemWorkspace()
{
    return std::make_unique<X11Workspace>();
}
