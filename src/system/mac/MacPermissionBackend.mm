// The Accessibility permission: AXIsProcessTrusted, the system's prompt, and the Privacy &
// Security → Accessibility pane of System Settings.
#include "system/PermissionChecker.h"

#import <AppKit/AppKit.h>
#include <ApplicationServices/ApplicationServices.h>

namespace {

class MacPermissionBackend : public PermissionBackend
{
public:
    QList<PermissionRequirement> missingRequirements() override
    {
        if (AXIsProcessTrusted())
            return {};
        return {PermissionRequirement::AccessibilityPermission};
    }

    void requestWithPrompt() override
    {
        const void *keys[] = {kAXTrustedCheckOptionPrompt};
        const void *values[] = {kCFBooleanTrue};
        CFDictionaryRef options = CFDictionaryCreate(kCFAllocatorDefault, keys, values, 1,
                                                     &kCFTypeDictionaryKeyCallBacks,
                                                     &kCFTypeDictionaryValueCallBacks);
        AXIsProcessTrustedWithOptions(options);  // the answer is read by checking again
        CFRelease(options);
    }

    void openAccessibilitySettings() override
    {
        NSURL *url = [NSURL URLWithString:@"x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"];
        [[NSWorkspace sharedWorkspace] openURL:url];
    }
};

} // namespace

std::unique_ptr<PermissionBackend> createSystemPermissionBackend()
{
    return std::make_unique<MacPermissionBackend>();
}
