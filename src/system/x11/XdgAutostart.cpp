// Launch at login on Linux: an entry in the user's XDG autostart folder
// ($XDG_CONFIG_HOME/autostart, ~/.config/autostart when unset), which every
// freedesktop-compliant session starts at login.
#include "system/LoginItem.h"

#include "state/Log.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTextStream>

namespace {

// The Exec key's quoting rules: a path with reserved characters is put in double quotes, inside
// which ", `, $ and \ are escaped with a backslash.
QString quotedExecArgument(const QString &argument)
{
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    bool needsQuotes = false;
    for (QChar c : argument)
        needsQuotes = needsQuotes || reserved.contains(c);
    if (!needsQuotes)
        return argument;
    QString quoted;
    for (QChar c : argument) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') || c == QLatin1Char('\\'))
            quoted += QLatin1Char('\\');
        quoted += c;
    }
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

QByteArray autostartEntry()
{
    const QString program = QCoreApplication::applicationFilePath();
    QString entry;
    QTextStream out(&entry);
    out << "[Desktop Entry]\n"
        << "Type=Application\n"
        << "Name=Parlanto\n"
        << "Comment=Translate the selected text or the text you type, in any application\n"
        << "Exec=" << quotedExecArgument(program) << "\n"
        << "Icon=parlanto\n"
        << "Terminal=false\n"
        << "X-GNOME-Autostart-enabled=true\n";
    out.flush();
    return entry.toUtf8();
}

} // namespace

LoginItem &LoginItem::shared()
{
    static LoginItem item;
    return item;
}

QString LoginItem::autostartFilePath()
{
    QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (configHome.isEmpty() || !QDir::isAbsolutePath(configHome))
        configHome = QDir::homePath() + QStringLiteral("/.config");
    return configHome + QStringLiteral("/autostart/parlanto.desktop");
}

bool LoginItem::isEnabled() const
{
    QFile file(autostartFilePath());
    if (!file.open(QIODevice::ReadOnly))
        return false;
    // An entry the user switched off in a session's settings stays in place with one of these.
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false")
            return false;
    }
    return true;
}

bool LoginItem::setEnabled(bool enabled)
{
    const QString path = autostartFilePath();
    if (!enabled) {
        if (QFileInfo::exists(path) && !QFile::remove(path)) {
            logLine("LoginItem", QStringLiteral("cannot remove %1").arg(path));
            return false;
        }
        logLine("LoginItem", QStringLiteral("launch at login off"));
        return true;
    }
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        logLine("LoginItem", QStringLiteral("cannot create %1").arg(QFileInfo(path).absolutePath()));
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(autostartEntry()) < 0 || !file.commit()) {
        logLine("LoginItem", QStringLiteral("cannot write %1: %2").arg(path, file.errorString()));
        return false;
    }
    logLine("LoginItem", QStringLiteral("launch at login on: ") + path);
    return true;
}
