#include "service/ApertiumPipeline.h"
#include "service/LanguageDetector.h"
#include "service/OfflineEngine.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QCoro/QCoroTask>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

using namespace std::chrono_literals;
using Kind = TranslationError::Kind;

namespace {

// Runs one of Apertium's own programs on `input`: its standard output.
QByteArray apertium(const QString &program, const QStringList &arguments, const QByteArray &input)
{
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        qFatal("%s failed: %s", qPrintable(program), process.readAllStandardError().constData());
    return process.readAllStandardOutput();
}

// What Apertium's own command line answers: `apertium -u MODE` for each mode in turn.
QString apertiumReference(const QStringList &modes, const QString &text)
{
    QByteArray current = text.toUtf8();
    for (const QString &mode : modes)
        current = apertium("apertium", {"-u", mode}, current);
    return QString::fromUtf8(current);
}

QString failure(const TranslationResult &result)
{
    return result.isOk() ? QString() : result.error().userMessage();
}

TranslationResult translate(OfflineEngine &engine, const QString &text, const QString &target,
                            const QString &source = {})
{
    return QCoro::waitFor(engine.translate(EngineRequest{text, target, source}));
}

QString translated(OfflineEngine &engine, const QString &text, const QString &target,
                   const QString &source = {})
{
    const TranslationResult result = translate(engine, text, target, source);
    if (!result.isOk())
        qFatal("translation failed: %s", qPrintable(failure(result)));
    return result.value().translatedText;
}

// Running: neither gone nor a zombie waiting for its parent to reap it.
bool processRuns(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    return status.open(QIODevice::ReadOnly) && !status.readAll().contains("\nState:\tZ");
}

// A zombie still has its /proc entry: gone means killed and reaped.
bool processExists(qint64 pid)
{
    return QFileInfo::exists(QStringLiteral("/proc/%1").arg(pid));
}

QString trimmedBlanks(const QString &text)
{
    static const QRegularExpression edges(QStringLiteral("^[ \\t\\r\\n]+|[ \\t\\r\\n]+$"));
    return QString(text).remove(edges);
}

struct Sample {
    QString text, category; // "sentences", "three words", "one word"
};

QList<Sample> detectionSamples(const QString &language)
{
    QFile file(sourceDir() + QStringLiteral("/tests/data/detection/") + language + QStringLiteral(".txt"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("missing detection corpus for %s", qPrintable(language));
    QList<Sample> samples;
    QString category;
    for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String("# ")))
            category = line.mid(2);
        else if (!line.trimmed().isEmpty())
            samples.append({line.trimmed(), category});
    }
    return samples;
}

const QString kOneSentence = QStringLiteral("The children are playing in the garden.");
const QLatin1String kExitAbruptly("--warm-pipelines-and-exit-abruptly");

} // namespace

class OfflineEngineTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void directionsComeFromTheInstalledPairs();
    void streamFormatMatchesApertiumFilters_data();
    void streamFormatMatchesApertiumFilters();
    void translatesLikeApertium_data();
    void translatesLikeApertium();
    void detectsTheSourceLanguage();
    void unreachableLanguagesFailAtOnce();
    void modesThatCannotRunAreLeftOut();
    void killedPipelineIsRestarted();
    void stuckPipelineTimesOutAndRestarts();
    void idlePipelineStopsAndStartsAgain();
    void manyRequestsStayInStep();
    void destroyingTheEngineReapsItsProcesses();
    void pipelinesEndWithAProgramThatDies();
    void detectionAccuracyPerLanguage_data();
    void detectionAccuracyPerLanguage();
    void scriptRuleDecidesMixedText();

private:
    std::unique_ptr<OfflineEngine> m_engine;
};

void OfflineEngineTest::initTestCase()
{
    m_engine = std::make_unique<OfflineEngine>(); // warm pipelines shared by the translation checks
}

// The routes themselves are checked against Apertium's answers in translatesLikeApertium.
void OfflineEngineTest::directionsComeFromTheInstalledPairs()
{
    OfflineEngine engine;
    QVERIFY(engine.isConfigured());
    QCOMPARE(engine.languages(), (QStringList{"en", "fr", "es", "pt", "it"}));
    // All 20 directions among the five languages, at most two hops, through Spanish.
    const QList<OfflineDirection> directions = engine.directions();
    QCOMPARE(directions.size(), 20);
    for (const OfflineDirection &direction : directions)
        QCOMPARE(direction.isPivot(), direction.source != "es" && direction.target != "es");
    QCOMPARE(engine.route("es", "pt")->modes, QStringList{"es-pt"}); // not the es-pt_BR variant
    QVERIFY(engine.directionNames().contains(QStringLiteral("en \u2192 es")));
    QVERIFY(engine.directionNames().contains(QStringLiteral("en \u2192 pt (via es)")));
    // Looking is free: nothing runs until the first translation.
    QVERIFY(engine.processIds().isEmpty());
}

void OfflineEngineTest::streamFormatMatchesApertiumFilters_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("sentence") << "Hello world.";
    QTest::newRow("specials") << "a\\b [x] {y} <z> /p/ @q ^r$ *s #t";
    QTest::newRow("lines") << "one\ntwo\n\nthree\n\n\nfour";
    QTest::newRow("blanks") << "a  b\tc \n d \n\n e";
    QTest::newRow("crlf") << "first\r\nsecond\r\n\r\nthird";
    QTest::newRow("url and emoji") << "see https://example.com/a?b=c&d=e 😀 ok";
    QTest::newRow("dots") << "Done.\n\nWhat?\n\nYes..";
}

void OfflineEngineTest::streamFormatMatchesApertiumFilters()
{
    QFETCH(QString, text);
    // What our formatter writes is what apertium-destxt writes for the same text, and reading it
    // back gives the text, as apertium-retxt does.
    const QByteArray ours = Apertium::deformat(text) + ".[]";
    QCOMPARE(ours, apertium("apertium-destxt", {}, text.toUtf8()));
    QCOMPARE(Apertium::reformat(ours), text);
    QCOMPARE(Apertium::reformat(ours), QString::fromUtf8(apertium("apertium-retxt", {}, ours)));
}

void OfflineEngineTest::translatesLikeApertium_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QStringList>("modes");
    QTest::addColumn<QString>("text");

    const QStringList enEs{"eng-spa"};
    QTest::newRow("en-es sentence") << "en" << "es" << enEs << "Good morning, how are you today?";
    QTest::newRow("es-en sentence") << "es" << "en" << QStringList{"spa-eng"}
                                    << "El perro duerme en la casa de mi hermano.";
    QTest::newRow("en-es paragraphs")
        << "en" << "es" << enEs
        << "Dear friend,\n\nThe house is big.\nThe garden is small.\n\n\nSee you soon\nAnna";
    QTest::newRow("en-es tabs and spaces") << "en" << "es" << enEs << "Name:\tJohn   Smith\n\tThe city is old.";
    QTest::newRow("en-es url, mail, emoji")
        << "en" << "es" << enEs << "Read https://example.org/docs?id=7&x=1 or write to ana@example.com 😀 today.";
    QTest::newRow("en-es special characters")
        << "en" << "es" << enEs << "The file [draft] is in C:\\work/notes {old} <b> ^up$ and 50% done.";
    QTest::newRow("en-es unknown words") << "en" << "es" << enEs << "The zorblax and the quibbletron eat fizzwidgets.";
    QTest::newRow("en-es no final stop") << "en" << "es" << enEs << "the black cat";
    QTest::newRow("en-es crlf") << "en" << "es" << enEs << "The door is open.\r\n\r\nThe window is closed.";
    QTest::newRow("en-pt pivot") << "en" << "pt" << QStringList{"eng-spa", "es-pt"}
                                 << "The weather is nice.\n\nWe are going to the beach tomorrow.";
    QTest::newRow("fr-it pivot") << "fr" << "it" << QStringList{"fr-es", "spa-ita"}
                                 << "Le chat dort sur la table.\nIl fait beau.";
    QTest::newRow("it-en pivot") << "it" << "en" << QStringList{"ita-spa", "spa-eng"}
                                 << "Il treno parte alle otto.";

    const QStringList sentences = {
        "The council met on Tuesday to discuss the new bus routes.",
        "Several residents asked for more buses in the morning!",
        "Why does the last train leave so early?",
        "The mayor promised a decision before the end of the month.",
        "Tickets cost 2.50 euros (children travel free).",
    };
    QString chunk;
    for (int i = 0; chunk.size() < 4800; ++i)
        chunk += sentences.at(i % sentences.size()) + (i % 4 == 3 ? "\n\n" : i % 7 == 6 ? "\n" : " ");
    QTest::newRow("en-es 5,000 characters") << "en" << "es" << enEs << chunk.trimmed();
    QTest::newRow("en-pt 5,000 characters") << "en" << "pt" << QStringList{"eng-spa", "es-pt"} << chunk.trimmed();
}

void OfflineEngineTest::translatesLikeApertium()
{
    QFETCH(QString, source);
    QFETCH(QString, target);
    QFETCH(QStringList, modes);
    QFETCH(QString, text);

    OfflineEngine &engine = *m_engine;
    QCOMPARE(engine.route(source, target)->modes, modes);
    const TranslationResult result = translate(engine, text, target, source);
    QVERIFY2(result.isOk(), qPrintable(failure(result)));
    const QString ours = result.value().translatedText;
    QCOMPARE(result.value().charactersUsed, qint64(text.size() - text.count("\r\n") - text.count("😀")));
    QVERIFY(!result.value().remainingQuota);

    // Apertium may open its answer with a stray blank; apart from that, the same text.
    QCOMPARE(ours, trimmedBlanks(apertiumReference(modes, text)));
    QVERIFY(ours != text);
    // Lines, paragraphs and tabs survive.
    QCOMPARE(ours.count('\n'), text.count('\n'));
    QCOMPARE(ours.count('\t'), text.count('\t'));
    QCOMPARE(ours.count("\n\n"), text.count("\n\n"));
    // No unknown-word marks: the only *, # and @ are those of the text.
    for (const QChar mark : {QChar('*'), QChar('#'), QChar('@')})
        QCOMPARE(ours.count(mark), text.count(mark));
    if (text.contains("https://"))
        QVERIFY(ours.contains("https://example.org/docs?id=7&x=1") && ours.contains("ana@example.com")
                && ours.contains("😀"));
}

void OfflineEngineTest::detectsTheSourceLanguage()
{
    OfflineEngine &engine = *m_engine;
    QCOMPARE(translated(engine, "Good morning", "es"), QStringLiteral("Buenos días"));
    QCOMPARE(translated(engine, "Muchas gracias por tu ayuda.", "en"),
             trimmedBlanks(apertiumReference({"spa-eng"}, "Muchas gracias por tu ayuda.")));
    const QString french = QStringLiteral("Le chat dort sur la table de la cuisine.");
    QCOMPARE(translated(engine, french, "pt"), trimmedBlanks(apertiumReference({"fr-es", "es-pt"}, french)));

    // Already in the target language, or nothing to translate: back unchanged.
    QCOMPARE(translated(engine, "Ceci est déjà en français, n'est-ce pas ?", "fr"),
             QStringLiteral("Ceci est déjà en français, n'est-ce pas ?"));
    QCOMPARE(translated(engine, "  12:30 - 14:45 \n", "it"), QStringLiteral("  12:30 - 14:45 \n"));
    // Blanks around the text come back exactly as they were.
    QCOMPARE(translated(engine, "\n  Good morning\t\n", "es"), QStringLiteral("\n  Buenos días\t\n"));
}

void OfflineEngineTest::unreachableLanguagesFailAtOnce()
{
    OfflineEngine engine;
    const QString can = QStringLiteral("Offline translation works between English, French, Spanish, "
                                       "Portuguese and Italian");
    const QString online = QStringLiteral("An online engine (DeepL, LibreTranslate or an "
                                          "OpenAI-compatible model) can do the rest.");

    struct Case { QString text, target, source, language; };
    const QList<Case> cases = {
        {"Good morning", "ja", {}, "into Japanese"},
        {"Good morning", "de", {}, "into German"},
        {"Good morning", "ru", "en", "into Russian"},
        {"Guten Morgen, wie geht es dir heute?", "es", {}, "from German"},
        {"Доброе утро, как дела?", "en", {}, "from Russian"},
        {"今日はいい天気ですね。", "es", {}, "from Japanese"},
        {"Good morning", "es", "vi", "from Vietnamese"},
        {"Καλημέρα, τι κάνεις σήμερα;", "es", {}, "could not tell which language this text is in"},
    };
    for (const Case &c : cases) {
        const TranslationResult result = translate(engine, c.text, c.target, c.source);
        QVERIFY2(!result.isOk(), qPrintable(c.text + " -> " + c.target));
        QCOMPARE(result.error().kind(), Kind::ServerError);
        const QString message = result.error().userMessage();
        QVERIFY2(message.contains(can) && message.contains(c.language) && message.endsWith(online),
                 qPrintable(message));
    }
    // Refused before anything started.
    QVERIFY(engine.pipelines().isEmpty());
    QVERIFY(engine.processIds().isEmpty());
}

void OfflineEngineTest::modesThatCannotRunAreLeftOut()
{
    QTemporaryDir dir;
    QVERIFY(QFile::copy("/usr/share/apertium/modes/eng-spa.mode", dir.filePath("eng-spa.mode")));
    const auto writeMode = [&](const char *name, const QByteArray &pipeline) {
        QFile mode(dir.filePath(name));
        return mode.open(QIODevice::WriteOnly) && mode.write(pipeline) == pipeline.size();
    };
    QVERIFY(writeMode("spa-eng.mode", "lt-proc '/usr/share/apertium/apertium-eng-spa/spa-eng.automorf.bin' | apertium-foo -x\n"));
    QVERIFY(writeMode("fr-es.mode", "lt-proc '/nonexistent/fr-es.automorf.bin'\n"));

    OfflineEngine engine(OfflineEngine::Options{{dir.path()}});
    QVERIFY(engine.isConfigured());
    QCOMPARE(engine.directionNames(), QStringList{QStringLiteral("en \u2192 es")});
    QCOMPARE(translated(engine, kOneSentence, "es", "en"),
             trimmedBlanks(apertiumReference({"eng-spa"}, kOneSentence)));
    const TranslationResult back = translate(engine, "Hola", "en", "es");
    QVERIFY(!back.isOk());
    QCOMPARE(back.error().userMessage().section(". ", 0, 0),
             QStringLiteral("Offline translation works between English and Spanish; it cannot translate into English"));

    QTemporaryDir empty;
    OfflineEngine nothing(OfflineEngine::Options{{empty.path()}});
    QVERIFY(!nothing.isConfigured());
    const TranslationResult none = translate(nothing, kOneSentence, "es");
    QVERIFY(!none.isOk());
    QVERIFY(none.error().userMessage().contains("apertium-eng-spa"));
}

void OfflineEngineTest::killedPipelineIsRestarted()
{
    OfflineEngine engine;
    const QString expected = translated(engine, kOneSentence, "es", "en");
    ApertiumPipeline *pipeline = engine.pipelines().constFirst();
    QCOMPARE(pipeline->startCount(), 1);

    // Killed between requests: the next request starts it again.
    const QList<qint64> first = pipeline->processIds();
    QCOMPARE(first.size(), engine.modes().value("eng-spa").stages.size());
    ::kill(pid_t(first.at(3)), SIGKILL);
    QTRY_VERIFY(!processExists(first.at(3)));
    QCOMPARE(translated(engine, kOneSentence, "es", "en"), expected);
    QCOMPARE(pipeline->startCount(), 2);

    // Killed in the middle of a request: the request is carried out on fresh processes, and
    // so is the next one.
    const QString longText = QString(kOneSentence + ' ').repeated(120);
    const QList<qint64> second = pipeline->processIds();
    auto running = engine.translate(EngineRequest{longText, "es", "en"});
    ::kill(pid_t(second.at(5)), SIGKILL);
    const TranslationResult during = QCoro::waitFor(running);
    QVERIFY2(during.isOk(), qPrintable(failure(during)));
    QVERIFY(during.value().translatedText.startsWith(expected));
    QCOMPARE(translated(engine, kOneSentence, "es", "en"), expected);
    QCOMPARE(pipeline->startCount(), 3);
    for (qint64 pid : first + second)
        QTRY_VERIFY(!processExists(pid));
}

void OfflineEngineTest::stuckPipelineTimesOutAndRestarts()
{
    OfflineEngine::Options options;
    options.requestTimeout = 1500ms;
    OfflineEngine engine(options);
    const QString expected = translated(engine, kOneSentence, "es", "en");
    const QList<qint64> pids = engine.processIds();

    ::kill(pid_t(pids.at(2)), SIGSTOP); // a stage that no longer answers
    const TranslationResult stuck = translate(engine, kOneSentence, "es", "en");
    QVERIFY(!stuck.isOk());
    QCOMPARE(stuck.error().kind(), Kind::Timeout);
    QCOMPARE(stuck.error().userMessage(), QStringLiteral("Translation timed out"));
    for (qint64 pid : pids)
        QTRY_VERIFY(!processExists(pid));

    QCOMPARE(translated(engine, kOneSentence, "es", "en"), expected);
}

void OfflineEngineTest::idlePipelineStopsAndStartsAgain()
{
    OfflineEngine::Options options;
    options.idleTimeout = 300ms;
    OfflineEngine engine(options);
    const QString expected = translated(engine, kOneSentence, "pt", "en");
    QCOMPARE(engine.pipelines().size(), 2); // the pivot runs both hops
    const QList<qint64> pids = engine.processIds();
    QVERIFY(!pids.isEmpty());

    QTRY_VERIFY_WITH_TIMEOUT(engine.processIds().isEmpty(), 10000);
    for (qint64 pid : pids)
        QTRY_VERIFY(!processExists(pid));

    QCOMPARE(translated(engine, kOneSentence, "pt", "en"), expected);
    QVERIFY(!engine.processIds().isEmpty());
}

void OfflineEngineTest::manyRequestsStayInStep()
{
    OfflineEngine engine;
    // Texts of every kind, each with its own number, all queued at once on one pipeline.
    const QStringList shapes = {
        "Room %1 is on the second floor.",
        "Order %1:\n\n- two apples\n- one [large] melon\n\nThanks!",
        "   %1   ",
        "%1",
        "Call me at 555-%1 tomorrow\tplease",
        "The zorblax %1 ate the fizzwidget.",
        "Price: %1 € {approx} <b>bold</b> \\ / @ ^ $",
    };
    QList<QString> texts;
    for (int i = 0; i < 70; ++i)
        texts.append(shapes.at(i % shapes.size()).arg(1000 + i));

    std::vector<QCoro::Task<TranslationResult>> tasks;
    for (const QString &text : texts)
        tasks.push_back(engine.translate(EngineRequest{text, "es", "en"}));
    QList<QString> answers;
    for (auto &task : tasks) {
        const TranslationResult result = QCoro::waitFor(task);
        QVERIFY2(result.isOk(), qPrintable(failure(result)));
        answers.append(result.value().translatedText);
    }
    QCOMPARE(engine.pipelines().constFirst()->startCount(), 1);
    // Each answer is the answer to its own text: the same as when asked alone, with its number.
    for (int i = 0; i < texts.size(); ++i) {
        QVERIFY2(answers.at(i).contains(QString::number(1000 + i)), qPrintable(answers.at(i)));
        if (i % shapes.size() == 0 || i % shapes.size() == 5 || i < shapes.size())
            QCOMPARE(answers.at(i), translated(engine, texts.at(i), "es", "en"));
    }
}

void OfflineEngineTest::destroyingTheEngineReapsItsProcesses()
{
    QList<qint64> pids;
    {
        OfflineEngine engine;
        translated(engine, kOneSentence, "it", "fr");
        pids = engine.processIds();
        QVERIFY(pids.size() > 10);
        for (qint64 pid : pids)
            QVERIFY(processExists(pid));
    }
    for (qint64 pid : pids)
        QVERIFY2(!processExists(pid), qPrintable(QString::number(pid)));
}

void OfflineEngineTest::pipelinesEndWithAProgramThatDies()
{
    // This test program, started again, warms two pipelines and ends without any cleanup.
    QProcess helper;
    helper.start(QCoreApplication::applicationFilePath(), {kExitAbruptly});
    QVERIFY(helper.waitForFinished(120000));
    QCOMPARE(helper.exitCode(), 0);
    const QByteArray output = helper.readAllStandardOutput();
    QList<qint64> pids;
    for (const QByteArray &pid : output.split('\n').last().split(' '))
        pids.append(pid.toLongLong());
    QVERIFY2(pids.size() > 10, output.constData());
    for (qint64 pid : pids)
        QTRY_VERIFY_WITH_TIMEOUT(!processRuns(pid), 10000);
}

void OfflineEngineTest::detectionAccuracyPerLanguage_data()
{
    QTest::addColumn<QString>("language");
    // Correct answers required out of the corpus' sentences / three-word / one-word lines, as
    // measured with Debian's CLD2 and the script rule.
    QTest::addColumn<int>("sentences");
    QTest::addColumn<int>("threeWords");
    QTest::addColumn<int>("oneWord");
    QTest::newRow("en") << "en" << 12 << 4 << 4;
    QTest::newRow("ja") << "ja" << 12 << 3 << 3; // 昨日 alone is written the same in Chinese
    QTest::newRow("ko") << "ko" << 12 << 3 << 4;
    QTest::newRow("zh") << "zh" << 12 << 4 << 4;
    QTest::newRow("vi") << "vi" << 12 << 4 << 4;
    QTest::newRow("fr") << "fr" << 12 << 4 << 3; // "hier" is German too
    QTest::newRow("de") << "de" << 12 << 4 << 3; // "gestern" is read as English
    QTest::newRow("es") << "es" << 12 << 4 << 2; // "entendido" is Portuguese too; "hermosa" is missed
    QTest::newRow("pt") << "pt" << 12 << 4 << 4;
    QTest::newRow("th") << "th" << 12 << 3 << 4;
    QTest::newRow("hi") << "hi" << 12 << 3 << 4;
    QTest::newRow("it") << "it" << 12 << 3 << 4; // "il tempo cambia" is read as Spanish
    QTest::newRow("ru") << "ru" << 12 << 4 << 4;
    QTest::newRow("ar") << "ar" << 12 << 3 << 4;
}

void OfflineEngineTest::detectionAccuracyPerLanguage()
{
    QFETCH(QString, language);
    QFETCH(int, sentences);
    QFETCH(int, threeWords);
    QFETCH(int, oneWord);

    QHash<QString, int> right, total;
    QStringList wrong;
    for (const Sample &sample : detectionSamples(language)) {
        const DetectedLanguage detected = LanguageDetector::detect(sample.text);
        ++total[sample.category];
        if (detected.code == language)
            ++right[sample.category];
        else
            wrong.append(sample.text + " -> " + (detected.isKnown() ? detected.code : "?"));
    }
    QCOMPARE(total["sentences"], 12);
    QVERIFY(total["three words"] >= 3 && total["one word"] == 4);
    QVERIFY2(right["sentences"] >= sentences, qPrintable(wrong.join(", ")));
    QVERIFY2(right["three words"] >= threeWords, qPrintable(wrong.join(", ")));
    QVERIFY2(right["one word"] >= oneWord, qPrintable(wrong.join(", ")));
}

void OfflineEngineTest::scriptRuleDecidesMixedText()
{
    QCOMPARE(LanguageDetector::detect("我用Windows电脑").code, QStringLiteral("zh"));
    QCOMPARE(LanguageDetector::detect("iPhoneを買いました").code, QStringLiteral("ja"));
    QCOMPARE(LanguageDetector::detect("Я люблю iPhone").code, QStringLiteral("ru"));
    // A foreign name does not turn an English sentence into Chinese.
    QCOMPARE(LanguageDetector::detect("Last year we visited 北京 with our children.").code, QStringLiteral("en"));
    // Nothing to go on.
    QVERIFY(!LanguageDetector::detect("12:30 😀 !!").isKnown());
    // Writing systems of no language of the table are not guessed at.
    QVERIFY(!LanguageDetector::detect("Καλημέρα, τι κάνεις σήμερα;").isKnown());
    QVERIFY(!LanguageDetector::detect("שלום, מה שלומך היום?").isKnown());
    // Candidates restrict the answer.
    QCOMPARE(LanguageDetector::detect("Muchas gracias", {"es", "pt"}).code, QStringLiteral("es"));
    QVERIFY(!LanguageDetector::detect("Доброе утро", {"en", "es"}).isKnown());
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 1 && QLatin1String(argv[1]) == kExitAbruptly) {
        OfflineEngine engine;
        translated(engine, kOneSentence, "pt", "en");
        QList<QByteArray> pids;
        for (qint64 pid : engine.processIds())
            pids.append(QByteArray::number(pid));
        std::fputs(pids.join(' ').constData(), stdout);
        std::fflush(stdout);
        std::_Exit(0); // no destructors, as in a crash
    }
    OfflineEngineTest test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "tst_offline_engine.moc"
