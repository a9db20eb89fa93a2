// Trust on X11 against the session's real accessibility bus (at-spi-bus-launcher), switched off
// and on with gdbus as another client would; and, in a child process, against a session bus
// without an accessibility bus and an X server without XTest.
#include "system/PermissionChecker.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTest>
#include <cstdio>

namespace {

const QString a11yDest = QStringLiteral("org.a11y.Bus");
const QString a11yPath = QStringLiteral("/org/a11y/bus");

QString gdbus(const QStringList &arguments)
{
    QProcess process;
    process.start("gdbus", QStringList{"call", "--session"} + arguments);
    process.waitForFinished();
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

// What another client reads from, and writes to, the accessibility bus's switch.
QString readEnabled()
{
    return gdbus({"--dest", a11yDest, "--object-path", a11yPath, "--method", "org.freedesktop.DBus.Properties.Get",
                  "org.a11y.Status", "IsEnabled"});
}
void writeEnabled(bool on)
{
    gdbus({"--dest", a11yDest, "--object-path", a11yPath, "--method", "org.freedesktop.DBus.Properties.Set",
           "org.a11y.Status", "IsEnabled", on ? "<true>" : "<false>"});
}

QString freeDisplay()
{
    for (int n = 300; n < 400; ++n) {
        if (!QFile::exists(QStringLiteral("/tmp/.X11-unix/X%1").arg(n)) && !QFile::exists(QStringLiteral("/tmp/.X%1-lock").arg(n)))
            return QStringLiteral(":%1").arg(n);
    }
    return {};
}

// Child mode: print what is missing, one description a line.
int printMissing(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const auto backend = createSystemPermissionBackend();
    for (PermissionRequirement requirement : backend->missingRequirements())
        std::printf("%s\n", qPrintable(describe(requirement)));
    return 0;
}

} // namespace

class PermissionTest : public QObject
{
    Q_OBJECT

    PermissionChecker m_checker{createSystemPermissionBackend()};

private slots:
    void cleanup() { writeEnabled(true); }

    void trustedInTheDesktopSession()
    {
        QCOMPARE(readEnabled(), QStringLiteral("(<true>,)"));
        QVERIFY(m_checker.isTrusted());
        QVERIFY(m_checker.missingRequirements().isEmpty());
    }

    void aSwitchedOffBusIsReportedAndSwitchedBackOn()
    {
        writeEnabled(false);
        QCOMPARE(readEnabled(), QStringLiteral("(<false>,)"));
        QVERIFY(!m_checker.isTrusted());
        QCOMPARE(m_checker.missingRequirements(), QList<PermissionRequirement>{PermissionRequirement::AccessibilityEnabled});
        m_checker.requestWithPrompt();
        QCOMPARE(readEnabled(), QStringLiteral("(<true>,)"));
        QVERIFY(m_checker.isTrusted());
    }

    void monitorCallsBackOnceWhenTrustArrives()
    {
        writeEnabled(false);
        int calls = 0;
        m_checker.startMonitoring([&calls] { ++calls; });
        QTest::qWait(2500);  // two checks while switched off
        QCOMPARE(calls, 0);
        writeEnabled(true);
        QTRY_COMPARE(calls, 1);
        QTest::qWait(2500);  // the monitor has stopped: no second call
        QCOMPARE(calls, 1);
    }

    void monitorWhenAlreadyTrusted()
    {
        int calls = 0;
        m_checker.startMonitoring([&calls] { ++calls; });
        QCOMPARE(calls, 0);  // the first check is a second away
        QTRY_COMPARE(calls, 1);
        QTest::qWait(1500);
        QCOMPARE(calls, 1);
        // A monitor ends with its checker.
        auto checker = std::make_unique<PermissionChecker>(createSystemPermissionBackend());
        checker->startMonitoring([&calls] { ++calls; });
        checker.reset();
        QTest::qWait(1500);
        QCOMPARE(calls, 1);
    }

    // A session bus without the accessibility bus (and nothing started by asking), an X server
    // without XTest.
    void whatIsMissingElsewhere()
    {
        QProcess bus;
        bus.start("dbus-daemon", {"--session", "--nofork", "--nopidfile", "--print-address=1",
                                  "--address=unix:dir=" + QDir::tempPath()});
        QVERIFY(bus.waitForStarted() && bus.waitForReadyRead(5000));
        const QString busAddress = QString::fromUtf8(bus.readLine()).trimmed();

        const QString display = freeDisplay();
        QProcess xserver;
        xserver.start("Xvfb", {display, "-nolisten", "tcp", "-extension", "XTEST"});
        QVERIFY(xserver.waitForStarted());
        QTRY_COMPARE_WITH_TIMEOUT(QProcess::execute("xdpyinfo", {"-display", display, "-queryExtensions"}) == 0 ? 1 : 0, 1, 10000);

        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("DBUS_SESSION_BUS_ADDRESS", busAddress);
        env.insert("DISPLAY", display);
        child.setProcessEnvironment(env);
        child.start(QCoreApplication::applicationFilePath(), {"--print-missing"});
        QVERIFY(child.waitForFinished(20000));
        const QStringList missing = QString::fromUtf8(child.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(missing, (QStringList{describe(PermissionRequirement::AccessibilityBus),
                                       describe(PermissionRequirement::KeySynthesis)}));

        // Asking about the accessibility bus did not start one on that bus.
        QProcess check;
        check.setProcessEnvironment(env);
        check.start("gdbus", {"call", "--session", "--dest", "org.freedesktop.DBus", "--object-path", "/org/freedesktop/DBus",
                              "--method", "org.freedesktop.DBus.NameHasOwner", "org.a11y.Bus"});
        QVERIFY(check.waitForFinished());
        QCOMPARE(QString::fromUtf8(check.readAllStandardOutput()).trimmed(), QStringLiteral("(false,)"));

        xserver.terminate();
        bus.terminate();
        xserver.waitForFinished();
        bus.waitForFinished();
    }
};

int main(int argc, char **argv)
{
    if (argc > 1 && qstrcmp(argv[1], "--print-missing") == 0)
        return printMissing(argc, argv);
    QCoreApplication app(argc, argv);
    PermissionTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_permission.moc"
