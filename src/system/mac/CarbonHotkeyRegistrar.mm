// Global hot keys through the Carbon event manager: RegisterEventHotKey on the application
// event target and one application event handler for kEventHotKeyPressed. The handler runs on
// the main event loop. No Accessibility permission is needed.
#include "system/HotkeyRegistrar.h"

#include <QHash>

// Keep AssertMacros' lower-case check/verify/require macros out of this file.
#define __ASSERT_MACROS_DEFINE_VERSIONS_WITHOUT_UNDERSCORES 0
#include <Carbon/Carbon.h>

namespace {

// 'PRLT': the signature stamped on every hot key of this application.
constexpr OSType signature = ('P' << 24) | ('R' << 16) | ('L' << 8) | 'T';

class CarbonHotkeyRegistrar : public HotkeyRegistrar
{
public:
    ~CarbonHotkeyRegistrar() override
    {
        for (EventHotKeyRef ref : std::as_const(m_refs))
            UnregisterEventHotKey(ref);
        m_refs.clear();
        removeHandler();
    }

    int installHandler(PressHandler handler) override
    {
        m_handler = std::move(handler);
        if (m_handlerRef)
            return noErr;
        const EventTypeSpec pressed = {kEventClassKeyboard, kEventHotKeyPressed};
        return InstallEventHandler(GetApplicationEventTarget(), &CarbonHotkeyRegistrar::handleEvent, 1, &pressed, this,
                                   &m_handlerRef);
    }

    void removeHandler() override
    {
        if (m_handlerRef) {
            RemoveEventHandler(m_handlerRef);
            m_handlerRef = nullptr;
        }
        m_handler = nullptr;
    }

    Result registerHotkey(quint32 id, quint32 keyCode, quint32 modifiers) override
    {
        EventHotKeyID hotKeyID;
        hotKeyID.signature = signature;
        hotKeyID.id = id;
        EventHotKeyRef ref = nullptr;
        const OSStatus status = RegisterEventHotKey(keyCode, modifiers, hotKeyID, GetApplicationEventTarget(), 0, &ref);
        if (status != noErr)
            return {Outcome::Failed, int(status)};
        if (ref)
            m_refs.insert(id, ref);
        return {Outcome::Registered, 0};
    }

    void unregisterHotkey(quint32 id) override
    {
        if (EventHotKeyRef ref = m_refs.take(id))
            UnregisterEventHotKey(ref);
    }

private:
    static OSStatus handleEvent(EventHandlerCallRef, EventRef event, void *userData)
    {
        auto *self = static_cast<CarbonHotkeyRegistrar *>(userData);
        if (!self)
            return eventNotHandledErr;
        EventHotKeyID hotKeyID;
        const OSStatus status = GetEventParameter(event, kEventParamDirectObject, typeEventHotKeyID, nullptr,
                                                  sizeof hotKeyID, nullptr, &hotKeyID);
        if (status != noErr)
            return status;
        // Another application's hot key, or one no longer ours: let other handlers see it.
        if (hotKeyID.signature != signature || !self->m_handler || !self->m_handler(hotKeyID.id))
            return eventNotHandledErr;
        return noErr;
    }

    PressHandler m_handler;
    EventHandlerRef m_handlerRef = nullptr;
    QHash<quint32, EventHotKeyRef> m_refs;
};

} // namespace

std::unique_ptr<HotkeyRegistrar> createSystemHotkeyRegistrar()
{
    return std::make_unique<CarbonHotkeyRegistrar>();
}
