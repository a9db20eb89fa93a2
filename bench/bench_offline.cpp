// The offline engine's speed and memory: the first request of a direction (its pipelines start),
// warm requests of one sentence and of 5,000 characters, directly (en -> es) and through Spanish
// (en -> pt), the memory its processes hold, and, for scale, one `apertium -u` run per request.
//
//   scripts/desktop-session build/bench/bench_offline

#include "service/OfflineEngine.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QCoro/QCoroTask>

#include <algorithm>
#include <cstdio>

namespace {

const QString kSentence = QStringLiteral("The children are playing football in the park near our house.");

QString fiveThousandCharacters()
{
    const QString paragraph = QStringLiteral(
        "The city council met on Tuesday evening to discuss the new bus routes. Several residents "
        "asked for more frequent service in the mornings, and the mayor promised a decision before "
        "the end of the month.\n\n");
    return paragraph.repeated(5000 / paragraph.size() + 1).left(5000);
}

double milliseconds(const QElapsedTimer &timer)
{
    return double(timer.nsecsElapsed()) / 1e6;
}

double timeOne(OfflineEngine &engine, const QString &text, const QString &target)
{
    QElapsedTimer timer;
    timer.start();
    const TranslationResult result = QCoro::waitFor(engine.translate(EngineRequest{text, target, {}}));
    const double elapsed = milliseconds(timer);
    if (!result.isOk())
        qFatal("translation failed: %s", qPrintable(result.error().userMessage()));
    return elapsed;
}

struct Spread { double median, p90; };

Spread timeMany(OfflineEngine &engine, const QString &text, const QString &target, int runs)
{
    QList<double> times;
    for (int i = 0; i < runs; ++i)
        times.append(timeOne(engine, text, target));
    std::sort(times.begin(), times.end());
    return {times.at(runs / 2), times.at(std::min(runs - 1, runs * 9 / 10))};
}

// A value in KiB from one of a process's /proc files ("VmRSS:" in status, "Pss:" in
// smaps_rollup: its share of the pages it has in common with other processes).
qint64 procKiB(qint64 pid, const char *file, const QByteArray &key)
{
    QFile proc(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(file)));
    if (!proc.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : proc.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(key.size()).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

double oneShotApertium(const QString &mode, const QString &text)
{
    QElapsedTimer timer;
    timer.start();
    QProcess apertium;
    apertium.start(QStringLiteral("apertium"), {QStringLiteral("-u"), mode});
    apertium.write(text.toUtf8());
    apertium.closeWriteChannel();
    apertium.waitForFinished(60000);
    return milliseconds(timer);
}

void measure(const QString &label, const QString &target)
{
    const QString longText = fiveThousandCharacters();
    std::printf("\n%s\n", qPrintable(label));
    {
        OfflineEngine engine;
        std::printf("  first request, sentence:        %8.1f ms (pipelines start)\n", timeOne(engine, kSentence, target));
        const Spread sentence = timeMany(engine, kSentence, target, 50);
        std::printf("  warm, sentence:                 %8.2f ms median, %.2f ms p90 (50 runs)\n", sentence.median, sentence.p90);
        const Spread chunk = timeMany(engine, longText, target, 10);
        std::printf("  warm, 5,000 characters:         %8.1f ms median, %.1f ms p90 (10 runs)\n", chunk.median, chunk.p90);

        qint64 totalRss = 0;
        qint64 totalPss = 0;
        for (ApertiumPipeline *pipeline : engine.pipelines()) {
            qint64 rss = 0;
            qint64 pss = 0;
            for (qint64 pid : pipeline->processIds()) {
                rss += procKiB(pid, "status", "VmRSS:");
                pss += procKiB(pid, "smaps_rollup", "Pss:");
            }
            totalRss += rss;
            totalPss += pss;
            std::printf("  memory, %-8s                %8.1f MiB RSS, %.1f MiB PSS, %lld processes\n",
                        qPrintable(pipeline->mode().name), double(rss) / 1024.0, double(pss) / 1024.0,
                        qlonglong(pipeline->processIds().size()));
        }
        std::printf("  memory, all pipelines:          %8.1f MiB RSS, %.1f MiB PSS\n",
                    double(totalRss) / 1024.0, double(totalPss) / 1024.0);

        // Memory stays flat: the same figure after another 1,000 requests of every shape.
        for (int i = 0; i < 1000; ++i)
            timeOne(engine, i % 50 == 0 ? longText : kSentence + QString::number(i), target);
        qint64 after = 0;
        for (qint64 pid : engine.processIds())
            after += procKiB(pid, "smaps_rollup", "Pss:");
        std::printf("  memory after 1,000 more:        %8.1f MiB PSS\n", double(after) / 1024.0);
    }
    {
        OfflineEngine engine;
        std::printf("  first request, 5,000 characters:%8.1f ms (pipelines start)\n", timeOne(engine, longText, target));
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    OfflineEngine probe;
    if (!probe.isConfigured())
        qFatal("no Apertium language pairs installed");
    std::printf("offline directions: %s\n", qPrintable(probe.directionNames().join(QStringLiteral(", "))));

    measure(QStringLiteral("en -> es (eng-spa)"), QStringLiteral("es"));
    measure(QStringLiteral("en -> pt (eng-spa, then es-pt)"), QStringLiteral("pt"));

    std::printf("\nfor scale, one `apertium -u eng-spa` process per request\n");
    std::printf("  sentence:                       %8.1f ms\n", oneShotApertium(QStringLiteral("eng-spa"), kSentence));
    std::printf("  5,000 characters:               %8.1f ms\n",
                oneShotApertium(QStringLiteral("eng-spa"), fiveThousandCharacters()));
    return 0;
}
