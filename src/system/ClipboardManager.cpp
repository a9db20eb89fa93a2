#include "system/ClipboardManager.h"

#include "system/ApplicationChords.h"
#include "system/AwaitSignal.h"
#include "system/KeyboardSimulator.h"

#include <QCoreApplication>
#include <QCoro/QCoroTimer>

namespace {

std::unique_ptr<ClipboardManager> &sharedManager()
{
    static std::unique_ptr<ClipboardManager> manager;
    return manager;
}

// The shared manager owns a connection to the display and socket notifiers: it goes with the
// application object, not with the static destructors after it.
void dropSharedManager()
{
    sharedManager().reset();
}

void installShared(std::unique_ptr<ClipboardManager> manager)
{
    static bool routineAdded = false;
    if (!routineAdded && QCoreApplication::instance()) {
        qAddPostRoutine(dropSharedManager);
        routineAdded = true;
    }
    sharedManager() = std::move(manager);
}

bool isUsable(const PasteboardText &text)
{
    return !text.concealed && text.text && !text.text->isEmpty();
}

} // namespace

ClipboardManager::ClipboardManager(std::unique_ptr<Pasteboard> pasteboard, KeyboardSimulator &keys, QObject *parent)
    : QObject(parent)
    , m_keys(keys)
{
    m_restoreTimer.setSingleShot(true);
    connect(&m_restoreTimer, &QTimer::timeout, this, [this] {
        if (!m_pending)
            return;
        const auto elapsed = std::chrono::milliseconds(m_pending->since.elapsed());
        if (m_pending->waitForTaken && !m_pending->taken && elapsed < restoreDeadline) {
            m_restoreTimer.start(restoreDeadline - elapsed);
            return;
        }
        finishPendingRestore();
    });
    setPasteboard(std::move(pasteboard));
}

void ClipboardManager::setPasteboard(std::unique_ptr<Pasteboard> pasteboard)
{
    finishPendingRestore();
    m_pasteboard = std::move(pasteboard);
    connect(m_pasteboard.get(), &Pasteboard::pastedTextTaken, this, [this] {
        if (!m_pending)
            return;
        m_pending->taken = true;
        if (std::chrono::milliseconds(m_pending->since.elapsed()) >= restoreDelay)
            finishPendingRestore();
    });
}

ClipboardManager::~ClipboardManager()
{
    finishPendingRestore();
}

ClipboardManager &ClipboardManager::shared()
{
    if (!sharedManager())
        installShared(std::make_unique<ClipboardManager>(createSystemPasteboard(), KeyboardSimulator::shared()));
    return *sharedManager();
}

void ClipboardManager::setSharedPasteboard(std::unique_ptr<Pasteboard> pasteboard)
{
    if (sharedManager())
        sharedManager()->setPasteboard(std::move(pasteboard));
    else
        installShared(std::make_unique<ClipboardManager>(std::move(pasteboard), KeyboardSimulator::shared()));
}

QCoro::Task<PasteboardSnapshot> ClipboardManager::snapshot()
{
    finishPendingRestore();
    co_return co_await m_pasteboard->snapshot();
}

void ClipboardManager::restore(const PasteboardSnapshot &snapshot)
{
    finishPendingRestore();
    if (m_pasteboard->changeCount() == snapshot.changeCount)
        return;
    m_pasteboard->write(snapshot.items);
}

QCoro::Task<std::optional<QString>> ClipboardManager::captureSelectedText(QString applicationId)
{
    finishPendingRestore();
    const ApplicationChords chords = chordsForApplication(applicationId);
    if (chords.capture == ApplicationChords::Capture::ActiveSelection) {
        const PasteboardText selected = co_await m_pasteboard->readActiveSelection();
        co_return isUsable(selected) ? selected.text : std::nullopt;
    }
    if (!chords.copy)
        co_return std::nullopt;

    const PasteboardSnapshot own = co_await m_pasteboard->snapshot();
    m_pasteboard->clear();
    const qint64 cleared = m_pasteboard->changeCount();
    PasteboardText copied;
    if (co_await m_keys.simulateCopy(applicationId) && co_await waitForChangeSince(cleared, captureWait))
        copied = co_await m_pasteboard->readText();
    if (isUsable(copied))
        co_return copied.text;
    m_pasteboard->write(own.items);
    co_return std::nullopt;
}

QCoro::Task<bool> ClipboardManager::pasteAndRestore(QString text, PasteboardSnapshot originalSnapshot,
                                                    QString applicationId)
{
    finishPendingRestore();
    if (!chordsForApplication(applicationId).paste)
        co_return co_await pasteByTypingAndRestore(std::move(text), std::move(originalSnapshot));
    if (!m_pasteboard->writeString(text)) {
        scheduleRestore(std::move(originalSnapshot), false);
        co_return false;
    }
    co_await m_keys.simulatePaste(applicationId);
    scheduleRestore(std::move(originalSnapshot), m_pasteboard->reportsTextTaken());
    co_await QCoro::sleepFor(pasteResumeDelay);
    co_return true;
}

QCoro::Task<bool> ClipboardManager::pasteByTypingAndRestore(QString text, PasteboardSnapshot originalSnapshot)
{
    finishPendingRestore();
    if (!m_keys.typesFromClipboard()) {
        // The text goes in as keys: the user's clipboard can come back before it does.
        restore(originalSnapshot);
        co_return co_await m_keys.typeText(std::move(text));
    }
    if (!m_pasteboard->writeString(text)) {
        scheduleRestore(std::move(originalSnapshot), false);
        co_return false;
    }
    const bool typed = co_await m_keys.typeText(std::move(text));
    scheduleRestore(std::move(originalSnapshot), m_pasteboard->reportsTextTaken());
    co_await QCoro::sleepFor(pasteResumeDelay);
    co_return typed;
}

QCoro::Task<bool> ClipboardManager::pasteOrTypeAndRestore(QString text, PasteboardSnapshot originalSnapshot,
                                                          QString applicationId)
{
    QCoro::Task<bool> paste = pasteAndRestore(text, originalSnapshot, std::move(applicationId));
    if (co_await paste)
        co_return true;
    QCoro::Task<bool> typing = pasteByTypingAndRestore(std::move(text), std::move(originalSnapshot));
    co_return co_await typing;
}

void ClipboardManager::scheduleRestore(PasteboardSnapshot snapshot, bool waitForTaken)
{
    finishPendingRestore();
    PendingRestore pending;
    pending.snapshot = std::move(snapshot);
    pending.writtenCount = m_pasteboard->changeCount();
    pending.waitForTaken = waitForTaken;
    pending.since.start();
    m_pending = std::move(pending);
    m_restoreTimer.start(restoreDelay);
}

void ClipboardManager::finishPendingRestore()
{
    if (!m_pending)
        return;
    const PendingRestore pending = std::move(*m_pending);
    m_pending.reset();
    m_restoreTimer.stop();
    // Someone else has replaced our text meanwhile: what they put there stays.
    if (m_pasteboard->changeCount() != pending.writtenCount)
        return;
    if (m_pasteboard->changeCount() == pending.snapshot.changeCount)
        return;
    m_pasteboard->write(pending.snapshot.items);
}

QCoro::Task<bool> ClipboardManager::waitForChangeSince(qint64 count, std::chrono::milliseconds bound)
{
    QElapsedTimer waited;
    waited.start();
    while (m_pasteboard->changeCount() == count) {
        const auto left = bound - std::chrono::milliseconds(waited.elapsed());
        if (left <= std::chrono::milliseconds::zero())
            co_return false;
        co_await AwaitSignal::wait(m_pasteboard.get(), &Pasteboard::changed, left);
    }
    co_return true;
}
