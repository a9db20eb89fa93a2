#include "service/ApertiumPipeline.h"

#include "state/Languages.h"
#include "state/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QCoro/QCoroSignal>

#include <utility>

#ifdef Q_OS_LINUX
#include <csignal>
#include <sys/prctl.h>
#endif

namespace {

const char *const kTag = "OfflineEngine";
const std::chrono::milliseconds kStartAllowance = std::chrono::seconds(10);

// Characters that carry meaning in Apertium's stream format and are escaped in text.
bool isSpecial(QChar c)
{
    switch (c.unicode()) {
    case '\\': case '[': case ']': case '/': case '@': case '<': case '>': case '^': case '$':
    case '{': case '}':
        return true;
    default:
        return false;
    }
}

// Blanks as the text format sees them; other white space travels as ordinary characters.
bool isBlank(QChar c)
{
    return c == QLatin1Char(' ') || c == QLatin1Char('\t') || c == QLatin1Char('\n')
        || c == QLatin1Char('\r');
}

// The stages Apertium's packages use that flush their output when a NUL arrives with -z.
bool canNullFlush(const QString &program)
{
    static const QSet<QString> programs = {
        QStringLiteral("lt-proc"),           QStringLiteral("apertium-tagger"),
        QStringLiteral("apertium-pretransfer"), QStringLiteral("apertium-transfer"),
        QStringLiteral("apertium-interchunk"), QStringLiteral("apertium-postchunk"),
        QStringLiteral("lrx-proc"),          QStringLiteral("cg-proc"),
    };
    return programs.contains(QFileInfo(program).fileName());
}

// Splits a .mode file (one shell pipeline) into its stages' words, honouring quotes.
QList<QStringList> splitPipeline(const QString &line)
{
    QList<QStringList> stages;
    QStringList words;
    QString word;
    bool inWord = false;
    QChar quote;
    auto endWord = [&] {
        if (inWord)
            words.append(word);
        word.clear();
        inWord = false;
    };
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (!quote.isNull()) {
            if (c == quote)
                quote = QChar();
            else
                word += c;
        } else if (c == QLatin1Char('\'') || c == QLatin1Char('"')) {
            quote = c;
            inWord = true;
        } else if (c == QLatin1Char('\\') && i + 1 < line.size()) {
            word += line.at(++i);
            inWord = true;
        } else if (c == QLatin1Char('|')) {
            endWord();
            if (!words.isEmpty())
                stages.append(words);
            words.clear();
        } else if (c.isSpace()) {
            endWord();
        } else {
            word += c;
            inWord = true;
        }
    }
    endWord();
    if (!words.isEmpty())
        stages.append(words);
    return stages;
}

QByteArray tagFor(quint64 id)
{
    // A superblank travels through every stage untouched: it tells which request an answer
    // belongs to, so an answer can never be handed to the wrong caller.
    return "[~" + QByteArray::number(id) + ']';
}

bool localeIsUtf8()
{
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    QString locale = env.value(QStringLiteral("LC_ALL"));
    if (locale.isEmpty())
        locale = env.value(QStringLiteral("LC_CTYPE"));
    if (locale.isEmpty())
        locale = env.value(QStringLiteral("LANG"));
    return locale.contains(QLatin1String("UTF-8"), Qt::CaseInsensitive)
        || locale.contains(QLatin1String("utf8"), Qt::CaseInsensitive);
}

QString trimBlanks(const QString &text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text.at(begin)))
        ++begin;
    while (end > begin && isBlank(text.at(end - 1)))
        --end;
    return text.mid(begin, end - begin);
}

} // namespace

namespace Apertium {

QStringList defaultModeDirectories()
{
    QStringList directories;
    for (const QString &root : {QStringLiteral("/usr/share/apertium"),
                               QStringLiteral("/usr/local/share/apertium")}) {
        const QDir dir(root);
        if (!dir.exists())
            continue;
        if (dir.exists(QStringLiteral("modes")))
            directories.append(dir.filePath(QStringLiteral("modes")));
        const QStringList pairs = dir.entryList({QStringLiteral("apertium-*")},
                                                QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
        for (const QString &pair : pairs) {
            const QString modes = dir.filePath(pair + QStringLiteral("/modes"));
            if (QFileInfo(modes).isDir())
                directories.append(modes);
        }
    }
    return directories;
}

QString tableCode(const QString &apertiumLanguage)
{
    static const QHash<QString, QString> threeLetter = {
        {QStringLiteral("eng"), QStringLiteral("en")}, {QStringLiteral("spa"), QStringLiteral("es")},
        {QStringLiteral("fra"), QStringLiteral("fr")}, {QStringLiteral("fre"), QStringLiteral("fr")},
        {QStringLiteral("por"), QStringLiteral("pt")}, {QStringLiteral("ita"), QStringLiteral("it")},
        {QStringLiteral("deu"), QStringLiteral("de")}, {QStringLiteral("ger"), QStringLiteral("de")},
        {QStringLiteral("rus"), QStringLiteral("ru")}, {QStringLiteral("jpn"), QStringLiteral("ja")},
        {QStringLiteral("kor"), QStringLiteral("ko")}, {QStringLiteral("zho"), QStringLiteral("zh")},
        {QStringLiteral("cmn"), QStringLiteral("zh")}, {QStringLiteral("vie"), QStringLiteral("vi")},
        {QStringLiteral("tha"), QStringLiteral("th")}, {QStringLiteral("hin"), QStringLiteral("hi")},
        {QStringLiteral("ara"), QStringLiteral("ar")},
    };
    const QString code = threeLetter.value(apertiumLanguage, apertiumLanguage);
    return isSupportedLanguage(code) ? code : QString();
}

std::optional<ApertiumMode> readMode(const QString &file, QString *why)
{
    auto fail = [why](const QString &reason) -> std::optional<ApertiumMode> {
        if (why)
            *why = reason;
        return std::nullopt;
    };

    ApertiumMode mode;
    mode.file = file;
    mode.name = QFileInfo(file).completeBaseName();

    // "eng-spa", "es-pt_BR": two languages, each with an optional variant. Other names
    // ("eco-es-fr", "eng-spa-tagger") are alternative or debugging pipelines.
    static const QRegularExpression direction(
        QStringLiteral("^([a-z]{2,3})(?:_([A-Za-z]+))?-([a-z]{2,3})(?:_([A-Za-z]+))?$"));
    const QRegularExpressionMatch match = direction.match(mode.name);
    if (!match.hasMatch())
        return fail(QStringLiteral("not a language direction"));
    mode.sourceCode = tableCode(match.captured(1));
    mode.targetCode = tableCode(match.captured(3));
    if (mode.sourceCode.isEmpty() || mode.targetCode.isEmpty())
        return fail(QStringLiteral("a language outside the language table"));
    mode.variant = (match.captured(2) + match.captured(4));

    QFile input(file);
    if (!input.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot be read"));
    const QList<QStringList> stages = splitPipeline(QString::fromUtf8(input.readAll()));
    if (stages.isEmpty())
        return fail(QStringLiteral("empty"));

    for (QStringList words : stages) {
        const QString program = words.first();
        if (!canNullFlush(program))
            return fail(program + QStringLiteral(" cannot run as a long-lived stage"));
        if (QStandardPaths::findExecutable(program).isEmpty()
            && !QFileInfo(program).isExecutable())
            return fail(program + QStringLiteral(" is not installed"));
        QStringList arguments;
        for (const QString &word : words.mid(1)) {
            if (word == QLatin1String("$1"))
                arguments.append(QStringLiteral("-n")); // generation without unknown-word marks
            else if (word == QLatin1String("$2"))
                continue; // the tagger's optional mode, unused
            else if (word.contains(QLatin1Char('$')))
                return fail(QStringLiteral("uses the shell variable ") + word);
            else if (word.startsWith(QLatin1Char('/')) && !QFileInfo::exists(word))
                return fail(QStringLiteral("data file missing: ") + word);
            else
                arguments.append(word);
        }
        if (!arguments.contains(QLatin1String("-z")))
            arguments.prepend(QStringLiteral("-z"));
        mode.stages.append(QStringList{program} + arguments);
    }
    return mode;
}

QList<ApertiumMode> discoverModes(const QStringList &directories)
{
    QList<ApertiumMode> modes;
    QSet<QString> seen;
    for (const QString &directory : directories) {
        const QDir dir(directory);
        const QStringList files = dir.entryList({QStringLiteral("*.mode")}, QDir::Files, QDir::Name);
        for (const QString &fileName : files) {
            const QString name = QFileInfo(fileName).completeBaseName();
            if (seen.contains(name))
                continue;
            QString why;
            std::optional<ApertiumMode> mode = readMode(dir.filePath(fileName), &why);
            if (!mode) {
                if (why != QLatin1String("not a language direction")
                    && why != QLatin1String("a language outside the language table"))
                    logLine(kTag, QStringLiteral("Apertium mode %1 left out: %2").arg(name, why));
                continue;
            }
            seen.insert(name);
            modes.append(*mode);
        }
    }
    return modes;
}

QByteArray deformat(const QString &text)
{
    QString out;
    out.reserve(text.size() + text.size() / 8 + 8);
    for (qsizetype i = 0; i < text.size();) {
        const QChar c = text.at(i);
        if (isBlank(c)) {
            qsizetype end = i;
            while (end < text.size() && isBlank(text.at(end)))
                ++end;
            const QStringView run = QStringView(text).mid(i, end - i);
            if (run == QLatin1String(" ")) {
                out += c;
            } else {
                // A blank line ends a paragraph: it ends the sentence before it too.
                if (run.contains(QLatin1String("\n\n")) || run.contains(QLatin1String("\r\n\r\n")))
                    out += QLatin1String(".[]");
                out += QLatin1Char('[');
                out += run;
                out += QLatin1Char(']');
            }
            i = end;
            continue;
        }
        if (c.unicode() == 0) {
            ++i; // a NUL would end the request early
            continue;
        }
        if (isSpecial(c))
            out += QLatin1Char('\\');
        out += c;
        ++i;
    }
    return out.toUtf8();
}

QString reformat(const QByteArray &stream)
{
    const QString in = QString::fromUtf8(stream);
    QString out;
    out.reserve(in.size());
    qsizetype dotAt = -1; // position in out of a '.' that came straight before, if any
    for (qsizetype i = 0; i < in.size();) {
        const QChar c = in.at(i);
        if (c == QLatin1Char('\\') && i + 1 < in.size()) {
            const QChar next = in.at(i + 1);
            if (!isSpecial(next))
                out += c;
            out += next;
            i += 2;
            dotAt = -1;
            continue;
        }
        if (c == QLatin1Char('[')) {
            qsizetype end = i + 1;
            QString content;
            while (end < in.size() && in.at(end) != QLatin1Char(']')) {
                if (in.at(end) == QLatin1Char('\\') && end + 1 < in.size())
                    ++end;
                content += in.at(end);
                ++end;
            }
            if (end >= in.size()) { // no closing bracket: keep the rest as it is
                out += QStringView(in).mid(i);
                break;
            }
            // ".[]" is the sentence end the format added; it goes with the empty block.
            if (content.isEmpty() && dotAt >= 0 && dotAt == out.size() - 1)
                out.chop(1);
            out += content;
            i = end + 1;
            dotAt = -1;
            continue;
        }
        out += c;
        dotAt = c == QLatin1Char('.') ? out.size() - 1 : -1;
        ++i;
    }
    return out;
}

} // namespace Apertium

ApertiumPipeline::ApertiumPipeline(ApertiumMode mode, QObject *parent)
    : QObject(parent), m_mode(std::move(mode))
{
    m_requestTimer.setSingleShot(true);
    connect(&m_requestTimer, &QTimer::timeout, this, &ApertiumPipeline::onRequestTimeout);
    m_idleTimer.setSingleShot(true);
    m_idleTimer.setInterval(std::chrono::minutes(5));
    connect(&m_idleTimer, &QTimer::timeout, this, [this] {
        if (m_current || !m_queue.empty() || !isRunning())
            return;
        logLine(kTag, m_mode.name + QStringLiteral(": idle, stopping"));
        tearDown();
    });
}

ApertiumPipeline::~ApertiumPipeline()
{
    m_requestTimer.stop();
    m_idleTimer.stop();
    failEverything(PipelineOutcome::Status::Stopped, QStringLiteral("shut down"));
    // Kill and reap every child now, so that none outlives us or stays a zombie.
    QList<QPointer<QProcess>> processes = m_dying;
    for (QProcess *stage : std::as_const(m_stages))
        processes.append(stage);
    for (const QPointer<QProcess> &process : std::as_const(processes)) {
        if (!process)
            continue;
        QObject::disconnect(process, nullptr, this, nullptr);
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(2000);
        }
        delete process;
    }
}

void ApertiumPipeline::setRequestTimeout(std::chrono::milliseconds timeout)
{
    m_requestTimeout = timeout;
}

void ApertiumPipeline::setIdleTimeout(std::chrono::milliseconds timeout)
{
    m_idleTimer.setInterval(timeout);
    if (m_idleTimer.isActive())
        m_idleTimer.start();
}

QList<qint64> ApertiumPipeline::processIds() const
{
    QList<qint64> ids;
    for (const QProcess *stage : m_stages) {
        if (stage->processId() > 0)
            ids.append(stage->processId());
    }
    return ids;
}

QCoro::Task<PipelineOutcome> ApertiumPipeline::translate(QString text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text.at(begin)))
        ++begin;
    while (end > begin && isBlank(text.at(end - 1)))
        --end;
    const QByteArray body = Apertium::deformat(text.mid(begin, end - begin));
    if (body.isEmpty())
        co_return PipelineOutcome{PipelineOutcome::Status::Ok, text, {}};

    auto job = std::make_shared<ApertiumPipelineJob>();
    job->id = ++m_nextId;
    // The final ".[]" ends the last sentence, so that every stage lets it through before the NUL.
    job->stream = tagFor(job->id) + body + ".[]" + '\0';
    m_idleTimer.stop();
    m_queue.push_back(job);
    pump();

    if (!job->done)
        co_await qCoro(job.get(), &ApertiumPipelineJob::finished);
    // From here on only the job is touched: the pipeline may be gone.
    PipelineOutcome outcome = job->outcome;
    if (outcome.status == PipelineOutcome::Status::Ok)
        outcome.text = text.left(begin) + trimBlanks(outcome.text) + text.mid(end);
    co_return outcome;
}

void ApertiumPipeline::pump()
{
    if (m_current)
        return;
    if (m_queue.empty()) {
        if (isRunning())
            m_idleTimer.start();
        return;
    }
    const bool starting = !isRunning();
    if (starting && !startProcesses()) {
        failEverything(PipelineOutcome::Status::FailedToStart,
                       QStringLiteral("the Apertium programs of %1 could not be started").arg(m_mode.name));
        return;
    }
    m_current = m_queue.front();
    m_queue.pop_front();
    m_output.clear();
    m_stages.first()->write(m_current->stream);
    // Freshly started stages first load their dictionaries: seconds on a busy machine.
    m_requestTimer.start(starting ? m_requestTimeout + kStartAllowance : m_requestTimeout);
}

bool ApertiumPipeline::startProcesses()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (!localeIsUtf8()) // the stages read and write UTF-8 only in a UTF-8 locale
        environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));

    m_errors.clear();
    for (qsizetype i = 0; i < m_mode.stages.size(); ++i) {
        auto *stage = new QProcess(this);
        stage->setProgram(m_mode.stages[i].first());
        stage->setArguments(m_mode.stages[i].mid(1));
        stage->setProcessEnvironment(environment);
#ifdef Q_OS_LINUX
        // Should this program end without cleaning up (a crash), its stages end with it.
        stage->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
#endif
        if (i > 0)
            m_stages.last()->setStandardOutputProcess(stage);
        connect(stage, &QProcess::readyReadStandardError, this, [this, stage] {
            m_errors += stage->readAllStandardError();
            if (m_errors.size() > 2048)
                m_errors = m_errors.right(2048);
        });
        const int index = int(i);
        connect(stage, &QProcess::finished, this, [this, index](int code, QProcess::ExitStatus status) {
            onStageStopped(index, status == QProcess::CrashExit
                                      ? QStringLiteral("killed or crashed")
                                      : QStringLiteral("exit code %1").arg(code));
        });
        connect(stage, &QProcess::errorOccurred, this, [this, index](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart)
                onStageStopped(index, QStringLiteral("could not start"));
        });
        m_stages.append(stage);
    }
    connect(m_stages.last(), &QProcess::readyReadStandardOutput, this, &ApertiumPipeline::onOutput);

    const QList<QProcess *> stages = m_stages;
    for (QProcess *stage : stages) {
        stage->start();
        if (m_stages.isEmpty()) // one could not start, and everything was torn down
            return false;
    }
    ++m_startCount;
    logLine(kTag, QStringLiteral("%1: started %2 processes").arg(m_mode.name).arg(m_stages.size()));
    Q_EMIT started();
    return true;
}

void ApertiumPipeline::tearDown()
{
    m_requestTimer.stop();
    m_idleTimer.stop();
    const QList<QProcess *> stages = std::exchange(m_stages, {});
    m_dying.removeAll(nullptr);
    for (QProcess *stage : stages) {
        QObject::disconnect(stage, nullptr, this, nullptr);
        if (stage->state() == QProcess::NotRunning) {
            stage->deleteLater();
        } else {
            connect(stage, &QProcess::finished, stage, &QObject::deleteLater);
            stage->kill();
            m_dying.append(stage);
        }
    }
    m_output.clear();
    if (!stages.isEmpty())
        Q_EMIT stopped();
}

void ApertiumPipeline::complete(PipelineOutcome::Status status, const QString &text,
                                const QString &detail)
{
    m_requestTimer.stop();
    const std::shared_ptr<ApertiumPipelineJob> job = std::exchange(m_current, nullptr);
    if (!job)
        return;
    job->outcome = PipelineOutcome{status, text, detail};
    job->done = true;
    Q_EMIT job->finished(); // the awaiting request resumes from the event loop
}

void ApertiumPipeline::failEverything(PipelineOutcome::Status status, const QString &detail)
{
    complete(status, {}, detail);
    while (!m_queue.empty()) {
        m_current = m_queue.front();
        m_queue.pop_front();
        complete(status, {}, detail);
    }
}

void ApertiumPipeline::onOutput()
{
    if (m_stages.isEmpty())
        return;
    m_output += m_stages.last()->readAllStandardOutput();
    qsizetype nul;
    while ((nul = m_output.indexOf('\0')) >= 0) {
        QByteArray answer = m_output.left(nul);
        m_output.remove(0, nul + 1);
        if (!m_current)
            continue;
        const QByteArray tag = tagFor(m_current->id);
        const qsizetype at = answer.indexOf(tag);
        if (at < 0) {
            onStageStopped(-1, QStringLiteral("answer out of step with its request"));
            return;
        }
        answer.remove(at, tag.size());
        complete(PipelineOutcome::Status::Ok, Apertium::reformat(answer));
        pump();
        if (m_stages.isEmpty())
            return;
    }
    if (m_output.size() > 16 * 1024 * 1024)
        onStageStopped(-1, QStringLiteral("answer without an end"));
}

void ApertiumPipeline::onStageStopped(int index, const QString &why)
{
    const QString program = index >= 0 && index < m_mode.stages.size()
                                ? m_mode.stages[index].first()
                                : QStringLiteral("pipeline");
    QString detail = QStringLiteral("%1 stopped (%2)").arg(program, why);
    const QString errors = QString::fromUtf8(m_errors).trimmed();
    if (!errors.isEmpty())
        detail += QStringLiteral(": ") + errors.section(QLatin1Char('\n'), -1);
    logLine(kTag, m_mode.name + QStringLiteral(": ") + detail);

    std::shared_ptr<ApertiumPipelineJob> job = std::exchange(m_current, nullptr);
    tearDown();
    if (job) {
        if (!job->retried) {
            // Once more on fresh processes: a pipeline killed from outside should not cost
            // the request it was working on.
            job->retried = true;
            m_queue.push_front(job);
        } else {
            m_current = job;
            complete(PipelineOutcome::Status::Died, {}, detail);
        }
    }
    // Starting again from inside a QProcess signal is fine, but the dying stages get their
    // own event-loop turn first.
    QTimer::singleShot(0, this, &ApertiumPipeline::pump);
}

void ApertiumPipeline::onRequestTimeout()
{
    if (!m_current)
        return;
    const QString detail = QStringLiteral("no answer within %1 ms").arg(m_requestTimer.interval());
    logLine(kTag, m_mode.name + QStringLiteral(": ") + detail + QStringLiteral("; restarting"));
    tearDown();
    complete(PipelineOutcome::Status::TimedOut, {}, detail);
    pump();
}
