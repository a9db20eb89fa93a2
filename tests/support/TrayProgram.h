#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

// The tray program started as a user starts it, in its own configuration folder
// (XDG_CONFIG_HOME) with extra environment assignments ("NAME=value"). Stopped (TERM, then KILL)
// when destroyed. While the test waits on it, the test's event loop keeps turning, so loopback
// servers of the test keep answering.
class TrayProgram
{
public:
    explicit TrayProgram(const QString &configHome, const QStringList &environment = {},
                         const QStringList &arguments = {});
    ~TrayProgram();

    // Waits for the next line of standard output that starts with `prefix` (lines already
    // matched by an earlier call are not looked at again); empty when none came in time.
    QString waitForLine(const QString &prefix, int timeoutMs = 10000);
    // Every line printed so far.
    QStringList lines();
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    qint64 pid() const { return m_process.processId(); }

private:
    void readLines();

    QProcess m_process;
    QStringList m_lines;
    qsizetype m_matched = 0;
};

// Writes the settings file of a configuration folder (XDG_CONFIG_HOME) with the given JSON.
bool writeSettingsFile(const QString &configHome, const QByteArray &json);
