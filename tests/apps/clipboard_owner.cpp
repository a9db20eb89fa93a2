// Another X client owning the clipboard for the desktop tests: it puts the given formats on the
// clipboard, byte for byte, and keeps them there until it is killed. Options:
//   --data TYPE=FILE   one format: its MIME type (or any target name) and the file holding its
//                      bytes (repeatable)
//   --on-copy          own the clipboard only when Ctrl+C is pressed in its window, like an
//                      application copying its selection
//   --ready FILE       written (empty) each time the formats are on the clipboard
//   --title TITLE      window title (default "Parlanto Clipboard Owner")
#include <QApplication>
#include <QClipboard>
#include <QCommandLineParser>
#include <QFile>
#include <QLabel>
#include <QMimeData>
#include <QShortcut>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addOption({QStringLiteral("data"), QStringLiteral("a format"), QStringLiteral("TYPE=FILE")});
    parser.addOption({QStringLiteral("on-copy"), QStringLiteral("own the clipboard on Ctrl+C only")});
    parser.addOption({QStringLiteral("ready"), QStringLiteral("file written once owning"), QStringLiteral("FILE")});
    parser.addOption({QStringLiteral("title"), QStringLiteral("window title"), QStringLiteral("TITLE"),
                      QStringLiteral("Parlanto Clipboard Owner")});
    parser.process(app);

    QList<QPair<QString, QByteArray>> formats;
    for (const QString &option : parser.values(QStringLiteral("data"))) {
        const qsizetype split = option.indexOf(QLatin1Char('='));
        QFile file(option.mid(split + 1));
        if (split <= 0 || !file.open(QIODevice::ReadOnly)) {
            qCritical("cannot read %s", qPrintable(option));
            return 2;
        }
        formats.append({option.left(split), file.readAll()});
    }

    const QString readyPath = parser.value(QStringLiteral("ready"));
    auto own = [&] {
        auto *mime = new QMimeData;
        for (const auto &[type, bytes] : formats)
            mime->setData(type, bytes);
        QGuiApplication::clipboard()->setMimeData(mime, QClipboard::Clipboard);
        if (!readyPath.isEmpty()) {
            QFile ready(readyPath);
            ready.open(QIODevice::WriteOnly);
        }
    };

    QLabel window(QStringLiteral("Ctrl+C copies the formats"));
    window.setWindowTitle(parser.value(QStringLiteral("title")));
    window.resize(320, 120);
    QShortcut copy(QKeySequence::Copy, &window, own);
    window.show();
    if (!parser.isSet(QStringLiteral("on-copy")))
        own();
    return app.exec();
}
