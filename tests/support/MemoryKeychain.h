#pragma once

#include "service/KeychainStore.h"

#include <QHash>

// A credential store backend that keeps its items in memory, for tests that must not touch the
// session's keyring.
class MemoryKeychain final : public KeychainBackend
{
public:
    std::optional<QByteArray> find(const QString &account) override
    {
        return m_items.contains(account) ? std::optional(m_items.value(account)) : std::nullopt;
    }
    bool add(const QString &account, const QByteArray &value) override
    {
        m_items.insert(account, value);
        return true;
    }
    UpdateResult update(const QString &account, const QByteArray &value) override
    {
        if (!m_items.contains(account))
            return UpdateResult::NotFound;
        m_items.insert(account, value);
        return UpdateResult::Updated;
    }
    void remove(const QString &account) override { m_items.remove(account); }

private:
    QHash<QString, QByteArray> m_items;
};
