// Synthesised keys on macOS: keyboard events posted at the HID event tap. The events carry key
// codes (positions on the ANSI layout), so Command+C is key code 8 on any layout; modifiers
// travel only as the events' flags, never as presses of their own, so a key the user still
// holds is not added to them. The second paste method is System Events' Command+V.
// Manual reference counting, as in the other macOS sources.
#include "state/HotkeyConfig.h"
#include "system/KeyWatcher.h"
#include "system/KeySynthesiser.h"

#import <ApplicationServices/ApplicationServices.h>
#import <Foundation/Foundation.h>

#include <optional>

namespace {

CGEventFlags flagsOf(quint32 modifiers)
{
    CGEventFlags flags = 0;
    if (modifiers & Modifier::Command)
        flags |= kCGEventFlagMaskCommand;
    if (modifiers & Modifier::Shift)
        flags |= kCGEventFlagMaskShift;
    if (modifiers & Modifier::Option)
        flags |= kCGEventFlagMaskAlternate;
    if (modifiers & Modifier::Control)
        flags |= kCGEventFlagMaskControl;
    return flags;
}

// Down then up, back to back, to the HID tap. An event that cannot be created is skipped and
// the other still posted.
void postPress(CGEventSourceRef source, CGKeyCode key, std::optional<CGEventFlags> flags)
{
    CGEventRef down = CGEventCreateKeyboardEvent(source, key, true);
    CGEventRef up = CGEventCreateKeyboardEvent(source, key, false);
    if (flags) {
        if (down)
            CGEventSetFlags(down, *flags);
        if (up)
            CGEventSetFlags(up, *flags);
    }
    if (down) {
        SynthesisedKeys::notePress(key);   // the inline key watcher leaves it out of the typing
        CGEventPost(kCGHIDEventTap, down);
        CFRelease(down);
    }
    if (up) {
        CGEventPost(kCGHIDEventTap, up);
        CFRelease(up);
    }
}

void pressChordNow(KeyChord chord)
{
    CGEventSourceRef source = CGEventSourceCreate(kCGEventSourceStateHIDSystemState);
    postPress(source, static_cast<CGKeyCode>(chord.keyCode), flagsOf(chord.modifiers));
    if (source)
        CFRelease(source);
}

void pressKeyNow(quint32 keyCode, int count)
{
    if (count < 1)
        return;
    CGEventSourceRef source = CGEventSourceCreate(kCGEventSourceStateHIDSystemState);
    for (int i = 0; i < count; ++i)
        postPress(source, static_cast<CGKeyCode>(keyCode), std::nullopt);
    if (source)
        CFRelease(source);
}

// Blocks until System Events has sent the keystroke (or refused: no consent to control it).
bool runPasteScript()
{
    @autoreleasepool {
        NSString *source = @"tell application \"System Events\"\n    keystroke \"v\" using command down\nend tell";
        NSAppleScript *script = [[[NSAppleScript alloc] initWithSource:source] autorelease];
        if (!script)
            return false;
        NSDictionary *error = nil;
        [script executeAndReturnError:&error];
        return error == nil;
    }
}

class QuartzKeySynthesiser final : public KeySynthesiser
{
public:
    QCoro::Task<> pressChord(KeyChord chord) override
    {
        pressChordNow(chord);
        co_return;
    }

    QCoro::Task<> pressKey(quint32 keyCode, int count) override
    {
        pressKeyNow(keyCode, count);
        co_return;
    }

    bool typesFromClipboard() const override { return true; }

    QCoro::Task<bool> typeText(QString) override { co_return runPasteScript(); }
};

} // namespace

std::unique_ptr<KeySynthesiser> createSystemKeySynthesiser()
{
    return std::make_unique<QuartzKeySynthesiser>();
}
