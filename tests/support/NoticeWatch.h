#pragma once

#include <QProcess>
#include <QString>

// The notices posted on the session bus while it lives, as dbus-monitor prints the Notify calls.
// Closes whatever the notification server shows when it starts and when it ends.
class NoticeWatch
{
public:
    NoticeWatch();
    ~NoticeWatch();
    NoticeWatch(const NoticeWatch &) = delete;
    NoticeWatch &operator=(const NoticeWatch &) = delete;

    bool isListening() const { return m_monitor.state() == QProcess::Running; }
    // Every call seen so far.
    QString calls();
    // Whether a call carried this string argument (a title, a body, an action).
    bool sawString(const QString &text) { return calls().contains(QLatin1String("string \"") + text + QLatin1Char('"')); }
    // Whether a notice with the identifier was posted (its identifier hint starts with it).
    bool posted(const QString &identifier) { return calls().contains(QLatin1String("string \"") + identifier + QLatin1Char('-')); }
    int count() { return int(calls().count(QLatin1String("member=Notify"))); }

private:
    QProcess m_monitor;
    QString m_seen;
};
