// The workspace against real applications in the desktop session: a GTK editor that announces a
// desktop-file id (mousepad), a plain X terminal (xterm), and our own window.
#include "system/Workspace.h"

#include <QApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QWidget>

class WorkspaceTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<Workspace> m_workspace;
    QList<QProcess *> m_apps;

    void start(const QString &program, const QStringList &arguments = {})
    {
        auto *process = new QProcess(this);
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process->start(program, arguments);
        QVERIFY2(process->waitForStarted(), qPrintable(program + ": " + process->errorString()));
        m_apps << process;
    }

    // Brings a running application's window to the front, as a user's click would.
    static void activateByClass(const QString &windowClass)
    {
        QCOMPARE(QProcess::execute("xdotool", {"search", "--onlyvisible", "--class", windowClass, "windowactivate", "--sync"}), 0);
    }

private slots:
    void initTestCase() { m_workspace = createSystemWorkspace(); }

    void cleanupTestCase()
    {
        for (QProcess *process : std::as_const(m_apps)) {
            process->kill();
            process->waitForFinished();
        }
        m_workspace.reset();
    }

    void followsTheActiveApplication()
    {
        QSignalSpy changed(m_workspace.get(), &Workspace::activeApplicationChanged);
        const QString own = Workspace::ownApplicationId();

        start("mousepad");
        QTRY_COMPARE_WITH_TIMEOUT(m_workspace->frontmostApplicationId(), QStringLiteral("org.xfce.mousepad"), 20000);
        QTRY_COMPARE(changed.size() ? changed.last().at(0).toString() : QString(), QStringLiteral("org.xfce.mousepad"));
        QVERIFY(!m_workspace->isOwnApplicationFrontmost());

        start("xterm");
        QTRY_COMPARE_WITH_TIMEOUT(m_workspace->frontmostApplicationId(), QStringLiteral("xterm"), 20000);
        QTRY_COMPARE(changed.last().at(0).toString(), QStringLiteral("xterm"));

        QWidget window;
        window.setWindowTitle("Workspace test");
        window.resize(300, 200);
        window.show();
        window.activateWindow();
        QTRY_COMPARE(m_workspace->frontmostApplicationId(), own);
        QVERIFY(m_workspace->isOwnApplicationFrontmost());
        QTRY_COMPARE(changed.last().at(0).toString(), own);

        activateByClass("mousepad");
        QTRY_COMPARE(m_workspace->frontmostApplicationId(), QStringLiteral("org.xfce.mousepad"));
        QTRY_COMPARE(changed.last().at(0).toString(), QStringLiteral("org.xfce.mousepad"));

        m_workspace->activateSelf();
        QTRY_VERIFY(m_workspace->isOwnApplicationFrontmost());
        QTRY_COMPARE(changed.last().at(0).toString(), own);

        // Switching between two windows of one application is no change of application.
        activateByClass("xterm");
        QTRY_COMPARE(changed.last().at(0).toString(), QStringLiteral("xterm"));
        start("xterm");
        QTRY_COMPARE(QProcess::execute("sh", {"-c", "[ $(xdotool search --onlyvisible --class xterm | wc -l) -ge 2 ]"}), 0);
        activateByClass("mousepad");
        QTRY_COMPARE(changed.last().at(0).toString(), QStringLiteral("org.xfce.mousepad"));
        for (qsizetype i = 1; i < changed.size(); ++i)
            QVERIFY2(changed.at(i).at(0) != changed.at(i - 1).at(0), qPrintable(changed.at(i).at(0).toString()));
        QVERIFY(!changed.contains(QVariantList{QString()}));
    }
};

QTEST_MAIN(WorkspaceTest)
#include "tst_workspace.moc"
