// Trust on X11: the accessibility bus (AT-SPI 2) must run and be switched on, so that
// applications expose their text, and the X server must offer XTest (synthesised keys) and
// XInput 2 (watching keys).
#include "system/PermissionChecker.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QProcess>
#include <QStandardPaths>
#include <QUuid>
#include <cstdlib>
#include <optional>
#include <xcb/xcb.h>
#include <xcb/xinput.h>
#include <xcb/xtest.h>

namespace {

const QString busService = QStringLiteral("org.a11y.Bus");
const QString busPath = QStringLiteral("/org/a11y/bus");
const QString statusInterface = QStringLiteral("org.a11y.Status");
constexpr int callTimeoutMs = 1000;

class X11PermissionBackend : public PermissionBackend
{
public:
    QList<PermissionRequirement> missingRequirements() override
    {
        QList<PermissionRequirement> missing;
        if (!busReachable())
            missing << PermissionRequirement::AccessibilityBus;
        else if (!busEnabled().value_or(false))
            missing << PermissionRequirement::AccessibilityEnabled;
        const Extensions extensions = serverExtensions();
        if (!extensions.xtest)
            missing << PermissionRequirement::KeySynthesis;
        if (!extensions.xinput2)
            missing << PermissionRequirement::KeyWatching;
        return missing;
    }

    void requestWithPrompt() override
    {
        // Only a bus that runs can be switched on; applications started from now on expose
        // their text.
        if (!busReachable() || busEnabled().value_or(true))
            return;
        QDBusMessage set = QDBusMessage::createMethodCall(busService, busPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                                                          QStringLiteral("Set"));
        set << statusInterface << QStringLiteral("IsEnabled") << QVariant::fromValue(QDBusVariant(true));
        QDBusConnection::sessionBus().call(set, QDBus::Block, callTimeoutMs);
    }

    void openAccessibilitySettings() override
    {
        // No desktop-neutral settings page exists; GNOME's is the one worth opening.
        const QString tool = QStandardPaths::findExecutable(QStringLiteral("gnome-control-center"));
        if (!tool.isEmpty())
            QProcess::startDetached(tool, {QStringLiteral("universal-access")});
    }

private:
    struct Extensions {
        bool xtest = false;
        bool xinput2 = false;
    };

    // Whether the launcher owns its name and the bus it announces accepts a connection. The
    // launcher's name is asked about first: a call to an unowned name would start a launcher.
    static bool busReachable()
    {
        QDBusConnection session = QDBusConnection::sessionBus();
        if (!session.isConnected() || !session.interface()->isServiceRegistered(busService).value())
            return false;
        const QDBusMessage reply = session.call(
            QDBusMessage::createMethodCall(busService, busPath, busService, QStringLiteral("GetAddress")), QDBus::Block,
            callTimeoutMs);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return false;
        const QString address = reply.arguments().constFirst().toString();
        if (address.isEmpty())
            return false;
        const QString name = QStringLiteral("parlanto-a11y-probe-") + QUuid::createUuid().toString(QUuid::Id128);
        const bool connected = QDBusConnection::connectToBus(address, name).isConnected();
        QDBusConnection::disconnectFromBus(name);
        return connected;
    }

    static std::optional<bool> busEnabled()
    {
        QDBusMessage get = QDBusMessage::createMethodCall(busService, busPath, QStringLiteral("org.freedesktop.DBus.Properties"),
                                                          QStringLiteral("Get"));
        get << statusInterface << QStringLiteral("IsEnabled");
        const QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::Block, callTimeoutMs);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return std::nullopt;
        return reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
    }

    // Asked once on a private connection (a server's extensions do not change while it runs,
    // and negotiating XInput's version on Qt's connection would interfere with Qt's own).
    Extensions serverExtensions()
    {
        if (m_extensions)
            return *m_extensions;
        Extensions found;
        xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
        if (xcb_connection_has_error(connection)) {
            xcb_disconnect(connection);
            return found;  // no X server now: ask again next time
        }
        const xcb_query_extension_reply_t *xtest = xcb_get_extension_data(connection, &xcb_test_id);
        found.xtest = xtest && xtest->present;
        const xcb_query_extension_reply_t *xinput = xcb_get_extension_data(connection, &xcb_input_id);
        if (xinput && xinput->present) {
            xcb_input_xi_query_version_reply_t *version = xcb_input_xi_query_version_reply(
                connection, xcb_input_xi_query_version(connection, 2, 2), nullptr);
            found.xinput2 = version && version->major_version >= 2;
            std::free(version);
        }
        xcb_disconnect(connection);
        m_extensions = found;
        return found;
    }

    std::optional<Extensions> m_extensions;
};

} // namespace

std::unique_ptr<PermissionBackend> createSystemPermissionBackend()
{
    return std::make_unique<X11PermissionBackend>();
}
