#pragma once

#include "inline/KeystrokeBuffer.h"
#include "service/TranslationTypes.h"
#include "system/Accessibility.h"
#include "system/KeyWatcher.h"

#include <QList>
#include <QObject>
#include <QRect>
#include <QString>
#include <QCoro/QCoroTask>
#include <functional>
#include <memory>
#include <optional>

class AppState;
class ClipboardManager;
class KeyboardSimulator;
class PermissionChecker;
class TranslationError;
class TranslationService;
class Workspace;

// Type-to-translate in any text field: watches the keys the user types, and when a trigger
// ("Good morning @ja" and a space) completes, reads the text typed on the current line through
// accessibility (or, where the field exposes none, selects it and copies it), translates it,
// and replaces the text and the trigger with the translation through the clipboard, which is
// given back afterwards. Nothing is buffered while the focused field is a password field.
// Main thread only.
class InlineTranslationManager : public QObject
{
    Q_OBJECT
public:
    struct Parts {
        AppState &state;
        PermissionChecker &permission;
        Accessibility &accessibility;
        ClipboardManager &clipboard;
        KeyboardSimulator &keys;
        TranslationService &translation;
        Workspace *workspace = nullptr;   // application switches; may be absent
    };
    // Shows a notice to the user: identifier of its kind, title, body.
    using Notifier = std::function<void(const QString &, const QString &, const QString &)>;

    InlineTranslationManager(Parts parts, std::unique_ptr<KeyWatcher> watcher, QObject *parent = nullptr);
    ~InlineTranslationManager() override;

    void setNotifier(Notifier notifier) { m_notifier = std::move(notifier); }

    // Starts listening (once trusted for accessibility); a second start does nothing.
    void start();
    // Stops listening and forgets what was typed; without a start it does nothing.
    void stop();
    bool isRunning() const { return m_running; }

    // Another application came to the front.
    void onAppSwitch();

    // One key press as the watcher delivers it.
    void handleKey(const KeyPress &press);

    // Translates what was typed before a trigger of `triggerLength` characters into
    // `targetLanguage`, in place. Returns at once; translationFinished() tells the end.
    void performInlineTranslation(const QString &targetLanguage, int triggerLength);

    // What the user sees of the buffer: how many characters it holds (never its text).
    int bufferLength() const { return m_buffer.length(); }
    qint64 sessionStartOffset() const { return m_sessionStartOffset; }

Q_SIGNALS:
    // Typed keys were applied to the buffer (after the focused field was checked).
    void keysApplied();
    // An inline translation ended, whichever way.
    void translationFinished();

private:
    struct SourceRead {
        std::optional<QString> source;   // none: no usable text through accessibility
        bool isPassword = false;
        AccessibleElementId element;
        int cursor = 0;                  // characters before the caret
        QString before;                  // the field's characters before the caret
    };

    QCoro::Task<> applyPendingKeys();
    void applyKey(const KeyPress &press);
    QCoro::Task<> run(QString targetLanguage, int triggerLength);
    QCoro::Task<> runFallback(QString targetLanguage, int triggerLength, QString applicationId);
    QCoro::Task<SourceRead> readSourceViaAX(int triggerLength);
    QCoro::Task<> deleteTypedText(SourceRead read, int deleteCount);
    QCoro::Task<std::optional<QRect>> cursorRect();
    // The engine's answer, with the progress pill at the caret meanwhile; none when this
    // manager went away while waiting.
    QCoro::Task<std::optional<TranslationResult>> translateShowingProgress(QString source, QString targetLanguage);
    QCoro::Task<> updateSessionStart();
    QString formatOutput(const QString &source, const QString &translation) const;
    void showInlineError(const TranslationError &error);
    void finish();

    Parts m_parts;
    std::unique_ptr<KeyWatcher> m_watcher;
    Notifier m_notifier;
    bool m_running = false;
    KeystrokeBuffer m_buffer;
    qint64 m_sessionStartOffset = 0;
    AccessibleElementId m_lastFocusedElement;   // null: none seen yet
    QList<KeyPress> m_pendingKeys;
    bool m_applyingKeys = false;
    bool m_inPasswordField = false;
    bool m_runInFlight = false;
    QMetaObject::Connection m_appSwitchConnection;
};
