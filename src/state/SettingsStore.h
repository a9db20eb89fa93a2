#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringView>
#include <memory>
#include <optional>

// The typed defaults store. Booleans, numbers, strings and data are kept apart: reading a key
// as a type other than the one it holds gives "absent", so every fallback is the same on each
// system. Every write is persisted at once.
class SettingsStore
{
public:
    virtual ~SettingsStore() = default;

    virtual std::optional<bool> boolValue(const QString &key) const = 0;
    virtual std::optional<double> numberValue(const QString &key) const = 0;
    virtual std::optional<QString> stringValue(const QString &key) const = 0;
    virtual std::optional<QByteArray> dataValue(const QString &key) const = 0;

    virtual void setBool(const QString &key, bool value) = 0;
    virtual void setNumber(const QString &key, double value) = 0;
    virtual void setString(const QString &key, const QString &value) = 0;
    virtual void setData(const QString &key, const QByteArray &value) = 0;
    virtual void remove(const QString &key) = 0;

    // The process-wide store of this system, created on first use.
    static SettingsStore &shared();
    // Replaces the shared store (the program's start-up and tests choose where settings live).
    static void setShared(std::unique_ptr<SettingsStore> store);
};

// Linux: one JSON file, written atomically. Data values are kept as {"data": "<base64>"} so
// that the four types stay apart. A file that cannot be parsed is moved aside, never
// overwritten, and the store starts empty.
class JsonSettingsStore final : public SettingsStore
{
public:
    explicit JsonSettingsStore(QString filePath);

    // $XDG_CONFIG_HOME/parlanto/settings.json (or the platform's equivalent).
    static QString defaultFilePath();

    QString filePath() const { return m_filePath; }
    // Where an unreadable file was moved, if that happened when the store was opened.
    QString movedAsidePath() const { return m_movedAside; }

    std::optional<bool> boolValue(const QString &key) const override;
    std::optional<double> numberValue(const QString &key) const override;
    std::optional<QString> stringValue(const QString &key) const override;
    std::optional<QByteArray> dataValue(const QString &key) const override;
    void setBool(const QString &key, bool value) override;
    void setNumber(const QString &key, double value) override;
    void setString(const QString &key, const QString &value) override;
    void setData(const QString &key, const QByteArray &value) override;
    void remove(const QString &key) override;

private:
    void load();
    void set(const QString &key, const QJsonValue &value);
    void persist();

    QString m_filePath;
    QString m_movedAside;
    QJsonObject m_values;
    bool m_writable = true;
};

#ifdef Q_OS_MACOS
// macOS: the application's user-defaults domain through QSettings' native format, which keeps
// booleans, numbers, strings and data apart.
class NativeSettingsStore final : public SettingsStore
{
public:
    NativeSettingsStore();
    ~NativeSettingsStore() override;

    std::optional<bool> boolValue(const QString &key) const override;
    std::optional<double> numberValue(const QString &key) const override;
    std::optional<QString> stringValue(const QString &key) const override;
    std::optional<QByteArray> dataValue(const QString &key) const override;
    void setBool(const QString &key, bool value) override;
    void setNumber(const QString &key, double value) override;
    void setString(const QString &key, const QString &value) override;
    void setData(const QString &key, const QByteArray &value) override;
    void remove(const QString &key) override;

private:
    struct Private;
    std::unique_ptr<Private> d;
};
#endif
