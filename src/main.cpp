#include "app/ApplicationController.h"
#include "app/CommandLine.h"
#include "app/PlatformFactory.h"
#include "ui/Localisation.h"

#include "BuildConfig.h"

#include <QApplication>
#include <QCoreApplication>

namespace {
void describeApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("Parlanto"));
    QCoreApplication::setOrganizationName(QStringLiteral("Parlanto"));
    QCoreApplication::setApplicationVersion(QString::fromLatin1(BuildConfig::version));
}
} // namespace

int main(int argc, char *argv[])
{
    // Qt's own event dispatcher: GLib's default context belongs to the accessibility reader.
    qputenv("QT_NO_GLIB", "1");

    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);

    if (arguments.size() > 1 && !arguments.at(1).contains(QLatin1Char(':'))) {
        QCoreApplication app(argc, argv);
        describeApplication();
        installSystemBackends();
        return runCommandLine(app.arguments());
    }

    QApplication app(argc, argv);
    describeApplication();
    QApplication::setQuitOnLastWindowClosed(false);
    installTranslations();
    installSystemBackends();
    ApplicationController controller;
    if (!controller.claimSingleInstance(app.arguments()))
        return 0;
    controller.launch();
    return app.exec();
}
