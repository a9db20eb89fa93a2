// The focused element of the frontmost application through the Accessibility API (AXUIElement).
// Calls are synchronous inter-process requests: they are bounded by a short messaging time-out,
// an application that lets one run out is left alone for a few seconds, and our own process is
// never asked (answering needs the very main thread that would be waiting). Ranges are UTF-16
// units here; they are turned into characters of the field's text.
// Plain CoreFoundation: every object created or copied here is released here.
#include "system/Accessibility.h"
#include "system/TextOffsets.h"

#include <ApplicationServices/ApplicationServices.h>
#include <AppKit/AppKit.h>

#include <QDeadlineTimer>
#include <QHash>

#include <type_traits>
#include <unistd.h>

namespace {

constexpr float messagingTimeoutSeconds = 0.25f;
constexpr int hungAppPauseMs = 3000;

struct CFReleaser {
    void operator()(CFTypeRef ref) const
    {
        if (ref)
            CFRelease(ref);
    }
};
template <typename Ref>
using CFHolder = std::unique_ptr<std::remove_pointer_t<Ref>, CFReleaser>;
using ElementHolder = CFHolder<AXUIElementRef>;

class AxAccessibility final : public Accessibility
{
public:
    AxAccessibility()
    {
        ElementHolder systemWide(AXUIElementCreateSystemWide());
        // Applies to every element when set on the system-wide one.
        AXUIElementSetMessagingTimeout(systemWide.get(), messagingTimeoutSeconds);
    }

    QCoro::Task<std::optional<FocusedElement>> focusedElement(Read read) override
    {
        co_return readFocused(read == Read::WithText);
    }

    QCoro::Task<std::optional<QRect>> boundsForRange(AccessibleElementId element, TextRange range) override
    {
        co_return readBounds(element, range);
    }

    QCoro::Task<bool> isFocusedElementEditable() override
    {
        ElementHolder focused = copyFocused();
        co_return focused && isEditable(focused.get());
    }

    QCoro::Task<std::optional<QRect>> selectionRect() override
    {
        co_return readSelectionRect();
    }

private:
    // False (and the application left alone for a while) when it did not answer in time.
    bool answered(AXUIElementRef element, AXError error)
    {
        if (error != kAXErrorCannotComplete)
            return true;
        pid_t pid = 0;
        if (AXUIElementGetPid(element, &pid) == kAXErrorSuccess)
            m_hung.insert(pid, QDeadlineTimer(hungAppPauseMs));
        return false;
    }

    bool mayAsk(AXUIElementRef element)
    {
        pid_t pid = 0;
        if (AXUIElementGetPid(element, &pid) != kAXErrorSuccess || pid == getpid())
            return false;
        auto hung = m_hung.find(pid);
        if (hung == m_hung.end())
            return true;
        if (!hung->hasExpired())
            return false;
        m_hung.erase(hung);
        return true;
    }

    CFTypeRef copyAttribute(AXUIElementRef element, CFStringRef attribute)
    {
        CFTypeRef value = nullptr;
        const AXError error = AXUIElementCopyAttributeValue(element, attribute, &value);
        if (error != kAXErrorSuccess) {
            answered(element, error);
            if (value)
                CFRelease(value);
            return nullptr;
        }
        return value;
    }

    std::optional<QString> stringAttribute(AXUIElementRef element, CFStringRef attribute)
    {
        CFHolder<CFTypeRef> value(copyAttribute(element, attribute));
        if (!value || CFGetTypeID(value.get()) != CFStringGetTypeID())
            return std::nullopt;
        return QString::fromCFString(static_cast<CFStringRef>(value.get()));
    }

    ElementHolder copyFocused()
    {
        ElementHolder systemWide(AXUIElementCreateSystemWide());
        CFTypeRef value = nullptr;
        if (AXUIElementCopyAttributeValue(systemWide.get(), kAXFocusedUIElementAttribute, &value) != kAXErrorSuccess
            || !value)
            return nullptr;
        if (CFGetTypeID(value) != AXUIElementGetTypeID()) {
            CFRelease(value);
            return nullptr;
        }
        ElementHolder focused(static_cast<AXUIElementRef>(value));
        if (!mayAsk(focused.get()))
            return nullptr;
        return focused;
    }

    AccessibleElementId idOf(AXUIElementRef element)
    {
        pid_t pid = 0;
        AXUIElementGetPid(element, &pid);
        return AccessibleElementId(QByteArray::number(pid) + ':' + QByteArray::number(quint64(CFHash(element))));
    }

    bool isPassword(AXUIElementRef element)
    {
        return stringAttribute(element, kAXSubroleAttribute) == QString::fromCFString(kAXSecureTextFieldSubrole);
    }

    // The value is settable; only when that cannot be asked, a text role.
    bool isEditable(AXUIElementRef element)
    {
        Boolean settable = false;
        const AXError error = AXUIElementIsAttributeSettable(element, kAXValueAttribute, &settable);
        if (error == kAXErrorSuccess)
            return settable;
        if (!answered(element, error))
            return false;
        const std::optional<QString> role = stringAttribute(element, kAXRoleAttribute);
        return role == QString::fromCFString(kAXTextFieldRole) || role == QString::fromCFString(kAXTextAreaRole)
            || role == QString::fromCFString(kAXComboBoxRole);
    }

    // The selected range in UTF-16 units.
    std::optional<CFRange> selectedRange(AXUIElementRef element)
    {
        CFHolder<CFTypeRef> value(copyAttribute(element, kAXSelectedTextRangeAttribute));
        CFRange range;
        if (!value || CFGetTypeID(value.get()) != AXValueGetTypeID()
            || !AXValueGetValue(static_cast<AXValueRef>(value.get()), kAXValueTypeCFRange, &range))
            return std::nullopt;
        return range;
    }

    std::optional<QRect> bounds(AXUIElementRef element, CFRange range)
    {
        CFHolder<AXValueRef> parameter(AXValueCreate(kAXValueTypeCFRange, &range));
        CFTypeRef value = nullptr;
        const AXError error = AXUIElementCopyParameterizedAttributeValue(
            element, kAXBoundsForRangeParameterizedAttribute, parameter.get(), &value);
        CFHolder<CFTypeRef> holder(value);
        CGRect rect;
        if (error != kAXErrorSuccess || !value || CFGetTypeID(value) != AXValueGetTypeID()
            || !AXValueGetValue(static_cast<AXValueRef>(value), kAXValueTypeCGRect, &rect)) {
            answered(element, error);
            return std::nullopt;
        }
        // Quartz global coordinates: origin at the top left of the main screen, like Qt's.
        return QRect(qRound(rect.origin.x), qRound(rect.origin.y), qRound(rect.size.width), qRound(rect.size.height));
    }

    // Bounds of [start, start + length) in UTF-16 units; an empty range is the caret.
    std::optional<QRect> rangeRect(AXUIElementRef element, CFIndex start, CFIndex length)
    {
        if (length > 0) {
            const std::optional<QRect> rect = bounds(element, CFRangeMake(start, length));
            return rect && rect->width() > 0 && rect->height() > 0 ? rect : std::nullopt;
        }
        const std::optional<QRect> caret = bounds(element, CFRangeMake(start, 0));
        if (caret && caret->height() > 0)
            return QRect(caret->x(), caret->y(), 1, caret->height());
        if (start > 0) {
            const std::optional<QRect> previous = bounds(element, CFRangeMake(start - 1, 1));
            if (previous && previous->height() > 0)
                return QRect(previous->x() + previous->width(), previous->y(), 1, previous->height());
        }
        return std::nullopt;
    }

    std::optional<FocusedElement> readFocused(bool withText)
    {
        ElementHolder focused = copyFocused();
        if (!focused)
            return std::nullopt;
        AXUIElementRef element = focused.get();
        FocusedElement result;
        result.id = idOf(element);
        result.role = stringAttribute(element, kAXRoleAttribute).value_or(QString());
        result.isPassword = isPassword(element);
        result.editable = isEditable(element);
        pid_t pid = 0;
        AXUIElementGetPid(element, &pid);
        result.application.pid = pid;
        if (NSRunningApplication *app = [NSRunningApplication runningApplicationWithProcessIdentifier:pid])
            result.application.name = QString::fromNSString(app.localizedName);
        if (result.isPassword)
            return result; // neither its value nor its range is read

        const std::optional<CFRange> range = selectedRange(element);
        const std::optional<QString> text = stringAttribute(element, kAXValueAttribute);
        if (!range && !text)
            return result;
        result.hasText = true;
        const QString content = text.value_or(QString());
        if (range) {
            const int start = TextOffsets::toCharacters(content, TextOffsets::Unit::Utf16, int(range->location));
            const int end = TextOffsets::toCharacters(content, TextOffsets::Unit::Utf16,
                                                      int(range->location + range->length));
            result.selection = TextRange{start, end - start};
            result.caret = start; // the system reports no insertion point apart from the range
        }
        if (withText && text)
            result.text = text;
        return result;
    }

    std::optional<QRect> readBounds(const AccessibleElementId &id, TextRange range)
    {
        ElementHolder focused = copyFocused();
        if (!focused || idOf(focused.get()) != id || isPassword(focused.get()) || range.start < 0 || range.length < 0)
            return std::nullopt;
        const QString text = stringAttribute(focused.get(), kAXValueAttribute).value_or(QString());
        const int start = TextOffsets::fromCharacters(text, TextOffsets::Unit::Utf16, range.start);
        const int end = TextOffsets::fromCharacters(text, TextOffsets::Unit::Utf16, range.end());
        return rangeRect(focused.get(), start, end - start);
    }

    std::optional<QRect> readSelectionRect()
    {
        ElementHolder focused = copyFocused();
        if (!focused || isPassword(focused.get()))
            return std::nullopt;
        const std::optional<CFRange> range = selectedRange(focused.get());
        if (!range || range->length <= 0)
            return std::nullopt;
        return rangeRect(focused.get(), range->location, range->length);
    }

    QHash<pid_t, QDeadlineTimer> m_hung;
};

} // namespace

std::unique_ptr<Accessibility> createSystemAccessibility()
{
    return std::make_unique<AxAccessibility>();
}
