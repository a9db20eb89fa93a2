#include "system/HotkeyManager.h"
#include "state/KeyCodes.h"
#include "state/Log.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QUuid>
#include <algorithm>
#include <limits>

namespace {
const char *const tag = "HotkeyManager";
}

HotkeyManager::HotkeyManager(std::unique_ptr<HotkeyRegistrar> registrar, QObject *parent)
    : QObject(parent)
    , m_registrar(std::move(registrar))
{
    connect(m_registrar.get(), &HotkeyRegistrar::hotkeyReleased, this, [this] { Q_EMIT hotkeyReleased(); });
    connect(m_registrar.get(), &HotkeyRegistrar::registrationFailed, this, &HotkeyManager::handleLateFailure);
}

HotkeyManager::~HotkeyManager()
{
    teardown();
}

HotkeyManager &HotkeyManager::shared()
{
    // Owned by the application object, so that it goes before the windowing system does.
    static QPointer<HotkeyManager> instance;
    if (!instance)
        instance = new HotkeyManager(createSystemHotkeyRegistrar(), QCoreApplication::instance());
    return *instance;
}

void HotkeyManager::setHotkeyCallback(Callback callback)
{
    m_hotkeyCallback = std::move(callback);
}

void HotkeyManager::setNotifier(Notifier notifier)
{
    m_notifier = std::move(notifier);
}

void HotkeyManager::installEventHandler()
{
    const int status = m_registrar->installHandler([this](quint32 id) { return handlePress(id); });
    if (status != 0) {
        logLine(tag, QStringLiteral("Failed to install event handler: %1").arg(status));
        return;
    }
    m_handlerInstalled = true;
}

void HotkeyManager::registerHotkeys(const QList<HotkeyConfig> &configs, bool notifyOnConflict)
{
    unregisterAll();
    for (const HotkeyConfig &config : configs) {
        if (!config.isEnabled)
            continue;
        const quint32 id = m_nextHotkeyID;
        const bool accepted = registerHotkey(config);
        // Key code 0 stands for "no key recorded": never worth a notice.
        const bool wantsNotice = notifyOnConflict && config.keyCode != 0;
        if (!accepted && wantsNotice)
            postConflictNotice(config);
        else if (accepted && wantsNotice)
            m_pendingWithNotice.append(id);  // in case the system refuses it later
    }
}

bool HotkeyManager::registerHotkey(const HotkeyConfig &config)
{
    const quint32 id = m_nextHotkeyID;
    if (id == std::numeric_limits<quint32>::max())
        qFatal("[HotkeyManager] hot-key identifiers exhausted");
    ++m_nextHotkeyID;

    const HotkeyRegistrar::Result result = m_registrar->registerHotkey(id, config.keyCode, config.modifiers);
    if (result.outcome == HotkeyRegistrar::Outcome::Failed) {
        logLine(tag, QStringLiteral("Failed to register hotkey: %1").arg(result.status));
        return false;
    }
    m_hotkeyIDToLanguage.insert(id, config.targetLanguage);
    m_registeredHotkeys.append({hotkeySignature, id, config});
    logLine(tag, QStringLiteral("Registered hotkey %1 \u2192 %2: %3")
                     .arg(id)
                     .arg(config.targetLanguage, KeyCodes::shortcutDisplayText(config.keyCode, config.modifiers)));
    return true;
}

void HotkeyManager::unregisterAll()
{
    for (const Registration &registration : std::as_const(m_registeredHotkeys))
        m_registrar->unregisterHotkey(registration.id);
    m_registeredHotkeys.clear();
    m_hotkeyIDToLanguage.clear();
    m_pendingWithNotice.clear();
}

void HotkeyManager::teardown()
{
    unregisterAll();
    if (m_handlerInstalled) {
        m_registrar->removeHandler();
        m_handlerInstalled = false;
    }
}

bool HotkeyManager::isHotkeyHeld() const
{
    return m_registrar->isHotkeyHeld();
}

bool HotkeyManager::handlePress(quint32 id)
{
    const auto found = m_hotkeyIDToLanguage.constFind(id);
    if (found == m_hotkeyIDToLanguage.constEnd())
        return false;
    // Never inside the system's handler: one event-loop turn later, and not at all once the
    // manager is gone.
    QMetaObject::invokeMethod(
        this,
        [this, language = *found] {
            if (m_hotkeyCallback)
                m_hotkeyCallback(language);
        },
        Qt::QueuedConnection);
    return true;
}

void HotkeyManager::handleLateFailure(quint32 id, int status)
{
    const auto it = std::find_if(m_registeredHotkeys.begin(), m_registeredHotkeys.end(),
                                 [id](const Registration &r) { return r.id == id; });
    if (it == m_registeredHotkeys.end())
        return;
    const HotkeyConfig config = it->config;
    m_registeredHotkeys.erase(it);
    m_hotkeyIDToLanguage.remove(id);
    logLine(tag, QStringLiteral("Failed to register hotkey: %1").arg(status));
    if (m_pendingWithNotice.removeAll(id) > 0)
        postConflictNotice(config);
}

void HotkeyManager::postConflictNotice(const HotkeyConfig &config)
{
    if (!m_notifier)
        return;
    m_notifier(QStringLiteral("hotkey_conflict_") + config.id.toString(QUuid::WithoutBraces).toUpper(),
               QStringLiteral("Parlanto \u2014 Shortcut Conflict"),
               KeyCodes::shortcutDisplayText(config.keyCode, config.modifiers)
                   + QStringLiteral(" couldn't be registered. It may already be in use by another app."));
}
