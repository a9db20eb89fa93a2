#include "app/SelectionTranslationFlow.h"
#include "service/TranslationService.h"
#include "state/AppState.h"
#include "state/Log.h"
#include "system/Accessibility.h"
#include "system/ClipboardManager.h"
#include "system/KeyboardSimulator.h"
#include "system/PermissionChecker.h"
#include "system/Workspace.h"
#include "ui/MenuBarController.h"
#include "ui/NotificationManager.h"
#include "ui/TranslationPopup.h"

#include <QCoro/QCoroTimer>

namespace {

const QString title = QStringLiteral("Parlanto");

QString describe(const std::optional<QRect> &rect)
{
    if (!rect)
        return QStringLiteral("nil");
    return QStringLiteral("(%1, %2, %3, %4)").arg(rect->x()).arg(rect->y()).arg(rect->width()).arg(rect->height());
}

// The notice for a failed translation: its body and identifier. The fixed texts, never the
// service's own message.
std::pair<QString, QString> failureNotice(const TranslationError &error)
{
    switch (error.kind()) {
    case TranslationError::Kind::Timeout:
        return {qtTrId("notification.timeout"), QStringLiteral("timeout")};
    case TranslationError::Kind::Unauthorized:
        return {qtTrId("notification.unauthorized"), QStringLiteral("unauthorized")};
    case TranslationError::Kind::TextTooLong:
        return {qtTrId("notification.text_too_long"), QStringLiteral("text_too_long")};
    case TranslationError::Kind::NetworkError:
        return {qtTrId("notification.network_error"), QStringLiteral("network_error")};
    default:
        return {qtTrId("notification.unknown_error"), QStringLiteral("unknown_error")};
    }
}

} // namespace

SelectionTranslationFlow::SelectionTranslationFlow(Parts parts, QObject *parent)
    : QObject(parent)
    , m_parts(parts)
{
}

QString SelectionTranslationFlow::formatResult(const QString &original, const QString &translation, const AppState &state)
{
    if (state.outputMode() != OutputMode::Bilingual)
        return translation;
    QString result = state.bilingualTemplate();
    result.replace(QLatin1String("{original}"), original);
    result.replace(QLatin1String("{translated}"), translation);
    return result;
}

void SelectionTranslationFlow::hotkeyPressed(const QString &targetLanguage)
{
    if (!m_parts.permission.isTrusted()) {
        if (m_openPermissionWindow)
            m_openPermissionWindow();
        return;
    }
    if (m_parts.state.isTranslating())
        return;
    run(targetLanguage);
}

void SelectionTranslationFlow::finish()
{
    m_parts.state.setIsTranslating(false);
    if (m_parts.menuBar)
        m_parts.menuBar->stopAnimating();
    Q_EMIT runFinished();
}

QCoro::Task<> SelectionTranslationFlow::run(QString targetLanguage)
{
    Parts &p = m_parts;
    const QString sourceApplication = p.workspace.frontmostApplicationId();
    p.state.setIsTranslating(true);
    if (p.menuBar)
        p.menuBar->startAnimating();

    // The hotkey's own grab takes the focus from the application until the keys are up.
    QCoro::Task<> keysUp = p.keyboard.waitForKeysUp();
    co_await keysUp;
    QCoro::Task<bool> editableProbe = p.accessibility.isFocusedElementEditable();
    const bool editable = co_await editableProbe;
    QCoro::Task<std::optional<QRect>> rectProbe = p.accessibility.selectionRect();
    const std::optional<QRect> selectionRect = co_await rectProbe;
    logLine("Popup", QStringLiteral("isEditable=%1, selectionRect=%2")
                         .arg(editable ? QStringLiteral("true") : QStringLiteral("false"), describe(selectionRect)));

    const PasteboardSnapshot snapshot = co_await p.clipboard.snapshot();
    const std::optional<QString> captured = co_await p.clipboard.captureSelectedText(sourceApplication);
    if (!captured) {
        p.clipboard.restore(snapshot);
        logLine("Popup", QStringLiteral("captureSelectedText returned nil \u2014 no text selected"));
        finish();
        co_return;
    }
    logLine("Popup", QStringLiteral("capturedText='") + captured->left(60) + QLatin1Char('\''));

    if (TranslationService::characterCount(*captured) > TranslationService::maxCharacters) {
        p.clipboard.restore(snapshot);
        p.notifications.post(title, qtTrId("notification.text_too_long"), {}, QStringLiteral("text_too_long"));
        finish();
        co_return;
    }

    const TranslationResult result = co_await p.translation.translate(*captured, targetLanguage);
    if (!result.isOk()) {
        p.clipboard.restore(snapshot);
        if (result.error().kind() == TranslationError::Kind::QuotaExceeded) {
            p.notifications.notifyQuotaExceeded();
        } else {
            const auto [body, identifier] = failureNotice(result.error());
            p.notifications.post(title, body, {}, identifier);
        }
        finish();
        co_return;
    }

    const QString text = formatResult(*captured, result.value().translatedText, p.state);
    const bool sameApplication = p.workspace.frontmostApplicationId() == sourceApplication;
    auto leaveOnClipboard = [&] {
        p.clipboard.restore(snapshot);
        p.clipboard.pasteboard().writeString(text, /*transient=*/false);
    };
    if (!editable) {
        logLine("Popup", QStringLiteral("Showing popup with translation"));
        p.clipboard.restore(snapshot);
        p.popup.show(text, targetLanguage, selectionRect);
    } else if (sameApplication && p.state.autoReplace()) {
        QCoro::Task<bool> paste = p.clipboard.pasteOrTypeAndRestore(text, snapshot, sourceApplication);
        if (!co_await paste) {
            leaveOnClipboard();
            p.notifications.notifyTranslationReady(text);
        }
    } else if (sameApplication) {
        leaveOnClipboard();
        p.notifications.post(title, qtTrId("notification.translation_copied"), {},
                             QStringLiteral("translation_copied"));
    } else {
        leaveOnClipboard();
        p.notifications.notifyTranslationReady(text);
    }
    finish();
}
