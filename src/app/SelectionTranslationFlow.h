#pragma once

#include <QObject>
#include <QString>
#include <QCoro/QCoroTask>
#include <functional>

class Accessibility;
class AppState;
class ClipboardManager;
class KeyboardSimulator;
class MenuBarController;
class NotificationManager;
class PermissionChecker;
class TranslationPopup;
class TranslationService;
class Workspace;

// From a hotkey press to a visible result: capture the selection through the clipboard,
// translate it, then paste it over the selection, show it in the popup, or leave it on the
// clipboard with a notice. The user's clipboard comes back on every path.
class SelectionTranslationFlow : public QObject
{
    Q_OBJECT
public:
    struct Parts {
        AppState &state;
        PermissionChecker &permission;
        Accessibility &accessibility;
        ClipboardManager &clipboard;
        KeyboardSimulator &keyboard;
        Workspace &workspace;
        TranslationService &translation;
        TranslationPopup &popup;
        NotificationManager &notifications;
        MenuBarController *menuBar = nullptr; // may be absent
    };

    explicit SelectionTranslationFlow(Parts parts, QObject *parent = nullptr);

    // Shows the permission window when the program lacks what it needs.
    void setPermissionWindowOpener(std::function<void()> open) { m_openPermissionWindow = std::move(open); }

    // The hotkey callback: starts a run into the language unless one is under way.
    void hotkeyPressed(const QString &targetLanguage);

    // The bilingual or plain output for a translation.
    static QString formatResult(const QString &original, const QString &translation, const AppState &state);

Q_SIGNALS:
    // A run ended, whichever way (for tests and the benchmark).
    void runFinished();

private:
    QCoro::Task<> run(QString targetLanguage);
    void finish();

    Parts m_parts;
    std::function<void()> m_openPermissionWindow;
};
