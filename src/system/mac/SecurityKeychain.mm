// Generic-password items of the data-protection keychain, through Security's SecItem* calls.
// Plain CoreFoundation: every object created or copied here is released here.
#include "BuildConfig.h"
#include "system/SystemKeychain.h"

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>

#include <type_traits>

namespace {

struct CFReleaser {
    void operator()(CFTypeRef ref) const
    {
        if (ref)
            CFRelease(ref);
    }
};
template <typename Ref>
using CFHolder = std::unique_ptr<std::remove_pointer_t<Ref>, CFReleaser>;

CFHolder<CFMutableDictionaryRef> newDictionary()
{
    return CFHolder<CFMutableDictionaryRef>(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// Class, service, account and the data-protection keychain: what identifies one item of ours.
CFHolder<CFMutableDictionaryRef> baseQuery(const QString &account)
{
    auto query = newDictionary();
    const CFHolder<CFStringRef> service(CFStringCreateWithCString(kCFAllocatorDefault, BuildConfig::bundleId,
                                                                  kCFStringEncodingUTF8));
    const CFHolder<CFStringRef> accountName(account.toCFString());
    CFDictionarySetValue(query.get(), kSecClass, kSecClassGenericPassword);
    CFDictionarySetValue(query.get(), kSecAttrService, service.get());
    CFDictionarySetValue(query.get(), kSecAttrAccount, accountName.get());
    CFDictionarySetValue(query.get(), kSecUseDataProtectionKeychain, kCFBooleanTrue);
    return query;
}

class SecurityKeychain final : public KeychainBackend
{
public:
    std::optional<QByteArray> find(const QString &account) override
    {
        auto query = baseQuery(account);
        CFDictionarySetValue(query.get(), kSecReturnData, kCFBooleanTrue);
        CFDictionarySetValue(query.get(), kSecMatchLimit, kSecMatchLimitOne);
        CFTypeRef result = nullptr;
        const OSStatus status = SecItemCopyMatching(query.get(), &result);
        const CFHolder<CFTypeRef> owned(result);
        if (status != errSecSuccess || !result || CFGetTypeID(result) != CFDataGetTypeID())
            return std::nullopt;
        const auto data = static_cast<CFDataRef>(result);
        return QByteArray(reinterpret_cast<const char *>(CFDataGetBytePtr(data)), CFDataGetLength(data));
    }

    bool add(const QString &account, const QByteArray &value) override
    {
        auto query = baseQuery(account);
        const CFHolder<CFDataRef> data(value.toCFData());
        CFDictionarySetValue(query.get(), kSecValueData, data.get());
        CFDictionarySetValue(query.get(), kSecAttrAccessible, kSecAttrAccessibleAfterFirstUnlock);
        return SecItemAdd(query.get(), nullptr) == errSecSuccess;
    }

    UpdateResult update(const QString &account, const QByteArray &value) override
    {
        const auto query = baseQuery(account);
        auto changes = newDictionary();
        const CFHolder<CFDataRef> data(value.toCFData());
        CFDictionarySetValue(changes.get(), kSecValueData, data.get());
        switch (SecItemUpdate(query.get(), changes.get())) {
        case errSecSuccess:
            return UpdateResult::Updated;
        case errSecItemNotFound:
            return UpdateResult::NotFound;
        default:
            return UpdateResult::Failed;
        }
    }

    void remove(const QString &account) override
    {
        SecItemDelete(baseQuery(account).get());
    }
};

} // namespace

std::unique_ptr<KeychainBackend> createSystemKeychainBackend()
{
    return std::make_unique<SecurityKeychain>();
}
