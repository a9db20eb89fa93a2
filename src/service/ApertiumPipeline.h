#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QCoro/QCoroTask>

#include <chrono>
#include <deque>
#include <memory>
#include <optional>

// One installed Apertium translation mode (a .mode file such as eng-spa.mode): its direction and
// the programs of its pipeline, each ready to run with null-flushing and without unknown-word
// markers.
struct ApertiumMode
{
    QString name;       // "eng-spa", "es-pt_BR"
    QString sourceCode; // language-table code of the source, "en"
    QString targetCode; // "es"
    QString variant;    // "BR" for es-pt_BR; empty for the plain direction
    QString file;       // the .mode file it was read from
    QList<QStringList> stages; // program and arguments of each stage, in order
};

namespace Apertium {

// Where the installed modes are looked for: <root>/modes and <root>/apertium-*/modes under
// /usr/share/apertium and /usr/local/share/apertium.
QStringList defaultModeDirectories();

// Every usable mode in the directories (the first file of a name wins). Modes whose
// languages are not in the language table, that need a program which is not installed or
// cannot null-flush, or that name a missing data file are left out, with a log line.
QList<ApertiumMode> discoverModes(const QStringList &directories = defaultModeDirectories());

// Reads one .mode file; on failure returns nothing and says why.
std::optional<ApertiumMode> readMode(const QString &file, QString *why = nullptr);

// The language-table code of an Apertium language name ("eng" -> "en", "es" -> "es"), or an
// empty string when the table does not have it.
QString tableCode(const QString &apertiumLanguage);

// Plain text to Apertium's stream format, the way apertium-destxt writes it: the special
// characters escaped, line breaks, tabs and runs of blanks kept aside in [...] superblanks,
// a paragraph break marked as the end of a sentence. The text must not begin or end with a
// blank; the end-of-request marker is not included.
QByteArray deformat(const QString &text);

// The stream format back to plain text, the way apertium-retxt reads it.
QString reformat(const QByteArray &stream);

} // namespace Apertium

// How one request on a pipeline ended.
struct PipelineOutcome
{
    enum class Status {
        Ok,            // text holds the translation
        TimedOut,      // no answer within the request time-out; the pipeline was restarted
        Died,          // the pipeline stopped twice while working on the request
        FailedToStart, // a program of the pipeline could not be started
        Stopped,       // the pipeline was destroyed before answering
    };
    Status status = Status::Stopped;
    QString text;
    QString detail; // what went wrong, for the log and the error message
};

// A request waiting in a pipeline's queue; the caller awaits its finished() signal.
class ApertiumPipelineJob : public QObject
{
    Q_OBJECT
public:
    quint64 id = 0;
    QByteArray stream; // what goes into the first stage, up to and including the NUL
    bool retried = false;
    bool done = false;
    PipelineOutcome outcome;

Q_SIGNALS:
    void finished();
};

// One Apertium direction kept warm: its stages run as child processes chained stdout to stdin,
// each started with -z so that a NUL after a request makes every stage flush. Requests are
// answered one at a time in the order they came; each gets a time-out after which the pipeline
// is killed and started again. A pipeline that dies is started again (the request it was working
// on is tried once more), stops itself after an idle time, and is killed with its owner.
class ApertiumPipeline : public QObject
{
    Q_OBJECT
public:
    explicit ApertiumPipeline(ApertiumMode mode, QObject *parent = nullptr);
    ~ApertiumPipeline() override;

    const ApertiumMode &mode() const { return m_mode; }

    // How long one request may take; the first after a start gets ten seconds more.
    void setRequestTimeout(std::chrono::milliseconds timeout);
    void setIdleTimeout(std::chrono::milliseconds timeout);

    // Translates one text, starting the processes when they are not running. Blanks at either
    // end never go through Apertium and come back exactly as they were.
    QCoro::Task<PipelineOutcome> translate(QString text);

    bool isRunning() const { return !m_stages.isEmpty(); }
    // The process ids of the running stages, first to last.
    QList<qint64> processIds() const;
    // How many times the processes have been started.
    int startCount() const { return m_startCount; }

Q_SIGNALS:
    void started();
    void stopped();

private:
    void pump();
    bool startProcesses();
    void tearDown();
    void complete(PipelineOutcome::Status status, const QString &text, const QString &detail = {});
    void failEverything(PipelineOutcome::Status status, const QString &detail);
    void onOutput();
    void onStageStopped(int index, const QString &why);
    void onRequestTimeout();

    ApertiumMode m_mode;
    QList<QProcess *> m_stages;
    QList<QPointer<QProcess>> m_dying; // killed, not yet reaped
    QByteArray m_output;
    QByteArray m_errors; // the tail of what the stages wrote to standard error
    std::deque<std::shared_ptr<ApertiumPipelineJob>> m_queue;
    std::shared_ptr<ApertiumPipelineJob> m_current;
    QTimer m_requestTimer;
    std::chrono::milliseconds m_requestTimeout = std::chrono::seconds(10);
    QTimer m_idleTimer;
    quint64 m_nextId = 0;
    int m_startCount = 0;
};
