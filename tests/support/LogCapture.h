#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryFile>

// The log lines this process writes to standard output while the capture lives. When it ends
// they are passed on to the real standard output, so a failing test still shows them.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // Everything written so far (the capture goes on).
    QString text();
    QStringList lines() { return text().split(QLatin1Char('\n'), Qt::SkipEmptyParts); }
    int count(const QString &line) { return int(text().count(line)); }
    // Stops capturing; everything that was written.
    QString finish();

private:
    QTemporaryFile m_file;
    int m_saved = -1;
    QString m_text;
};
