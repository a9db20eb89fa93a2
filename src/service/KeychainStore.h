#pragma once

#include <QByteArray>
#include <QString>
#include <memory>
#include <optional>

// What the system's secret store must offer for one item of ours (identified by its account).
class KeychainBackend
{
public:
    enum class UpdateResult { Updated, NotFound, Failed };

    virtual ~KeychainBackend() = default;
    virtual std::optional<QByteArray> find(const QString &account) = 0;
    virtual bool add(const QString &account, const QByteArray &value) = 0;
    virtual UpdateResult update(const QString &account, const QByteArray &value) = 0;
    virtual void remove(const QString &account) = 0;
};

// Small secrets (the service's access token first of all) in the system's credential store:
// a string under an account, all items under the application's one service name. Synchronous;
// failures are reported as "none" or false, never thrown nor logged.
class KeychainStore
{
public:
    static inline const QString sessionTokenKey = QStringLiteral("session_token");

    explicit KeychainStore(std::unique_ptr<KeychainBackend> backend);

    // The process-wide store. It has no backend (nothing found, nothing saved) until start-up
    // installs the system's one.
    static KeychainStore &shared();
    // Installs the shared store's backend (the system's at start-up, an in-memory one in tests).
    static void setSharedBackend(std::unique_ptr<KeychainBackend> backend);

    // The stored value; none when absent, unreadable or not valid UTF-8.
    std::optional<QString> load(const QString &key) const;
    // Replaces any existing item; true when the new item was written.
    bool save(const QString &key, const QString &value);
    // Changes an existing item, or creates it through save when there is none.
    bool update(const QString &key, const QString &value);
    // Removes the item; a missing one is not an error.
    void remove(const QString &key);

private:
    std::unique_ptr<KeychainBackend> m_backend;
};
