#include "support/TrayProgram.h"
#include "support/TestSupport.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QTest>

TrayProgram::TrayProgram(const QString &configHome, const QStringList &environment, const QStringList &arguments)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), configHome);
    for (const QString &assignment : environment)
        env.insert(assignment.section(QLatin1Char('='), 0, 0), assignment.section(QLatin1Char('='), 1));
    m_process.setProcessEnvironment(env);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(parlantoBinary(), arguments);
    m_process.waitForStarted(5000);
}

TrayProgram::~TrayProgram()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000))
        m_process.kill();
    m_process.waitForFinished(2000);
}

void TrayProgram::readLines()
{
    while (m_process.canReadLine())
        m_lines << QString::fromUtf8(m_process.readLine()).trimmed();
}

QString TrayProgram::waitForLine(const QString &prefix, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        readLines();
        for (qsizetype i = m_matched; i < m_lines.size(); ++i) {
            if (m_lines.at(i).startsWith(prefix)) {
                m_matched = i + 1;
                return m_lines.at(i);
            }
        }
        if (deadline.hasExpired() || m_process.state() == QProcess::NotRunning)
            return {};
        QTest::qWait(5);
    }
}

QStringList TrayProgram::lines()
{
    readLines();
    return m_lines;
}

bool writeSettingsFile(const QString &configHome, const QByteArray &json)
{
    QDir().mkpath(configHome + QStringLiteral("/parlanto"));
    QFile file(configHome + QStringLiteral("/parlanto/settings.json"));
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(json) == json.size();
}
