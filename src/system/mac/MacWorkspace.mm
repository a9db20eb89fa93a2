// The frontmost application and its changes through NSWorkspace; activation through NSApp.
#include "system/Workspace.h"

#import <AppKit/AppKit.h>

namespace {

QString bundleIdentifier(NSRunningApplication *application)
{
    return application ? QString::fromNSString(application.bundleIdentifier) : QString();
}

class MacWorkspace : public Workspace
{
public:
    MacWorkspace()
    {
        m_lastId = frontmostApplicationId();
        NSNotificationCenter *center = [[NSWorkspace sharedWorkspace] notificationCenter];
        m_observer = [center addObserverForName:NSWorkspaceDidActivateApplicationNotification
                                         object:nil
                                          queue:[NSOperationQueue mainQueue]
                                     usingBlock:^(NSNotification *notification) {
                                         const QString id = bundleIdentifier(
                                             notification.userInfo[NSWorkspaceApplicationKey]);
                                         if (id.isEmpty() || id == m_lastId)
                                             return;
                                         m_lastId = id;
                                         Q_EMIT activeApplicationChanged(id);
                                     }];
#if !__has_feature(objc_arc)
        [m_observer retain];
#endif
    }

    ~MacWorkspace() override
    {
        [[[NSWorkspace sharedWorkspace] notificationCenter] removeObserver:m_observer];
#if !__has_feature(objc_arc)
        [m_observer release];
#endif
    }

    QString frontmostApplicationId() const override
    {
        return bundleIdentifier([NSWorkspace sharedWorkspace].frontmostApplication);
    }

    bool isOwnApplicationFrontmost() const override
    {
        return [NSRunningApplication currentApplication].active;
    }

    void activateSelf() override
    {
        [NSApp activateIgnoringOtherApps:YES];
    }

private:
    id m_observer = nil;
    QString m_lastId;
};

} // namespace

std::unique_ptr<Workspace> createSystemWorkspace()
{
    return std::make_unique<MacWorkspace>();
}
