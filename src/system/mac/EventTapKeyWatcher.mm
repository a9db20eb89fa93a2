// Every key-down of the session through a listen-only Quartz event tap on the main run loop.
// Key codes are already the canonical ones; the Carbon modifier mask comes from the event flags
// and the text from the event's own Unicode string (the layout, dead keys and input source as
// the system applied them). Password fields never reach the tap: the system hides typing into
// them (secure input).
#include "state/HotkeyConfig.h"
#include "system/KeyWatcher.h"

#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>
#include <vector>

namespace {

class EventTapKeyWatcher final : public KeyWatcher
{
public:
    ~EventTapKeyWatcher() override { stop(); }

    bool start(Handler handler) override
    {
        if (m_tap)
            return true;
        m_handler = std::move(handler);
        m_tap = CGEventTapCreate(kCGSessionEventTap, kCGTailAppendEventTap, kCGEventTapOptionListenOnly,
                                 CGEventMaskBit(kCGEventKeyDown), &EventTapKeyWatcher::callback, this);
        if (!m_tap) {
            m_handler = {};
            return false;
        }
        m_source = CFMachPortCreateRunLoopSource(kCFAllocatorDefault, m_tap, 0);
        CFRunLoopAddSource(CFRunLoopGetMain(), m_source, kCFRunLoopCommonModes);
        CGEventTapEnable(m_tap, true);
        SynthesisedKeys::setWatching(true);
        return true;
    }

    void stop() override
    {
        if (!m_tap)
            return;
        SynthesisedKeys::setWatching(false);
        CGEventTapEnable(m_tap, false);
        if (m_source) {
            CFRunLoopRemoveSource(CFRunLoopGetMain(), m_source, kCFRunLoopCommonModes);
            CFRelease(m_source);
            m_source = nullptr;
        }
        CFMachPortInvalidate(m_tap);
        CFRelease(m_tap);
        m_tap = nullptr;
        m_handler = {};
    }

    bool isRunning() const override { return m_tap != nullptr; }

private:
    static CGEventRef callback(CGEventTapProxy, CGEventType type, CGEventRef event, void *userInfo)
    {
        auto *self = static_cast<EventTapKeyWatcher *>(userInfo);
        if (!self)
            return event;
        // The system switches a slow or interrupted tap off; switch it on again (the key that
        // came meanwhile is lost, nothing else changes).
        if (type == kCGEventTapDisabledByTimeout || type == kCGEventTapDisabledByUserInput) {
            if (self->m_tap)
                CGEventTapEnable(self->m_tap, true);
            return event;
        }
        if (type != kCGEventKeyDown)
            return event;
        self->handle(event);
        return event;
    }

    void handle(CGEventRef event)
    {
        KeyPress press;
        press.keyCode = quint32(CGEventGetIntegerValueField(event, kCGKeyboardEventKeycode));
        if (SynthesisedKeys::takePress(press.keyCode))
            return;
        const CGEventFlags flags = CGEventGetFlags(event);
        if (flags & kCGEventFlagMaskCommand)
            press.modifiers |= Modifier::Command;
        if (flags & kCGEventFlagMaskAlternate)
            press.modifiers |= Modifier::Option;
        if (flags & kCGEventFlagMaskControl)
            press.modifiers |= Modifier::Control;
        if (flags & kCGEventFlagMaskShift)
            press.modifiers |= Modifier::Shift;
        UniCharCount length = 0;
        CGEventKeyboardGetUnicodeString(event, 0, &length, nullptr);
        if (length > 0) {
            std::vector<UniChar> characters(length);
            CGEventKeyboardGetUnicodeString(event, length, &length, characters.data());
            press.text = QString::fromUtf16(reinterpret_cast<const char16_t *>(characters.data()), qsizetype(length));
            // Function keys type characters of the private use area (U+F700...): not text.
            press.text.removeIf([](QChar c) {
                return (c.unicode() < 0x20 && c != QLatin1Char('\t')) || c.unicode() == 0x7f
                    || (c.unicode() >= 0xF700 && c.unicode() <= 0xF8FF);
            });
        }
        if (m_handler)
            m_handler(press);
    }

    CFMachPortRef m_tap = nullptr;
    CFRunLoopSourceRef m_source = nullptr;
    Handler m_handler;
};

} // namespace

std::unique_ptr<KeyWatcher> createSystemKeyWatcher()
{
    return std::make_unique<EventTapKeyWatcher>();
}
