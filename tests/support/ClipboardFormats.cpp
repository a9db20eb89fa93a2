#include "support/ClipboardFormats.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QTest>

namespace {

bool isMetaTarget(const QString &name)
{
    static const QStringList meta{QStringLiteral("TARGETS"), QStringLiteral("MULTIPLE"), QStringLiteral("TIMESTAMP"),
                                  QStringLiteral("SAVE_TARGETS"), QStringLiteral("DELETE"),
                                  QStringLiteral("application/x-qt-image")};
    return meta.contains(name) || name.startsWith(QLatin1String("INSERT_"));
}

} // namespace

ToolResult runToolRaw(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForStarted(5000))
        return {};
    const QDeadlineTimer deadline(15000);
    while (process.state() != QProcess::NotRunning && !deadline.hasExpired())
        QTest::qWait(2);
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, process.readAllStandardOutput()};
}

ToolResult xclip(const QString &selection, const QString &target)
{
    return runToolRaw(QStringLiteral("xclip"), {QStringLiteral("-o"), QStringLiteral("-selection"), selection,
                                                QStringLiteral("-t"), target});
}

Formats clipboardFormats()
{
    Formats formats;
    const ToolResult targets = xclip(QStringLiteral("clipboard"), QStringLiteral("TARGETS"));
    if (targets.exitCode != 0)
        return formats;
    for (const QByteArray &line : targets.out.split('\n')) {
        const QString name = QString::fromUtf8(line.trimmed());
        if (name.isEmpty() || isMetaTarget(name))
            continue;
        const ToolResult data = xclip(QStringLiteral("clipboard"), name);
        formats.insert(name, data.exitCode == 0 ? data.out : QByteArrayLiteral("<unreadable>"));
    }
    return formats;
}

QByteArray clipboardText()
{
    const ToolResult text = xclip(QStringLiteral("clipboard"), QStringLiteral("UTF8_STRING"));
    return text.exitCode == 0 ? text.out : QByteArray();
}

bool sameFormats(const Formats &actual, const Formats &expected)
{
    if (actual.keys() != expected.keys()) {
        qWarning("targets differ: got %s, expected %s", qPrintable(actual.keys().join(QLatin1Char(' '))),
                 qPrintable(expected.keys().join(QLatin1Char(' '))));
        return false;
    }
    for (auto it = expected.begin(); it != expected.end(); ++it) {
        if (actual.value(it.key()) != it.value()) {
            qWarning("%s differs: %lld bytes instead of %lld", qPrintable(it.key()),
                     qlonglong(actual.value(it.key()).size()), qlonglong(it.value().size()));
            return false;
        }
    }
    return true;
}
