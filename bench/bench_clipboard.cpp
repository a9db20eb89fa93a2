// Clipboard figures on the real X server, with mousepad (a GTK editor) as the application:
//  - capture: the whole captureSelectedText() (own snapshot, copy keystroke, waiting for the
//    copied text, reading it), which may end before its 0.15 s bound once the clipboard changed;
//  - one synthesised key (live layout lookup, held-key check, XTest, round trip);
//  - snapshot of a clipboard holding a multi-megabyte PNG owned by another client, restoring it,
//    and another client (xclip) reading it back from the restored copy.
// Run inside the desktop session: scripts/desktop-session <build>/bench/bench_clipboard [runs]
#include "state/KeyCodes.h"
#include "support/DesktopApp.h"
#include "system/ClipboardManager.h"
#include "system/KeyboardSimulator.h"
#include "system/x11/X11KeySynthesiser.h"
#include "system/x11/X11Pasteboard.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QCoro/QCoroTask>
#include <algorithm>
#include <cstdio>

namespace {

QByteArray runToolRaw(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForStarted(5000);
    const QDeadlineTimer deadline(20000);
    while (process.state() != QProcess::NotRunning && !deadline.hasExpired())
        QTest::qWait(1);
    return process.readAllStandardOutput();
}

void report(const char *what, std::vector<double> ms)
{
    if (ms.empty()) {
        std::printf("%-58s no runs\n", what);
        return;
    }
    std::sort(ms.begin(), ms.end());
    auto at = [&](double q) { return ms[std::min(ms.size() - 1, size_t(q * double(ms.size() - 1) + 0.5))]; };
    std::printf("%-58s n=%3zu  min %7.2f  median %7.2f  p95 %7.2f  max %7.2f ms\n", what, ms.size(), ms.front(),
                at(0.5), at(0.95), ms.back());
}

double since(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 40;
    QTemporaryDir dir;

    auto synthesiser = std::make_unique<X11KeySynthesiser>();
    auto pasteboard = std::make_unique<X11Pasteboard>();
    if (!synthesiser->isConnected() || !pasteboard->isConnected()) {
        std::fprintf(stderr, "no display: run inside scripts/desktop-session\n");
        return 1;
    }
    X11KeySynthesiser *keys = synthesiser.get();
    KeyboardSimulator simulator(std::move(synthesiser));
    ClipboardManager manager(std::move(pasteboard), simulator);

    // Capture from mousepad.
    const QString text = QStringLiteral("Grüße aus Köln 😀, a few lines of text to translate.\nSecond line.\nThird line.\n");
    QFile file(dir.filePath(QStringLiteral("bench.txt")));
    file.open(QIODevice::WriteOnly);
    file.write(text.toUtf8());
    file.close();
    auto mousepad = DesktopApp::program(QStringLiteral("mousepad"), {file.fileName()});
    if (!mousepad || !mousepad->waitUntilActive()) {
        std::fprintf(stderr, "mousepad did not start\n");
        return 1;
    }
    QTest::qWait(500);
    runToolRaw(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("ctrl+a")});

    std::vector<double> capture, key;
    int wrong = 0;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        const auto captured = QCoro::waitFor(manager.captureSelectedText(QStringLiteral("mousepad")));
        capture.push_back(since(timer));
        wrong += captured != text;
        QTest::qWait(30);
    }
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        QCoro::waitFor(keys->pressKey(KeyCodes::RightArrow, 1));
        key.push_back(since(timer));
        QTest::qWait(10);
    }
    mousepad.reset();

    // A big clipboard owned by another client.
    QImage image(1400, 1000, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            image.setPixel(x, y, QRandomGenerator::global()->generate());
    const QString png = dir.filePath(QStringLiteral("big.png"));
    image.save(png, "PNG");
    const qint64 pngSize = QFileInfo(png).size();

    std::vector<double> snapshot, restore, readBack;
    int mismatched = 0;
    const int bigRuns = std::max(1, runs / 2);
    for (int i = 0; i < bigRuns; ++i) {
        const qint64 before = manager.pasteboard().changeCount();
        QProcess owner;
        owner.start(QStringLiteral("xclip"), {QStringLiteral("-quiet"), QStringLiteral("-selection"), QStringLiteral("clipboard"),
                                              QStringLiteral("-t"), QStringLiteral("image/png"), QStringLiteral("-i"), png});
        const QDeadlineTimer deadline(10000);
        while (manager.pasteboard().changeCount() == before && !deadline.hasExpired())
            QTest::qWait(5);
        QElapsedTimer timer;
        timer.start();
        const PasteboardSnapshot taken = QCoro::waitFor(manager.snapshot());
        snapshot.push_back(since(timer));
        owner.kill();
        owner.waitForFinished();
        timer.restart();
        manager.restore(taken);
        restore.push_back(since(timer));
        timer.restart();
        const QByteArray back = runToolRaw(QStringLiteral("xclip"), {QStringLiteral("-o"), QStringLiteral("-selection"),
                                                                  QStringLiteral("clipboard"), QStringLiteral("-t"),
                                                                  QStringLiteral("image/png")});
        readBack.push_back(since(timer));
        mismatched += back.size() != pngSize;
    }

    std::printf("bench_clipboard: %d runs, X server %s\n", runs, qgetenv("DISPLAY").constData());
    report("capture from mousepad (whole call)", capture);
    std::printf("    wrong captures: %d\n", wrong);
    report("one synthesised key (Right Arrow)", key);
    const QByteArray what = QStringLiteral("snapshot of a %1 MB PNG clipboard").arg(double(pngSize) / 1e6, 0, 'f', 1).toUtf8();
    report(what.constData(), snapshot);
    report("restore (taking the clipboard with the snapshot)", restore);
    report("xclip reading the restored PNG back (process included)", readBack);
    std::printf("    PNG read back with a wrong size: %d\n", mismatched);
    return wrong || mismatched ? 1 : 0;
}
