#include "inline/InlineTranslationManager.h"

#include "inline/InlineTranslationHUD.h"
#include "service/TranslationService.h"
#include "state/AppState.h"
#include "state/Log.h"
#include "system/ClipboardManager.h"
#include "system/KeyboardSimulator.h"
#include "system/PermissionChecker.h"
#include "system/TextOffsets.h"
#include "system/Workspace.h"

#include <QPointer>
#include <QTextBoundaryFinder>
#include <QTimer>
#include <QCoro/QCoroTimer>

using namespace std::chrono_literals;

namespace {

const char *const tag = "InlineTranslation";
const QString title = QStringLiteral("Parlanto");

// Waits between the steps: the application takes the space, the deletions, the selection.
constexpr auto settleAfterTrigger = 60ms;
constexpr auto settleAfterDeleting = 60ms;
constexpr auto settleInFallback = 80ms;
constexpr auto settleAfterPaste = 200ms;
constexpr auto fallbackSettleAfterPaste = 150ms;
// Rounds of deleting what a field left over (fields that take a key for less than a whole
// user-perceived character, as Qt's do with combining marks).
constexpr int deletionRounds = 4;

int graphemeCount(const QString &text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (finder.toNextBoundary() > 0)
        ++count;
    return count;
}

QString trimSpacesAndTabs(const QString &text)
{
    qsizetype start = 0;
    qsizetype end = text.size();
    auto blank = [](QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t'); };
    while (start < end && blank(text[start]))
        ++start;
    while (end > start && blank(text[end - 1]))
        --end;
    return text.mid(start, end - start);
}

QString describe(const QRect &rect)
{
    return QStringLiteral("(%1, %2, %3, %4)").arg(rect.x()).arg(rect.y()).arg(rect.width()).arg(rect.height());
}

QString errorText(const TranslationError &error)
{
    return error.userMessage();
}

} // namespace

InlineTranslationManager::InlineTranslationManager(Parts parts, std::unique_ptr<KeyWatcher> watcher, QObject *parent)
    : QObject(parent)
    , m_parts(parts)
    , m_watcher(std::move(watcher))
{
}

InlineTranslationManager::~InlineTranslationManager()
{
    stop();
    // A translation under way ends here: its task finds the manager gone.
    if (m_runInFlight) {
        InlineTranslationHUD::shared().hide();
        m_parts.state.setIsTranslating(false);
    }
}

void InlineTranslationManager::start()
{
    if (m_running)
        return;
    if (!m_parts.permission.isTrusted()) {
        logLine(tag, QStringLiteral("\u26a0 No accessibility permission"));
        return;
    }
    QPointer<InlineTranslationManager> self(this);
    if (!m_watcher || !m_watcher->start([self](const KeyPress &press) {
            if (self)
                self->handleKey(press);
        })) {
#ifdef Q_OS_MACOS
        logLine(tag, QStringLiteral("\u2717 Failed to create CGEventTap"));
#else
        logLine(tag, QStringLiteral("\u2717 Failed to start the key watcher (XInput 2)"));
#endif
        return;
    }
    m_running = true;
    if (m_parts.workspace)
        m_appSwitchConnection = connect(m_parts.workspace, &Workspace::activeApplicationChanged, this,
                                        &InlineTranslationManager::onAppSwitch);
    logLine(tag, QStringLiteral("\u2713 Started"));
}

void InlineTranslationManager::stop()
{
    if (!m_running)
        return;
    m_watcher->stop();
    m_running = false;
    m_pendingKeys.clear();
    m_buffer.clear();
    m_sessionStartOffset = 0;
    disconnect(m_appSwitchConnection);
    logLine(tag, QStringLiteral("Stopped"));
}

void InlineTranslationManager::onAppSwitch()
{
    m_buffer.clear();
    m_pendingKeys.clear();
    m_sessionStartOffset = 0;
    m_lastFocusedElement = {};
    logLine(tag, QStringLiteral("App switched \u2014 buffer & session reset"));
}

void InlineTranslationManager::handleKey(const KeyPress &press)
{
#ifdef Q_OS_MACOS
    // The system keeps typing into password fields away from event taps (secure input).
    applyKey(press);
    Q_EMIT keysApplied();
    return;
#endif
    m_pendingKeys.append(press);
    if (!m_applyingKeys)
        applyPendingKeys();
}

// Keys go into the buffer only once the focused field is known not to be a password field: each
// batch of keys waits for a look at the field taken after its last key arrived.
QCoro::Task<> InlineTranslationManager::applyPendingKeys()
{
    QPointer<InlineTranslationManager> self(this);
    m_applyingKeys = true;
    while (!m_pendingKeys.isEmpty()) {
        const QList<KeyPress> batch = std::exchange(m_pendingKeys, {});
        auto lookTask = m_parts.accessibility.focusedElement(Accessibility::Read::Element);
        const std::optional<FocusedElement> focused = co_await lookTask;
        if (!self)
            co_return;
        if (!m_running)
            break;
        const bool password = focused && focused->isPassword;
        if (password != m_inPasswordField) {
            m_inPasswordField = password;
            logLine(tag, password ? QStringLiteral("Password field focused \u2014 typing is not watched")
                                  : QStringLiteral("Left the password field \u2014 typing is watched again"));
        }
        if (password) {
            m_buffer.clear();
            continue;
        }
        for (const KeyPress &press : batch)
            applyKey(press);
    }
    m_applyingKeys = false;
    Q_EMIT keysApplied();
}

void InlineTranslationManager::applyKey(const KeyPress &press)
{
    const KeystrokeBuffer::Outcome outcome = m_buffer.handleKey(press);
    switch (outcome.kind) {
    case KeystrokeBuffer::Outcome::Kind::Kept:
    case KeystrokeBuffer::Outcome::Kind::Cleared:
        break;
    case KeystrokeBuffer::Outcome::Kind::SessionEnded:
        m_sessionStartOffset = 0;
        break;
    case KeystrokeBuffer::Outcome::Kind::Trigger: {
        logLine(tag, QStringLiteral("Trigger detected: lang=%1, triggerLen=%2").arg(outcome.language).arg(outcome.triggerLength));
        QPointer<InlineTranslationManager> self(this);
        QTimer::singleShot(0, this, [self, language = outcome.language, length = outcome.triggerLength] {
            if (self)
                self->performInlineTranslation(language, length);
        });
        break;
    }
    }
}

void InlineTranslationManager::performInlineTranslation(const QString &targetLanguage, int triggerLength)
{
    if (!m_parts.state.inlineTranslationEnabled())
        return;
    if (m_parts.state.isTranslating()) {
        logLine(tag, QStringLiteral("Skipped \u2014 already translating"));
        return;
    }
    m_parts.state.setIsTranslating(true);
    m_runInFlight = true;
    run(targetLanguage, triggerLength);
}

void InlineTranslationManager::finish()
{
    m_runInFlight = false;
    m_parts.state.setIsTranslating(false);
    Q_EMIT translationFinished();
}

QString InlineTranslationManager::formatOutput(const QString &source, const QString &translation) const
{
    if (m_parts.state.outputMode() != OutputMode::Bilingual)
        return translation;
    QString output = m_parts.state.bilingualTemplate();
    output.replace(QLatin1String("{original}"), source);
    output.replace(QLatin1String("{translated}"), translation);
    return output;
}

QCoro::Task<> InlineTranslationManager::run(QString targetLanguage, int triggerLength)
{
    QPointer<InlineTranslationManager> self(this);
    co_await QCoro::sleepFor(settleAfterTrigger);
    if (!self)
        co_return;
    const QString applicationId = m_parts.workspace ? m_parts.workspace->frontmostApplicationId() : QString();

    auto readTask = readSourceViaAX(triggerLength);
    const SourceRead read = co_await readTask;
    if (!self)
        co_return;
    if (read.isPassword) {
        logLine(tag, QStringLiteral("Password field \u2014 nothing is translated"));
        finish();
        co_return;
    }
    if (!read.source) {
        auto fallback = runFallback(targetLanguage, triggerLength, applicationId);
        co_await fallback;
        co_return;
    }
    const QString source = *read.source;
    const int sourceLength = TextOffsets::characterCount(source);
    logLine(tag, QStringLiteral("AX source: '%1' (%2 chars)").arg(source).arg(sourceLength));

    auto translateTask = translateShowingProgress(source, targetLanguage);
    const std::optional<TranslationResult> answer = co_await translateTask;
    if (!self || !answer)
        co_return;
    const TranslationResult &result = *answer;
    if (!result.isOk()) {
        logLine(tag, QStringLiteral("\u2717 Error: ") + errorText(result.error()));
        showInlineError(result.error());
        finish();
        co_return;
    }
    const QString translation = result.value().translatedText;
    logLine(tag, QStringLiteral("\u2713 Result: '%1'").arg(translation));
    const QString output = formatOutput(source, translation);
    const int deleteCount = sourceLength + triggerLength;
    logLine(tag, QStringLiteral("Deleting %1 chars then pasting (mode: %2)")
                     .arg(deleteCount)
                     .arg(rawValue(m_parts.state.outputMode())));

    auto deleteTask = deleteTypedText(read, deleteCount);
    co_await deleteTask;
    if (!self)
        co_return;
    auto snapshotTask = m_parts.clipboard.snapshot();
    const PasteboardSnapshot snapshot = co_await snapshotTask;
    if (!self)
        co_return;
    auto pasteTask = m_parts.clipboard.pasteOrTypeAndRestore(output, snapshot, applicationId);
    co_await pasteTask;
    if (!self)
        co_return;
    // pasteAndRestore comes back 0.1 s after the paste keys.
    co_await QCoro::sleepFor(settleAfterPaste - ClipboardManager::pasteResumeDelay);
    if (!self)
        co_return;
    auto sessionTask = updateSessionStart();
    co_await sessionTask;
    if (!self)
        co_return;
    finish();
}

// Takes away the source and the trigger before the caret. A Delete press takes at most one
// user-perceived character (GTK: a whole letter with its accents; Qt: one code point), so as
// many presses as there are such characters never take more than was typed; what a field
// leaves over is read back and deleted in a further round.
QCoro::Task<> InlineTranslationManager::deleteTypedText(SourceRead read, int deleteCount)
{
    QPointer<InlineTranslationManager> self(this);
    const int keep = read.cursor - deleteCount;   // characters in front of the deleted ones
    QString rest = TextOffsets::characterMid(read.before, std::max(keep, 0));
    for (int round = 0; round < deletionRounds && !rest.isEmpty(); ++round) {
        auto pressTask = m_parts.keys.deleteCharacters(graphemeCount(rest));
        co_await pressTask;
        if (!self)
            co_return;
        co_await QCoro::sleepFor(settleAfterDeleting);
        if (!self || keep < 0)
            co_return;
        auto lookTask = m_parts.accessibility.focusedElement(Accessibility::Read::WithText);
        const std::optional<FocusedElement> field = co_await lookTask;
        if (!self || !field || field->id != read.element || !field->text || field->caret < 0)
            co_return;
        const int left = field->caret - keep;
        // Only what is left of the typed text, never what was typed since: each round must gain.
        if (left <= 0 || left >= TextOffsets::characterCount(rest))
            co_return;
        // A busy application may not have taken all our keys yet: more keys now would eat text
        // in front. Only a reading that holds a moment later counts.
        co_await QCoro::sleepFor(settleAfterDeleting);
        if (!self)
            co_return;
        auto againTask = m_parts.accessibility.focusedElement(Accessibility::Read::WithText);
        const std::optional<FocusedElement> again = co_await againTask;
        if (!self || !again || again->id != field->id || again->text != field->text || again->caret != field->caret)
            co_return;
        rest = TextOffsets::characterMid(*field->text, keep, left);
    }
}

QCoro::Task<std::optional<TranslationResult>> InlineTranslationManager::translateShowingProgress(QString source,
                                                                                               QString targetLanguage)
{
    QPointer<InlineTranslationManager> self(this);
    auto rectTask = cursorRect();
    const std::optional<QRect> caret = co_await rectTask;
    if (!self)
        co_return std::nullopt;
    InlineTranslationHUD::shared().show(caret);
    logLine(tag, QStringLiteral("Calling API: '%1' \u2192 %2").arg(source, targetLanguage));
    auto translateTask = m_parts.translation.translate(source, targetLanguage);
    TranslationResult result = co_await translateTask;
    if (!self)
        co_return std::nullopt;
    InlineTranslationHUD::shared().hide();
    co_return result;
}

QCoro::Task<> InlineTranslationManager::runFallback(QString targetLanguage, int triggerLength, QString applicationId)
{
    QPointer<InlineTranslationManager> self(this);
    logLine(tag, QStringLiteral("AX unavailable \u2014 clipboard fallback"));
    auto deleteTask = m_parts.keys.deleteCharacters(triggerLength);
    co_await deleteTask;
    co_await QCoro::sleepFor(settleInFallback);
    if (!self)
        co_return;
    auto selectTask = m_parts.keys.selectToLineStart();
    co_await selectTask;
    co_await QCoro::sleepFor(settleInFallback);
    if (!self)
        co_return;

    auto snapshotTask = m_parts.clipboard.snapshot();
    const PasteboardSnapshot snapshot = co_await snapshotTask;
    if (!self)
        co_return;
    auto captureTask = m_parts.clipboard.captureSelectedText(applicationId);
    const std::optional<QString> captured = co_await captureTask;
    if (!self)
        co_return;
    const QString source = captured.value_or(QString()).trimmed();
    logLine(tag, QStringLiteral("Clipboard source: '%1'").arg(source));
    if (source.isEmpty()) {
        m_parts.clipboard.restore(snapshot);
        logLine(tag, QStringLiteral("\u2717 Empty source \u2014 aborting"));
        finish();
        co_return;
    }

    auto translateTask = translateShowingProgress(source, targetLanguage);
    const std::optional<TranslationResult> answer = co_await translateTask;
    if (!self || !answer)
        co_return;
    const TranslationResult &result = *answer;
    if (!result.isOk()) {
        auto rightTask = m_parts.keys.pressRightArrow();
        co_await rightTask;
        if (!self)
            co_return;
        m_parts.clipboard.restore(snapshot);
        logLine(tag, QStringLiteral("\u2717 Fallback error: ") + errorText(result.error()));
        showInlineError(result.error());
        finish();
        co_return;
    }
    const QString translation = result.value().translatedText;
    logLine(tag, QStringLiteral("\u2713 Fallback result: '%1'").arg(translation));
    const QString output = formatOutput(source, translation);
    // The paste replaces the selected line.
    auto pasteTask = m_parts.clipboard.pasteOrTypeAndRestore(output, snapshot, applicationId);
    co_await pasteTask;
    if (!self)
        co_return;
    co_await QCoro::sleepFor(fallbackSettleAfterPaste - ClipboardManager::pasteResumeDelay);
    if (!self)
        co_return;
    finish();
}

QCoro::Task<InlineTranslationManager::SourceRead> InlineTranslationManager::readSourceViaAX(int triggerLength)
{
    QPointer<InlineTranslationManager> self(this);
    SourceRead read;
    auto lookTask = m_parts.accessibility.focusedElement(Accessibility::Read::WithText);
    const std::optional<FocusedElement> field = co_await lookTask;
    if (!self)
        co_return read;
    if (!field) {
        logLine(tag, QStringLiteral("AX: no focused element"));
        co_return read;
    }
    if (field->isPassword) {
        read.isPassword = true;
        co_return read;
    }
    if (!m_lastFocusedElement.isNull() && m_lastFocusedElement != field->id) {
        logLine(tag, QStringLiteral("AX: focused element changed \u2014 resetting sessionStartOffset"));
        m_sessionStartOffset = 0;
    }
    m_lastFocusedElement = field->id;
    read.element = field->id;

    const std::optional<int> cursor = field->caret >= 0 ? std::optional<int>(field->caret)
        : field->selection                              ? std::optional<int>(field->selection->start)
                                                        : std::nullopt;
    if (!field->hasText || !cursor) {
        logLine(tag, QStringLiteral("AX: no selected range"));
        co_return read;
    }
    logLine(tag, QStringLiteral("AX cursor: %1, sessionStart: %2").arg(*cursor).arg(m_sessionStartOffset));
    if (!field->text) {
        logLine(tag, QStringLiteral("AX: no text value"));
        co_return read;
    }
    const QString &text = *field->text;
    const int length = TextOffsets::characterCount(text);
    logLine(tag, QStringLiteral("AX full text (%1 chars): '%2'").arg(length).arg(TextOffsets::characterMid(text, 0, 60)));
    if (*cursor < 1 || length < *cursor)
        co_return read;
    read.cursor = *cursor;
    read.before = TextOffsets::characterMid(text, 0, *cursor);
    if (*cursor < triggerLength)
        co_return read;
    const QString body = TextOffsets::characterMid(read.before, 0, *cursor - triggerLength);
    const int bodyLength = *cursor - triggerLength;
    const int start = int(std::min<qint64>(m_sessionStartOffset, bodyLength));
    const QString segment = TextOffsets::characterMid(body, start);
    const QString line = segment.mid(segment.lastIndexOf(QLatin1Char('\n')) + 1);
    const QString source = trimSpacesAndTabs(line);
    if (!source.isEmpty())
        read.source = source;
    co_return read;
}

QCoro::Task<std::optional<QRect>> InlineTranslationManager::cursorRect()
{
    QPointer<InlineTranslationManager> self(this);
    auto lookTask = m_parts.accessibility.focusedElement(Accessibility::Read::Element);
    const std::optional<FocusedElement> field = co_await lookTask;
    if (!self || !field || field->isPassword)
        co_return std::nullopt;
    const int caret = field->caret >= 0 ? field->caret : field->selection ? field->selection->start : -1;
    if (caret < 0)
        co_return std::nullopt;
    auto boundsTask = m_parts.accessibility.boundsForRange(field->id, TextRange{caret, 0});
    const std::optional<QRect> bounds = co_await boundsTask;
    if (!bounds)
        co_return std::nullopt;
#ifdef Q_OS_MACOS
    logLine(tag, QStringLiteral("Cursor rect (CG): ") + describe(*bounds));
#else
    logLine(tag, QStringLiteral("Cursor rect: ") + describe(*bounds));
#endif
    if (bounds->isEmpty())
        co_return std::nullopt;
    co_return bounds;
}

QCoro::Task<> InlineTranslationManager::updateSessionStart()
{
    QPointer<InlineTranslationManager> self(this);
    auto lookTask = m_parts.accessibility.focusedElement(Accessibility::Read::Element);
    const std::optional<FocusedElement> field = co_await lookTask;
    if (!self || !field || field->isPassword)
        co_return;
    const int caret = field->caret >= 0 ? field->caret : field->selection ? field->selection->start : -1;
    if (caret < 0)
        co_return;
    m_sessionStartOffset = caret;
    m_lastFocusedElement = field->id;
    logLine(tag, QStringLiteral("Session start updated \u2192 %1").arg(caret));
}

void InlineTranslationManager::showInlineError(const TranslationError &error)
{
    QString body;
    QString identifier;
    switch (error.kind()) {
    case TranslationError::Kind::ServerError:
        body = error.message();
        identifier = QStringLiteral("inline_server");
        break;
    case TranslationError::Kind::TextTooLong:
        body = qtTrId("notification.text_too_long");
        identifier = QStringLiteral("inline_toolong");
        break;
    case TranslationError::Kind::Timeout:
        body = qtTrId("notification.timeout");
        identifier = QStringLiteral("inline_timeout");
        break;
    case TranslationError::Kind::NetworkError:
        body = qtTrId("notification.network_error");
        identifier = QStringLiteral("inline_net");
        break;
    default:
        break;
    }
    if (body.isEmpty()) {   // any other error, or a server error without a message
        body = qtTrId("notification.unknown_error");
        identifier = QStringLiteral("inline_err");
    }
    if (m_notifier)
        m_notifier(identifier, title, body);
    else
        logLine("Parlanto", title + QStringLiteral(": ") + body);
}
