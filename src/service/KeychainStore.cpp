#include "service/KeychainStore.h"

#include <QStringDecoder>

namespace {
std::unique_ptr<KeychainStore> &sharedStore()
{
    static std::unique_ptr<KeychainStore> store;
    return store;
}
} // namespace

KeychainStore::KeychainStore(std::unique_ptr<KeychainBackend> backend)
    : m_backend(std::move(backend))
{
}

KeychainStore &KeychainStore::shared()
{
    auto &store = sharedStore();
    if (!store)
        store = std::make_unique<KeychainStore>(nullptr);
    return *store;
}

void KeychainStore::setSharedBackend(std::unique_ptr<KeychainBackend> backend)
{
    sharedStore() = std::make_unique<KeychainStore>(std::move(backend));
}

std::optional<QString> KeychainStore::load(const QString &key) const
{
    if (!m_backend)
        return std::nullopt;
    const auto bytes = m_backend->find(key);
    if (!bytes)
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(*bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

bool KeychainStore::save(const QString &key, const QString &value)
{
    if (!m_backend)
        return false;
    const QByteArray bytes = value.toUtf8();
    m_backend->remove(key);
    return m_backend->add(key, bytes);
}

bool KeychainStore::update(const QString &key, const QString &value)
{
    if (!m_backend)
        return false;
    switch (m_backend->update(key, value.toUtf8())) {
    case KeychainBackend::UpdateResult::Updated:
        return true;
    case KeychainBackend::UpdateResult::NotFound:
        return save(key, value);
    case KeychainBackend::UpdateResult::Failed:
        break;
    }
    return false;
}

void KeychainStore::remove(const QString &key)
{
    if (m_backend)
        m_backend->remove(key);
}
