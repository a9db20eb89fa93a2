// What one checked read of the focused field costs (the element, its caret, selection and text,
// after checking it is still focused in the active window's application), in a GTK window and
// in our Qt editor, and what the selection-rectangle probe costs. Run inside the desktop session:
//   scripts/desktop-session build/bench/bench_accessibility
#include "support/DesktopApp.h"
#include "system/x11/AtspiReader.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QTest>

#include <algorithm>
#include <functional>
#include <cstdio>

namespace {

const QString sample = QString::fromUtf8("e\u0301t\u00e9 \U0001F600 nai\u0308ve \U0001F44D\U0001F3FD fin");
constexpr int runs = 40;

template <typename Read>
void measure(const char *what, Read read)
{
    QList<double> costs;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer clock;
        clock.start();
        if (!read()) {
            std::printf("%-38s failed on run %d\n", what, i + 1);
            return;
        }
        costs << clock.nsecsElapsed() / 1e6;
    }
    std::sort(costs.begin(), costs.end());
    const double median = (costs.at(runs / 2 - 1) + costs.at(runs / 2)) / 2;
    const double p95 = costs.at(int(runs * 0.95) - 1);
    std::printf("%-38s min %6.2f ms   median %6.2f ms   p95 %6.2f ms   (%d runs)\n", what, costs.first(), median, p95, runs);
}

// Waits until the reader sees the application's focused field with a selection.
bool waitForField(AtspiReader &reader, qint64 pid)
{
    const QDeadlineTimer deadline(10000);
    while (!deadline.hasExpired()) {
        const auto element = QCoro::waitFor(reader.focusedElement());
        if (element && element->application.pid == pid && element->selection && element->selection->length > 0)
            return true;
        QTest::qWait(100);
    }
    return false;
}

using AppStarter = std::function<std::unique_ptr<DesktopApp>()>;

bool benchApplication(const char *name, const AppStarter &start)
{
    // The reader runs before the application starts: it follows the field through focus events.
    auto reader = std::make_unique<AtspiReader>();
    std::unique_ptr<DesktopApp> app = start();
    if (!app || !app->waitUntilActive() || !waitForField(*reader, app->pid())) {
        std::printf("%s: its focused field was never read\n", name);
        return false;
    }
    const qint64 pid = app->pid();
    auto readField = [&] {
        const auto read = QCoro::waitFor(reader->focusedElement(Accessibility::Read::WithText));
        return read && read->application.pid == pid;
    };
    measure(QByteArray(name + QByteArray(": element + text")).constData(), readField);
    measure(QByteArray(name + QByteArray(": selection rectangle")).constData(),
            [&] { return QCoro::waitFor(reader->selectionRect()).has_value(); });

    // A reader started afterwards saw no focus event: it searches the active application.
    reader.reset();
    reader = std::make_unique<AtspiReader>();
    measure(QByteArray(name + QByteArray(": element + text, no event")).constData(), readField);
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    const bool gtk = benchApplication("GTK entry", [] {
        return DesktopApp::gtkFields({QStringLiteral("--text"), sample, QStringLiteral("--select"), QStringLiteral("5"),
                                      QStringLiteral("16")});
    });
    const bool qt = benchApplication("Qt line edit", [] {
        return DesktopApp::qtEditor({QStringLiteral("--text"), sample, QStringLiteral("--focus"), QStringLiteral("entry"),
                                     QStringLiteral("--select-all")});
    });
    return gtk && qt ? 0 : 1;
}
