// The credential store against the session's real Secret Service (gnome-keyring in the desktop
// test session). secret-tool, an independent client, checks what actually landed in the keyring.
#include "BuildConfig.h"
#include "service/KeychainStore.h"
#include "system/SystemKeychain.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTest>
#include <QUuid>

namespace {

const QString service = QString::fromLatin1(BuildConfig::bundleId);

struct ToolRun {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

ToolRun secretTool(const QStringList &arguments, const QByteArray &input = {})
{
    QProcess process;
    process.start(QStringLiteral("secret-tool"), arguments);
    if (!process.waitForStarted())
        return {-1, {}, process.errorString().toUtf8()};
    process.write(input);
    process.closeWriteChannel();
    process.waitForFinished(-1);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput(), process.readAllStandardError()};
}

QStringList itemAttributes(const QString &account)
{
    return {QStringLiteral("service"), service, QStringLiteral("account"), account};
}

} // namespace

template <>
char *QTest::toString(const std::optional<QString> &value)
{
    return value ? QTest::toString(QLatin1Char('"') + *value + QLatin1Char('"')) : qstrdup("none");
}

class KeychainTest : public QObject
{
    Q_OBJECT

    KeychainStore m_store{createSystemKeychainBackend()};
    const QString m_run = QUuid::createUuid().toString(QUuid::WithoutBraces).left(8);
    QStringList m_used;

    // A key of this run only, so that reruns and leftovers never meet.
    QString key(const QString &name)
    {
        m_used << QStringLiteral("tst-%1-%2").arg(m_run, name);
        return m_used.last();
    }

    // The items filed under our service and this account, as secret-tool lists them.
    ToolRun search(const QString &account)
    {
        return secretTool(QStringList{QStringLiteral("search"), QStringLiteral("--all")} + itemAttributes(account));
    }

    int itemCount(const QString &account)
    {
        int count = 0;
        for (const QByteArray &line : search(account).out.split('\n'))
            count += line.startsWith('[');
        return count;
    }

    QByteArray lookedUpElsewhere(const QString &account)
    {
        return secretTool(QStringList{QStringLiteral("lookup")} + itemAttributes(account)).out;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS"),
                 "No D-Bus session bus (DBUS_SESSION_BUS_ADDRESS is unset): run the tests in the desktop "
                 "test session (scripts/test), which provides an unlocked gnome-keyring.");
        QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("secret-tool")).isEmpty(),
                 "secret-tool (Debian package libsecret-tools) is not installed.");
        const QString probe = key(QStringLiteral("probe"));
        const ToolRun stored = secretTool(QStringList{QStringLiteral("store"), QStringLiteral("--label=probe")}
                                              + itemAttributes(probe), "live");
        QVERIFY2(stored.exitCode == 0, qPrintable(QStringLiteral("The Secret Service did not store an item: %1")
                                                      .arg(QString::fromUtf8(stored.err))));
        QVERIFY2(lookedUpElsewhere(probe) == "live",
                 "The Secret Service stored an item but does not give it back (is the keyring locked?)");
    }

    void cleanupTestCase() { cleanup(); }

    void cleanup()
    {
        for (const QString &account : std::as_const(m_used)) {
            m_store.remove(account);
            secretTool(QStringList{QStringLiteral("clear")} + itemAttributes(account));
        }
        m_used.clear();
    }

    void absentKeyLoadsNone()
    {
        const QString account = key(QStringLiteral("absent"));
        QCOMPARE(m_store.load(account), std::nullopt);
        m_store.remove(account);
        m_store.remove(account);
        QCOMPARE(m_store.load(account), std::nullopt);
        QCOMPARE(itemCount(account), 0);
    }

    void saveReplacesTheOneItem()
    {
        const QString account = key(QStringLiteral("save"));
        QVERIFY(m_store.save(account, QStringLiteral("first")));
        QVERIFY(m_store.save(account, QStringLiteral("second")));
        QCOMPARE(m_store.load(account), QStringLiteral("second"));
        QCOMPARE(itemCount(account), 1);
        QCOMPARE(lookedUpElsewhere(account), QByteArray("second"));

        // How the item shows in a keyring manager.
        const ToolRun listed = search(account);
        QVERIFY(listed.out.contains("label = Parlanto: " + account.toUtf8() + '\n'));
        QVERIFY(listed.err.contains("attribute.service = " + service.toUtf8() + '\n'));
        QVERIFY(listed.err.contains("attribute.account = " + account.toUtf8() + '\n'));
    }

    void updateChangesOrCreates()
    {
        const QString account = key(QStringLiteral("update"));
        QVERIFY(m_store.update(account, QStringLiteral("created by update")));
        QCOMPARE(m_store.load(account), QStringLiteral("created by update"));
        QCOMPARE(itemCount(account), 1);

        QVERIFY(m_store.update(account, QStringLiteral("changed")));
        QCOMPARE(m_store.load(account), QStringLiteral("changed"));
        QCOMPARE(itemCount(account), 1);
    }

    void removeDeletesOnlyItsKey()
    {
        const QString gone = key(QStringLiteral("gone"));
        const QString kept = key(QStringLiteral("kept"));
        QVERIFY(m_store.save(gone, QStringLiteral("a")));
        QVERIFY(m_store.save(kept, QStringLiteral("b")));
        m_store.remove(gone);
        QCOMPARE(m_store.load(gone), std::nullopt);
        QCOMPARE(itemCount(gone), 0);
        QCOMPARE(m_store.load(kept), QStringLiteral("b"));
    }

    void valuesRoundTrip_data()
    {
        QTest::addColumn<QString>("value");
        QTest::newRow("token") << QStringLiteral("eyJhbGciOiJIUzI1NiJ9.e30.x-_Zq9");
        QTest::newRow("accents") << QStringLiteral("Crème brûlée, naïve façade, Ærøskøbing");
        QTest::newRow("cjk") << QStringLiteral("翻訳のテスト 번역 翻译");
        QTest::newRow("emoji") << QStringLiteral("🦜 👍🏽 🇻🇳");
        QTest::newRow("control characters") << QStringLiteral("line one\nline two\ttab");
        QTest::newRow("empty") << QString();
    }

    void valuesRoundTrip()
    {
        QFETCH(QString, value);
        const QString account = key(QString::fromLatin1(QTest::currentDataTag()).replace(QLatin1Char(' '), QLatin1Char('-')));
        QVERIFY(m_store.save(account, value));
        const auto loaded = m_store.load(account);
        QVERIFY2(loaded.has_value(), "a saved value must load back, even an empty one");
        QCOMPARE(*loaded, value);
        // Stored as the UTF-8 bytes, as any other client reads them.
        QCOMPARE(lookedUpElsewhere(account), value.toUtf8());
    }

    // Items are identified by service and account alone, whoever filed them.
    void itemsFiledByAnotherClient()
    {
        const QString account = key(QStringLiteral("elsewhere"));
        QCOMPARE(secretTool(QStringList{QStringLiteral("store"), QStringLiteral("--label=by hand")} + itemAttributes(account),
                            "filed by hand").exitCode, 0);
        QCOMPARE(m_store.load(account), QStringLiteral("filed by hand"));

        QVERIFY(m_store.update(account, QStringLiteral("updated")));
        QCOMPARE(itemCount(account), 1);
        QCOMPARE(lookedUpElsewhere(account), QByteArray("updated"));

        m_store.remove(account);
        QCOMPARE(itemCount(account), 0);

        // Bytes that are not UTF-8 are not a string.
        QCOMPARE(secretTool(QStringList{QStringLiteral("store"), QStringLiteral("--label=binary")} + itemAttributes(account),
                            QByteArray("\xff\xfe\x00\x80", 4)).exitCode, 0);
        QCOMPARE(m_store.load(account), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(KeychainTest)
#include "tst_keychain.moc"
