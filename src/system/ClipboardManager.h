#pragma once

#include "system/Pasteboard.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QCoro/QCoroTask>
#include <chrono>
#include <memory>
#include <optional>

class KeyboardSimulator;

// Reads the user's selection out of any application and writes a translation back into it,
// with the clipboard as the carrier. Both directions overwrite the clipboard, so each works
// against a snapshot of all of it, which is put back afterwards, every type byte for byte.
// Main thread only; callers serialise captures and pastes.
class ClipboardManager : public QObject
{
    Q_OBJECT

public:
    // After the copy keystroke, the longest wait for the copied text (earlier as soon as the
    // clipboard changes).
    static constexpr std::chrono::milliseconds captureWait{150};
    // After the paste keystroke: the caller resumes, and the user's clipboard comes back once
    // the target has taken the text, or anyway at the deadline.
    static constexpr std::chrono::milliseconds pasteResumeDelay{100};
    static constexpr std::chrono::milliseconds restoreDelay{150};
    static constexpr std::chrono::milliseconds restoreDeadline{1000};

    ClipboardManager(std::unique_ptr<Pasteboard> pasteboard, KeyboardSimulator &keys, QObject *parent = nullptr);
    ~ClipboardManager() override;

    // The process-wide manager, on the shared KeyboardSimulator and the system's clipboard
    // unless one was installed (before or after first use: the shared object stays the same).
    static ClipboardManager &shared();
    static void setSharedPasteboard(std::unique_ptr<Pasteboard> pasteboard);

    Pasteboard &pasteboard() { return *m_pasteboard; }

    // The whole clipboard (bounded in time and size: see Pasteboard::snapshot).
    QCoro::Task<PasteboardSnapshot> snapshot();
    // Puts a snapshot back. When the clipboard has not changed since the snapshot was taken it
    // is already as it was and is left alone.
    void restore(const PasteboardSnapshot &snapshot);

    // The selected text of the frontmost application (identified as in ApplicationChords), or
    // none: nothing selected, only non-text data copied, or a text its owner marked secret. When
    // a text is returned the clipboard may hold the copied selection: restoring the user's
    // clipboard is the caller's business. With none, the clipboard is as it was.
    QCoro::Task<std::optional<QString>> captureSelectedText(QString applicationId = {});

    // Puts text on the clipboard and sends the application's paste keys. The caller resumes
    // 0.1 s later with true, or at once with false when the text could not be placed; the
    // original clipboard is restored in every case, 0.15 s after the keystroke once the target
    // has taken the text, and at the latest after 1 s. Applications that get no paste keys have
    // the text typed (pasteByTypingAndRestore).
    QCoro::Task<bool> pasteAndRestore(QString text, PasteboardSnapshot originalSnapshot, QString applicationId = {});

    // The second paste method, for when the paste keys did not reach the field: the text is
    // typed through synthesised keys (or, where typing goes through the clipboard, placed there
    // first and restored as above). True when everything went out.
    QCoro::Task<bool> pasteByTypingAndRestore(QString text, PasteboardSnapshot originalSnapshot);

    // The two methods in turn: the paste, then typing where the paste keys did not reach the
    // field. False when neither placed the text; the clipboard comes back either way.
    QCoro::Task<bool> pasteOrTypeAndRestore(QString text, PasteboardSnapshot originalSnapshot, QString applicationId = {});

private:
    void setPasteboard(std::unique_ptr<Pasteboard> pasteboard);
    void scheduleRestore(PasteboardSnapshot snapshot, bool waitForTaken);
    void finishPendingRestore();
    QCoro::Task<bool> waitForChangeSince(qint64 count, std::chrono::milliseconds bound);

    struct PendingRestore {
        PasteboardSnapshot snapshot;
        qint64 writtenCount = 0;   // the clipboard's count right after our text was put there
        bool waitForTaken = false;
        bool taken = false;
        QElapsedTimer since;
    };

    std::unique_ptr<Pasteboard> m_pasteboard;
    KeyboardSimulator &m_keys;
    std::optional<PendingRestore> m_pending;
    QTimer m_restoreTimer;
};
