// Launch at login on macOS: the main application registered with the login-item service
// (SMAppService, macOS 13 and later).
#include "system/LoginItem.h"

#include "state/Log.h"

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

LoginItem &LoginItem::shared()
{
    static LoginItem item;
    return item;
}

bool LoginItem::isEnabled() const
{
    return SMAppService.mainAppService.status == SMAppServiceStatusEnabled;
}

bool LoginItem::setEnabled(bool enabled)
{
    @autoreleasepool {
        NSError *error = nil;
        SMAppService *service = SMAppService.mainAppService;
        const BOOL done = enabled ? [service registerAndReturnError:&error] : [service unregisterAndReturnError:&error];
        if (!done) {
            logLine("LoginItem", QStringLiteral("%1 failed: %2")
                                     .arg(enabled ? QStringLiteral("register") : QStringLiteral("unregister"),
                                          QString::fromNSString(error.localizedDescription)));
            return false;
        }
        logLine("LoginItem", enabled ? QStringLiteral("launch at login on") : QStringLiteral("launch at login off"));
        return true;
    }
}
