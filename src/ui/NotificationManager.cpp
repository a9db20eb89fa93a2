#include "ui/NotificationManager.h"
#include "state/Log.h"

#include <QClipboard>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QGuiApplication>
#include <QUuid>

namespace {
const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");
const QString interface = QStringLiteral("org.freedesktop.Notifications");
const QString conflictPrefix = QStringLiteral("hotkey_conflict_");
} // namespace

NotificationManager &NotificationManager::shared()
{
    static NotificationManager *instance = new NotificationManager;
    return *instance;
}

NotificationManager::NotificationManager(QObject *parent)
    : QObject(parent)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect(service, path, interface, QStringLiteral("ActionInvoked"), this, SLOT(onActionInvoked(uint, QString)));
    bus.connect(service, path, interface, QStringLiteral("NotificationClosed"), this,
                SLOT(onNotificationClosed(uint, uint)));
}

bool NotificationManager::isAuthorised() const
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(service);
}

QString NotificationManager::post(const QString &title, const QString &body, const UserInfo &userInfo,
                                  const QString &identifier)
{
    const QString fullIdentifier = identifier + QLatin1Char('-') + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    if (!isAuthorised()) {
        logLine("Parlanto", title + QStringLiteral(": ") + body);
        return fullIdentifier;
    }
    const bool replaceable = identifier.startsWith(conflictPrefix);
    const uint replaces = replaceable ? m_replaceable.value(identifier, 0) : 0;
    QStringList actions;
    if (userInfo.value(QStringLiteral("action")) == QLatin1String("copy"))
        actions << QStringLiteral("default") << qtTrId("notification.action.copy");
    const QVariantMap hints{
        {QStringLiteral("desktop-entry"), QStringLiteral("parlanto")},
        {QStringLiteral("x-parlanto-identifier"), fullIdentifier},
        {QStringLiteral("suppress-sound"), true},
    };
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("Notify"));
    call << QStringLiteral("Parlanto") << replaces << QStringLiteral("parlanto") << title << body << actions
         << hints << -1;
    const QDBusReply<uint> reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 2000);
    if (!reply.isValid()) {
        logLine("NotificationManager", QStringLiteral("Failed to show notification: ") + reply.error().message());
        logLine("Parlanto", title + QStringLiteral(": ") + body);
        return fullIdentifier;
    }
    if (!userInfo.isEmpty())
        m_userInfo.insert(reply.value(), userInfo);
    if (replaceable)
        m_replaceable.insert(identifier, reply.value());
    return fullIdentifier;
}

void NotificationManager::notifyTranslationReady(const QString &text)
{
    post(QStringLiteral("Parlanto"), qtTrId("notification.translation_ready"),
         {{QStringLiteral("action"), QStringLiteral("copy")}, {QStringLiteral("text"), text}},
         QStringLiteral("translation_ready"));
}

void NotificationManager::notifyQuotaExceeded()
{
    post(qtTrId("notification.quota_exceeded.title"), qtTrId("notification.quota_exceeded.body_wait"), {},
         QStringLiteral("quota_exceeded"));
}

void NotificationManager::onActionInvoked(uint id, const QString &)
{
    const UserInfo info = m_userInfo.value(id);
    if (info.value(QStringLiteral("action")) != QLatin1String("copy") || !info.contains(QStringLiteral("text")))
        return;
    const QString text = info.value(QStringLiteral("text"));
    QGuiApplication::clipboard()->setText(text);
    Q_EMIT textCopied(text);
}

void NotificationManager::onNotificationClosed(uint id, uint)
{
    m_userInfo.remove(id);
}
