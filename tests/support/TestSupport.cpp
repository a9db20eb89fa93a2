#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QDir>

QString parlantoBinary()
{
    return qEnvironmentVariable("PARLANTO_BINARY");
}

QString sourceDir()
{
    return qEnvironmentVariable("PARLANTO_SOURCE_DIR");
}

QString screenshotDir()
{
    QString dir = qEnvironmentVariable("PARLANTO_SCREENSHOT_DIR");
    if (dir.isEmpty())
        dir = QCoreApplication::applicationDirPath() + QStringLiteral("/../screenshots");
    QDir().mkpath(dir);
    return QDir(dir).absolutePath();
}
