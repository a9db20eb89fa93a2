#include "service/OfflineEngine.h"

#include "service/LanguageDetector.h"
#include "state/Languages.h"

#include <QRegularExpression>
#include <QTextBoundaryFinder>

#include <utility>

namespace {

// Spanish is the hub of the Apertium pairs Debian ships.
const QString kPivot = QStringLiteral("es");

const QString kOnlineHint = QStringLiteral(
    "An online engine (DeepL, LibreTranslate or an OpenAI-compatible model) can do the rest.");

QString normalisedCode(const QString &code)
{
    QString normalised = code.trimmed().toLower();
    const qsizetype separator = normalised.indexOf(QRegularExpression(QStringLiteral("[-_]")));
    if (separator > 0)
        normalised.truncate(separator);
    return normalised;
}

qint64 graphemeCount(const QString &text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qint64 count = 0;
    while (finder.toNextBoundary() > 0)
        ++count;
    return count;
}

bool hasLetters(const QString &text)
{
    for (const QChar c : text) {
        if (c.isLetter())
            return true;
    }
    return false;
}

TranslationError errorFor(const PipelineOutcome &outcome)
{
    switch (outcome.status) {
    case PipelineOutcome::Status::TimedOut:
        return TranslationError::timeout();
    case PipelineOutcome::Status::Stopped:
        return TranslationError::unknownError(0, QStringLiteral("the offline translator was shut down"));
    case PipelineOutcome::Status::Ok:
    case PipelineOutcome::Status::Died:
    case PipelineOutcome::Status::FailedToStart:
        break;
    }
    return TranslationError::unknownError(0, QStringLiteral("the offline translator failed: ") + outcome.detail);
}

} // namespace

QString OfflineDirection::describe() const
{
    QString text = source + QStringLiteral(" \u2192 ") + target;
    if (isPivot())
        text += QStringLiteral(" (via ") + kPivot + QLatin1Char(')');
    return text;
}

OfflineEngine::OfflineEngine() : OfflineEngine(Options{}) {}

OfflineEngine::OfflineEngine(Options options) : m_options(std::move(options))
{
    for (const ApertiumMode &mode : Apertium::discoverModes(m_options.modeDirectories))
        m_modes.insert(mode.name, mode);
    // The installed pairs do not change while we run: every route is worked out once.
    for (const Language &source : supportedLanguages()) {
        for (const Language &target : supportedLanguages()) {
            if (std::optional<OfflineDirection> direction = findRoute(source.code, target.code))
                m_directions.append(*direction);
        }
    }
}

OfflineEngine::~OfflineEngine()
{
    m_alive.reset();
    qDeleteAll(m_pipelines);
}

QString OfflineEngine::id() const
{
    return QStringLiteral("offline");
}

bool OfflineEngine::isConfigured() const
{
    return !m_modes.isEmpty();
}

QString OfflineEngine::directModeName(const QString &source, const QString &target) const
{
    // The plain direction (es-pt) before a regional variant of it (es-pt_BR).
    const ApertiumMode *best = nullptr;
    for (const ApertiumMode &mode : m_modes) {
        if (mode.sourceCode != source || mode.targetCode != target)
            continue;
        const auto rank = [](const ApertiumMode *m) { return std::make_pair(!m->variant.isEmpty(), m->name); };
        if (!best || rank(&mode) < rank(best))
            best = &mode;
    }
    return best ? best->name : QString();
}

std::optional<OfflineDirection> OfflineEngine::route(const QString &source, const QString &target) const
{
    for (const OfflineDirection &direction : m_directions) {
        if (direction.source == source && direction.target == target)
            return direction;
    }
    return std::nullopt;
}

std::optional<OfflineDirection> OfflineEngine::findRoute(const QString &source, const QString &target) const
{
    if (source == target)
        return std::nullopt;
    const QString direct = directModeName(source, target);
    if (!direct.isEmpty())
        return OfflineDirection{source, target, {direct}};
    if (source == kPivot || target == kPivot)
        return std::nullopt;
    const QString first = directModeName(source, kPivot);
    const QString second = directModeName(kPivot, target);
    if (first.isEmpty() || second.isEmpty())
        return std::nullopt;
    return OfflineDirection{source, target, {first, second}};
}

QList<OfflineDirection> OfflineEngine::directions() const
{
    return m_directions;
}

QStringList OfflineEngine::directionNames() const
{
    QStringList names;
    for (const OfflineDirection &direction : directions())
        names.append(direction.describe());
    return names;
}

QStringList OfflineEngine::languages() const
{
    QStringList codes;
    for (const Language &language : supportedLanguages()) {
        for (const OfflineDirection &direction : m_directions) {
            if (direction.source == language.code || direction.target == language.code) {
                codes.append(language.code);
                break;
            }
        }
    }
    return codes;
}

QString OfflineEngine::languageList() const
{
    QStringList names;
    for (const QString &code : languages())
        names.append(languageName(code));
    if (names.size() < 2)
        return names.join(QString());
    const QString last = names.takeLast();
    return names.join(QStringLiteral(", ")) + QStringLiteral(" and ") + last;
}

QList<ApertiumPipeline *> OfflineEngine::pipelines() const
{
    return m_pipelines.values();
}

QList<qint64> OfflineEngine::processIds() const
{
    QList<qint64> ids;
    for (const ApertiumPipeline *pipeline : m_pipelines)
        ids += pipeline->processIds();
    return ids;
}

ApertiumPipeline *OfflineEngine::pipelineFor(const QString &modeName)
{
    ApertiumPipeline *&pipeline = m_pipelines[modeName];
    if (!pipeline) {
        pipeline = new ApertiumPipeline(m_modes.value(modeName));
        pipeline->setIdleTimeout(m_options.idleTimeout);
        pipeline->setRequestTimeout(m_options.requestTimeout);
    }
    return pipeline;
}

QCoro::Task<TranslationResult> OfflineEngine::translate(EngineRequest request)
{
    if (m_modes.isEmpty()) {
        co_return TranslationError::serverError(QStringLiteral(
            "Offline translation needs Apertium's language pairs (the Debian packages "
            "apertium-eng-spa, apertium-fr-es, apertium-es-pt, apertium-spa-ita), and none is "
            "installed. ") + kOnlineHint);
    }

    // Everything that cannot work is refused before any process starts.
    QStringList sources;
    QStringList targets;
    for (const OfflineDirection &direction : m_directions) {
        sources.append(direction.source);
        targets.append(direction.target);
    }
    const auto can = [this] { return QStringLiteral("Offline translation works between %1; ").arg(languageList()); };
    const QString target = normalisedCode(request.targetLanguage);
    if (!targets.contains(target)) {
        co_return TranslationError::serverError(
            can() + QStringLiteral("it cannot translate into %1. ").arg(languageName(target)) + kOnlineHint);
    }
    if (!hasLetters(request.text)) // numbers, symbols, emoji: nothing to translate
        co_return TranslateResponse{request.text, graphemeCount(request.text), std::nullopt};

    QString source = normalisedCode(request.sourceLanguage);
    if (source.isEmpty()) {
        const DetectedLanguage detected = LanguageDetector::detect(request.text);
        if (!detected.isKnown()) {
            co_return TranslationError::serverError(
                can() + QStringLiteral("it could not tell which language this text is in. ") + kOnlineHint);
        }
        source = detected.code;
    }
    if (source == target)
        co_return TranslateResponse{request.text, graphemeCount(request.text), std::nullopt};
    if (!sources.contains(source)) {
        co_return TranslationError::serverError(
            can() + QStringLiteral("it cannot translate from %1, the language of this text. ")
                      .arg(languageName(source)) + kOnlineHint);
    }
    const std::optional<OfflineDirection> direction = route(source, target);
    if (!direction) {
        co_return TranslationError::serverError(
            can() + QStringLiteral("it cannot translate from %1 into %2. ")
                      .arg(languageName(source), languageName(target)) + kOnlineHint);
    }

    const std::weak_ptr<char> alive = m_alive;
    QString text = request.text;
    for (const QString &modeName : direction->modes) {
        const PipelineOutcome outcome = co_await pipelineFor(modeName)->translate(text);
        if (alive.expired())
            co_return TranslationError::unknownError(0, QStringLiteral("the offline translator was shut down"));
        if (outcome.status != PipelineOutcome::Status::Ok)
            co_return errorFor(outcome);
        text = outcome.text;
    }
    if (text.trimmed().isEmpty())
        co_return TranslationError::unknownError(0, QStringLiteral("the offline translator returned nothing"));
    co_return TranslateResponse{text, graphemeCount(request.text), std::nullopt};
}
