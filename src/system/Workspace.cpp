#include "system/Workspace.h"
#include "BuildConfig.h"

QString Workspace::ownApplicationId()
{
    return QString::fromLatin1(BuildConfig::bundleId);
}
