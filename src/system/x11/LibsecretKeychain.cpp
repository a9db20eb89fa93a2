// The Secret Service through libsecret's synchronous calls (each runs its own main context, so
// they work from any thread and with Qt's own event dispatcher). GLib headers come first: they
// use Qt's keywords as identifiers.
#include <libsecret/secret.h>

#include "BuildConfig.h"
#include "system/SystemKeychain.h"

namespace {

// Our items are identified by service and account alone, like their macOS counterparts, so an
// item filed by another tool under the same two attributes (secret-tool, for instance) is ours.
const SecretSchema *schema()
{
    static const SecretSchema instance = {
        BuildConfig::bundleId,
        SECRET_SCHEMA_DONT_MATCH_NAME,
        {
            {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
        },
    };
    return &instance;
}

// Frees an error libsecret handed back; true when there was one.
bool consume(GError *&error)
{
    if (!error)
        return false;
    g_clear_error(&error);
    return true;
}

class LibsecretKeychain final : public KeychainBackend
{
public:
    std::optional<QByteArray> find(const QString &account) override
    {
        const QByteArray user = account.toUtf8();
        GError *error = nullptr;
        SecretValue *secret = secret_password_lookup_binary_sync(
            schema(), nullptr, &error, "service", BuildConfig::bundleId, "account", user.constData(), nullptr);
        consume(error);
        if (!secret)
            return std::nullopt;
        gsize length = 0;
        const gchar *bytes = secret_value_get(secret, &length);
        QByteArray result(bytes, static_cast<qsizetype>(length));
        secret_value_unref(secret);
        return result;
    }

    bool add(const QString &account, const QByteArray &value) override
    {
        const QByteArray user = account.toUtf8();
        const QByteArray label = QStringLiteral("Parlanto: %1").arg(account).toUtf8();
        SecretValue *secret = secret_value_new(value.constData(), value.size(), "text/plain");
        GError *error = nullptr;
        const gboolean stored = secret_password_store_binary_sync(
            schema(), SECRET_COLLECTION_DEFAULT, label.constData(), secret, nullptr, &error,
            "service", BuildConfig::bundleId, "account", user.constData(), nullptr);
        secret_value_unref(secret);
        return !consume(error) && stored;
    }

    // Changes the secret of every item filed under the account, wherever it is kept, leaving
    // its label and collection as they are.
    UpdateResult update(const QString &account, const QByteArray &value) override
    {
        const QByteArray user = account.toUtf8();
        GHashTable *attributes = secret_attributes_build(schema(), "service", BuildConfig::bundleId, "account",
                                                         user.constData(), nullptr);
        GError *error = nullptr;
        GList *items = secret_service_search_sync(
            nullptr, schema(), attributes, static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK),
            nullptr, &error);
        g_hash_table_unref(attributes);
        if (consume(error))
            return UpdateResult::Failed;
        if (!items)
            return UpdateResult::NotFound;
        SecretValue *secret = secret_value_new(value.constData(), value.size(), "text/plain");
        bool updated = true;
        for (GList *item = items; item; item = item->next) {
            const gboolean set = secret_item_set_secret_sync(SECRET_ITEM(item->data), secret, nullptr, &error);
            updated = !consume(error) && set && updated;
        }
        secret_value_unref(secret);
        g_list_free_full(items, g_object_unref);
        return updated ? UpdateResult::Updated : UpdateResult::Failed;
    }

    void remove(const QString &account) override
    {
        const QByteArray user = account.toUtf8();
        GError *error = nullptr;
        secret_password_clear_sync(schema(), nullptr, &error, "service", BuildConfig::bundleId,
                                   "account", user.constData(), nullptr);
        consume(error);
    }
};

} // namespace

std::unique_ptr<KeychainBackend> createSystemKeychainBackend()
{
    return std::make_unique<LibsecretKeychain>();
}
