#pragma once

#include "state/HotkeyConfig.h"
#include "system/HotkeyRegistrar.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <functional>
#include <memory>

// Turns the user's shortcut-to-language bindings into system-wide hot keys and calls one
// callback, on the main thread and one event-loop turn after the press, with the language of
// the shortcut pressed. Main thread only.
class HotkeyManager : public QObject
{
    Q_OBJECT
public:
    using Callback = std::function<void(const QString &language)>;
    // Posts a user notification (identifier, title, body).
    using Notifier = std::function<void(const QString &identifier, const QString &title, const QString &body)>;

    // One registered shortcut.
    struct Registration {
        quint32 signature = 0;
        quint32 id = 0;
        HotkeyConfig config;
    };

    // 'PRLT', stamped on every hot key of this application.
    static constexpr quint32 hotkeySignature = (quint32('P') << 24) | (quint32('R') << 16) | (quint32('L') << 8) | quint32('T');

    explicit HotkeyManager(std::unique_ptr<HotkeyRegistrar> registrar, QObject *parent = nullptr);
    ~HotkeyManager() override;

    // The process-wide manager on this system's registrar, created on first use (after the
    // GUI application object).
    static HotkeyManager &shared();

    void setHotkeyCallback(Callback callback);
    // Where conflict notices go (the notification centre); none: conflicts are only logged.
    void setNotifier(Notifier notifier);

    // Starts receiving presses; call once, after setting the callback.
    void installEventHandler();
    // Replaces every registration by the enabled configs of the list, in order. A config the
    // system refuses stays inactive and, when notifyOnConflict is set and a key was recorded
    // (key code not 0), the user gets a conflict notice.
    void registerHotkeys(const QList<HotkeyConfig> &configs, bool notifyOnConflict);
    // True when the system accepted the shortcut. Consumes an identifier either way.
    bool registerHotkey(const HotkeyConfig &config);
    void unregisterAll();
    // At termination: unregisters everything and stops receiving presses.
    void teardown();

    QList<Registration> registeredHotkeys() const { return m_registeredHotkeys; }
    QHash<quint32, QString> hotkeyIDToLanguage() const { return m_hotkeyIDToLanguage; }
    quint32 nextHotkeyID() const { return m_nextHotkeyID; }

    // Whether the key of the hot key that fired last is still held down. Keys synthesised for
    // another application (copy, paste) must wait until it is not: on X11 they would reach us.
    bool isHotkeyHeld() const;

Q_SIGNALS:
    // The held hot key was released (see isHotkeyHeld()).
    void hotkeyReleased();

private:
    bool handlePress(quint32 id);
    void handleLateFailure(quint32 id, int status);
    void postConflictNotice(const HotkeyConfig &config);

    std::unique_ptr<HotkeyRegistrar> m_registrar;
    QList<Registration> m_registeredHotkeys;
    bool m_handlerInstalled = false;
    Callback m_hotkeyCallback;
    Notifier m_notifier;
    quint32 m_nextHotkeyID = 1;
    QHash<quint32, QString> m_hotkeyIDToLanguage;
    // Identifiers still awaiting the system's answer whose failure should be announced.
    QList<quint32> m_pendingWithNotice;
};
