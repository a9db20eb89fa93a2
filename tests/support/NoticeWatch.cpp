#include "support/NoticeWatch.h"
#include "support/ClipboardFormats.h"

#include <QTest>

NoticeWatch::NoticeWatch()
{
    runToolRaw(QStringLiteral("dunstctl"), {QStringLiteral("close-all")});
    m_monitor.start(QStringLiteral("dbus-monitor"),
                    {QStringLiteral("--session"), QStringLiteral("interface='org.freedesktop.Notifications',member='Notify'")});
    m_monitor.waitForStarted();
    QTest::qWait(300); // until the match rule is in place
}

NoticeWatch::~NoticeWatch()
{
    m_monitor.terminate();
    m_monitor.waitForFinished();
    runToolRaw(QStringLiteral("dunstctl"), {QStringLiteral("close-all")});
}

QString NoticeWatch::calls()
{
    m_seen += QString::fromUtf8(m_monitor.readAllStandardOutput());
    return m_seen;
}
