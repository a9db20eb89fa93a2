#pragma once

#include "service/KeychainStore.h"

// The system's credential store: libsecret (Secret Service) on Linux, Security's SecItem* on
// macOS. Every item is filed under the application's identifier with the key as its account.
std::unique_ptr<KeychainBackend> createSystemKeychainBackend();
