#include "support/DesktopApp.h"
#include "support/ClipboardFormats.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QTest>

#include <signal.h>

namespace {

// Set by CTest; found beside the build's tests and in the source tree otherwise (benchmarks).
QString testAppsDir()
{
    const QString dir = qEnvironmentVariable("PARLANTO_TEST_APPS_DIR");
    return dir.isEmpty() ? QCoreApplication::applicationDirPath() + QStringLiteral("/../tests/apps") : dir;
}

QString testScriptsDir()
{
    const QString dir = qEnvironmentVariable("PARLANTO_TEST_SCRIPTS_DIR");
    return dir.isEmpty() ? QFileInfo(QStringLiteral(__FILE__)).absolutePath() + QStringLiteral("/../apps") : dir;
}

} // namespace

std::unique_ptr<DesktopApp> DesktopApp::gtkFields(const QStringList &arguments)
{
    std::unique_ptr<DesktopApp> app(new DesktopApp);
    const QString script = testScriptsDir() + QStringLiteral("/gtk_fields.py");
    app->m_name = QStringLiteral("gtk_fields");
    if (!app->start(QStringLiteral("/usr/bin/python3"), QStringList{script} + arguments, true))
        return nullptr;
    return app;
}

std::unique_ptr<DesktopApp> DesktopApp::qtEditor(const QStringList &arguments)
{
    std::unique_ptr<DesktopApp> app(new DesktopApp);
    app->m_name = QStringLiteral("qt_test_editor");
    if (!app->start(testAppsDir() + QStringLiteral("/qt_test_editor"), arguments, false))
        return nullptr;
    return app;
}

std::unique_ptr<DesktopApp> DesktopApp::program(const QString &program, const QStringList &arguments)
{
    std::unique_ptr<DesktopApp> app(new DesktopApp);
    app->m_name = QFileInfo(program).fileName();
    if (!app->start(program, arguments, false))
        return nullptr;
    return app;
}

bool DesktopApp::start(const QString &program, const QStringList &arguments, bool waitForReadyLine)
{
    m_process.setProcessChannelMode(QProcess::SeparateChannels);
    m_process.start(program, arguments);
    if (!m_process.waitForStarted(5000)) {
        qWarning("could not start %s: %s", qPrintable(program), qPrintable(m_process.errorString()));
        return false;
    }
    if (!waitForReadyLine)
        return true;
    const QDeadlineTimer deadline(15000);
    while (!m_process.canReadLine() && !deadline.hasExpired() && m_process.state() == QProcess::Running)
        QTest::qWait(20);
    if (m_process.readLine().trimmed() != "ready") {
        qWarning("%s did not get ready: %s", qPrintable(m_name), m_process.readAllStandardError().constData());
        return false;
    }
    return true;
}

DesktopApp::~DesktopApp()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(3000)) {
        m_process.kill();
        m_process.waitForFinished(3000);
    }
}

bool DesktopApp::isRunning() const
{
    return m_process.state() == QProcess::Running;
}

qint64 DesktopApp::pid() const
{
    return m_process.processId();
}

bool DesktopApp::waitUntilActive(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired() && isRunning()) {
        if (activeWindowPid() == pid())
            return true;
        QTest::qWait(50);
    }
    return false;
}

QRect DesktopApp::activeWindowGeometry()
{
    // xwininfo's absolute position is that of the window's contents (xdotool's getwindowgeometry
    // is off by the frame under some window managers).
    const QString window = runTool(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow")});
    const QString info = runTool(QStringLiteral("xwininfo"), {QStringLiteral("-id"), window});
    QRect rect;
    for (const QString &line : info.split(QLatin1Char('\n'))) {
        const QString key = line.section(QLatin1Char(':'), 0, 0).trimmed();
        const int value = line.section(QLatin1Char(':'), 1).trimmed().toInt();
        if (key == QLatin1String("Absolute upper-left X"))
            rect.moveLeft(value);
        else if (key == QLatin1String("Absolute upper-left Y"))
            rect.moveTop(value);
        else if (key == QLatin1String("Width"))
            rect.setWidth(value);
        else if (key == QLatin1String("Height"))
            rect.setHeight(value);
    }
    return rect;
}

qint64 DesktopApp::activeWindowPid()
{
    return runTool(QStringLiteral("xdotool"), {QStringLiteral("getactivewindow"), QStringLiteral("getwindowpid")}).toLongLong();
}

void DesktopApp::sendSignal(int signal)
{
    if (isRunning())
        ::kill(static_cast<pid_t>(pid()), signal);
}

QString runTool(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForStarted(5000))
        return {};
    // Keeps the caller's event loop turning: its own windows may be what the tool asks about.
    const QDeadlineTimer deadline(10000);
    while (process.state() != QProcess::NotRunning && !deadline.hasExpired())
        QTest::qWait(5);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

bool pressKeys(const QStringList &keys)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), QStringList{QStringLiteral("key"), QStringLiteral("--delay"), QStringLiteral("30")} + keys);
    return process.waitForFinished(10000) && process.exitCode() == 0;
}

bool xdotool(const QStringList &arguments)
{
    return runToolRaw(QStringLiteral("xdotool"), arguments).exitCode == 0;
}
