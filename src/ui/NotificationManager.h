#pragma once

#include <QHash>
#include <QMap>
#include <QObject>
#include <QString>

// The one place that shows user notifications: results and errors of translations, hotkey
// conflicts, and the translation-ready notice whose click copies the translation again.
// On Linux through the freedesktop notification service on the session bus; when no server
// answers, the notice is written to standard output as "[Parlanto] <title>: <body>".
class NotificationManager : public QObject
{
    Q_OBJECT
public:
    using UserInfo = QMap<QString, QString>;

    static NotificationManager &shared();
    explicit NotificationManager(QObject *parent = nullptr);

    // Whether a notification server answers (the user can be shown notices).
    bool isAuthorised() const;

    // Shows a notice. The identifier names its kind; "-" and a fresh UUID are appended, so equal
    // notices never replace one another, except a repeated hotkey conflict of one binding.
    // Returns the full identifier.
    QString post(const QString &title, const QString &body, const UserInfo &userInfo, const QString &identifier);
    void notifyTranslationReady(const QString &text);
    void notifyQuotaExceeded();

Q_SIGNALS:
    // A notice with the "copy" action was clicked and its text put on the clipboard.
    void textCopied(const QString &text);

private Q_SLOTS:
    void onActionInvoked(uint id, const QString &actionKey);
    void onNotificationClosed(uint id, uint reason);

private:
    QHash<uint, UserInfo> m_userInfo;      // by the server's notification id
    QHash<QString, uint> m_replaceable;    // conflict notices: identifier -> server id
};
