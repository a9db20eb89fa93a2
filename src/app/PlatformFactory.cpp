#include "app/PlatformFactory.h"
#include "service/KeychainStore.h"
#include "system/SystemKeychain.h"

void installSystemBackends()
{
    KeychainStore::setSharedBackend(createSystemKeychainBackend());
}
