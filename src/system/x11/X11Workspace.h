#pragma once

#include "system/Workspace.h"

#include <QAbstractNativeEventFilter>
#include <xcb/xcb.h>

// The active application from the window manager's _NET_ACTIVE_WINDOW (EWMH), watched through
// property changes on the root window, on Qt's own xcb connection.
class X11Workspace : public Workspace, private QAbstractNativeEventFilter
{
    Q_OBJECT
public:
    explicit X11Workspace(QObject *parent = nullptr);
    ~X11Workspace() override;

    QString frontmostApplicationId() const override;
    void activateSelf() override;

    // The identifier of the application owning a top-level window (empty when unknown).
    QString applicationIdOfWindow(xcb_window_t window) const;

private:
    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result) override;
    xcb_atom_t atom(const char *name) const;
    QByteArray property(xcb_window_t window, xcb_atom_t property, xcb_atom_t type) const;
    xcb_window_t activeWindow() const;
    bool isOwnWindow(xcb_window_t window) const;

    xcb_connection_t *m_connection = nullptr;
    xcb_window_t m_root = 0;
    xcb_atom_t m_activeWindowAtom = XCB_ATOM_NONE;
    xcb_atom_t m_pidAtom = XCB_ATOM_NONE;
    xcb_atom_t m_desktopIdAtoms[2] = {XCB_ATOM_NONE, XCB_ATOM_NONE};  // GTK's, KDE's
    QString m_lastId;
};
