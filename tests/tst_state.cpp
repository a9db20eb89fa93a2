// Settings, hotkey bindings and the language table, on a settings file in a temporary folder.
#include "state/AppState.h"
#include "state/HotkeyConfig.h"
#include "state/Languages.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QMetaProperty>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

bool isJsonObject(const QByteArray &bytes)
{
    QJsonParseError error;
    return QJsonDocument::fromJson(bytes, &error).isObject() && error.error == QJsonParseError::NoError;
}

// Command-Shift-E to English and Command-Shift-V to Vietnamese, enabled, with distinct ids.
bool isDefaultList(QList<HotkeyConfig> list)
{
    if (list.size() != 2 || list[0].id.isNull() || list[1].id.isNull() || list[0].id == list[1].id)
        return false;
    list[0].id = list[1].id = QUuid();
    return list == QList<HotkeyConfig>{{QUuid(), "en", 14, 768, true}, {QUuid(), "vi", 9, 768, true}};
}

void writeTyped(SettingsStore &store, const QString &key, const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool: store.setBool(key, value.toBool()); break;
    case QMetaType::Double: store.setNumber(key, value.toDouble()); break;
    case QMetaType::QString: store.setString(key, value.toString()); break;
    case QMetaType::QByteArray: store.setData(key, value.toByteArray()); break;
    default: QFAIL("no store type for this value");
    }
}

} // namespace

class StateTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    // In folders that do not exist yet, as on a first start.
    QString path() const { return m_dir->filePath(QStringLiteral("config/parlanto/settings.json")); }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
    }

    void emptyStoreGivesDefaults()
    {
        JsonSettingsStore store(path());
        const AppState state(store);
        QVERIFY(AppState::storedAutoReplace(store) && state.autoReplace());
        QCOMPARE(state.outputMode(), OutputMode::TranslateOnly);
        QCOMPARE(state.bilingualTemplate(), QStringLiteral("{original}\n\n{translated}"));
        QCOMPARE(state.defaultLanguage(), QStringLiteral("en"));
        QCOMPARE(state.inlineTranslationEnabled(), false);
        QCOMPARE(state.popupDismissDelay(), 10.0);

        const auto first = loadHotkeyConfigs(store);
        const auto second = loadHotkeyConfigs(store);
        QVERIFY(isDefaultList(first) && isDefaultList(second));
        QVERIFY(first[0].id != second[0].id && first[1].id != second[1].id);
        QVERIFY2(!QFile::exists(path()), "reading defaults must not write anything");
    }

    void storedSettings_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QByteArray>("property");
        QTest::addColumn<QVariant>("expected");

        const QVariant translateOnly = "translate_only", defaultTemplate = AppState::defaultTemplate, english = "en";
        auto row = [](const char *tag, const QString &key, const QVariant &stored, const char *property,
                      const QVariant &expected) { QTest::newRow(tag) << key << stored << QByteArray(property) << expected; };
        using namespace SettingsKeys;
        row("mode bilingual", outputMode, "bilingual", "outputMode", "bilingual");
        row("mode match is exact", outputMode, "Bilingual", "outputMode", translateOnly);
        row("mode stored as bool", outputMode, true, "outputMode", translateOnly);
        row("template", bilingualTemplate, "{translated} ({original})", "bilingualTemplate", "{translated} ({original})");
        row("empty template", bilingualTemplate, QString(), "bilingualTemplate", defaultTemplate);
        row("template stored as data", bilingualTemplate, QByteArray("{original}"), "bilingualTemplate", defaultTemplate);
        row("language", defaultLanguage, "ja", "defaultLanguage", "ja");
        row("language outside the table", defaultLanguage, "xx", "defaultLanguage", "xx");
        row("empty language", defaultLanguage, QString(), "defaultLanguage", english);
        row("language stored as bool", defaultLanguage, true, "defaultLanguage", english);
        row("inline on", inlineTranslationEnabled, true, "inlineTranslationEnabled", true);
        row("inline stored as string", inlineTranslationEnabled, "true", "inlineTranslationEnabled", false);
        row("delay fraction", popupDismissDelay, 2.5, "popupDismissDelay", 2.5);
        row("delay zero", popupDismissDelay, 0.0, "popupDismissDelay", 0.0);
        row("delay stored as string", popupDismissDelay, "30", "popupDismissDelay", 10.0);
        row("auto-replace off", autoReplace, false, "storedAutoReplace", false);
        row("auto-replace stored as string", autoReplace, "false", "storedAutoReplace", true);
        row("auto-replace left to launch", autoReplace, false, "autoReplace", true);
    }

    // Each value is written by one store and read by another on the same file, as after a restart.
    void storedSettings()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, stored);
        QFETCH(QByteArray, property);
        {
            JsonSettingsStore writer(path());
            writeTyped(writer, key, stored);
        }
        JsonSettingsStore store(path());
        const AppState state(store);
        const QVariant actual = property == "storedAutoReplace" ? QVariant(AppState::storedAutoReplace(store))
            : property == "outputMode"                         ? QVariant(rawValue(state.outputMode()))
                                                               : state.property(property.constData());
        QTEST(actual, "expected");
    }

    void storeKeepsTypesApart_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::newRow("bool") << QVariant(false);
        QTest::newRow("number") << QVariant(-0.25);
        QTest::newRow("string") << QVariant(QStringLiteral("e30= ünï"));
        QTest::newRow("data") << QVariant(QByteArray("\0\xff{\"data\":1}", 13));
    }

    // Read back under its own type only, as after a restart.
    void storeKeepsTypesApart()
    {
        QFETCH(QVariant, value);
        const QString key = "some_key";
        {
            JsonSettingsStore writer(path());
            writeTyped(writer, key, value);
            writer.setString("other", "kept");
        }
        JsonSettingsStore store(path());
        QVariantList found;
        if (auto v = store.boolValue(key)) found << *v;
        if (auto v = store.numberValue(key)) found << *v;
        if (auto v = store.stringValue(key)) found << *v;
        if (auto v = store.dataValue(key)) found << *v;
        QCOMPARE(found, QVariantList{value});
        QCOMPARE(found.first().typeId(), value.typeId());

        store.remove(key);
        const JsonSettingsStore reopened(path());
        QVERIFY(!reopened.boolValue(key) && !reopened.numberValue(key) && !reopened.stringValue(key)
                && !reopened.dataValue(key));
        QCOMPARE(reopened.stringValue("other"), QStringLiteral("kept"));
    }

    void hotkeyListDecoding_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("decodes");
        const QByteArray id = R"("id":"0F8FAD5B-D9CB-469F-A165-70867728950E",)";
        const QByteArray rest = R"("targetLanguage":"en","keyCode":14,"modifiers":768,"isEnabled":true)";
        const QByteArray good = "{" + id + rest + "}";
        auto list = [](const QByteArray &members) { return "[{" + members + "}]"; };
        QTest::newRow("empty list") << QByteArray("[]") << true;
        QTest::newRow("largest codes, disabled")
            << list(id + R"("targetLanguage":"ko","keyCode":4294967295,"modifiers":4294967295,"isEnabled":false)") << true;
        QTest::newRow("nil id") << list(R"("id":"00000000-0000-0000-0000-000000000000",)" + rest) << true;
        QTest::newRow("lacks isEnabled") << list(id + R"("targetLanguage":"en","keyCode":14,"modifiers":768)") << false;
        QTest::newRow("lacks id") << list(rest) << false;
        QTest::newRow("id not a UUID") << list(R"("id":"E",)" + rest) << false;
        QTest::newRow("keyCode above 32 bits") << list(id + QByteArray(rest).replace(":14,", ":4294967296,")) << false;
        QTest::newRow("negative keyCode") << list(id + QByteArray(rest).replace(":14,", ":-1,")) << false;
        QTest::newRow("fractional keyCode") << list(id + QByteArray(rest).replace(":14,", ":14.5,")) << false;
        QTest::newRow("modifiers as string") << list(id + QByteArray(rest).replace(":768,", ":\"768\",")) << false;
        QTest::newRow("isEnabled as number") << list(id + QByteArray(rest).replace(":true", ":1")) << false;
        QTest::newRow("language as null") << list(id + QByteArray(rest).replace("\"en\"", "null")) << false;
        QTest::newRow("one bad element among good ones") << QByteArray("[" + good + ",{}," + good + "]") << false;
        QTest::newRow("object, not a list") << QByteArray("{}") << false;
        QTest::newRow("not JSON") << QByteArray("[{\"id\":") << false;
    }

    void hotkeyListDecoding()
    {
        QFETCH(QByteArray, json);
        QFETCH(bool, decodes);
        JsonSettingsStore store(path());
        store.setData(SettingsKeys::hotkeyConfigs, json);
        const auto loaded = loadHotkeyConfigs(store);
        if (decodes)
            QCOMPARE(encodeHotkeyConfigs(loaded), json);
        else
            QVERIFY(isDefaultList(loaded));

        // The same text stored as a string rather than data is not a list at all.
        store.setString(SettingsKeys::hotkeyConfigs, QString::fromUtf8(json));
        QVERIFY(isDefaultList(loadHotkeyConfigs(store)));
    }

    void hotkeyListRoundTrip()
    {
        const QList<HotkeyConfig> configs = {
            {QUuid::createUuid(), "ja", 0, Modifier::Control | Modifier::Option, false},
            {QUuid::createUuid(), "zh", 123, Modifier::All, true},
            {QUuid::createUuid(), "x\"ü\\/", 4294967295u, 4294967295u, true},
        };
        {
            JsonSettingsStore writer(path());
            saveHotkeyConfigs(writer, configs);
        }
        JsonSettingsStore store(path());
        QVERIFY(loadHotkeyConfigs(store) == configs);

        saveHotkeyConfigs(store, {});
        QCOMPARE(loadHotkeyConfigs(store).size(), 0);
    }

    void unparsableFileMovedAside_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::newRow("cut short") << QByteArray(R"({"output_mode": "bilingual", "auto_replace": fal)");
        QTest::newRow("a list") << QByteArray(R"(["output_mode", "bilingual"])");
        QTest::newRow("empty") << QByteArray();
    }

    void unparsableFileMovedAside()
    {
        QFETCH(QByteArray, contents);
        QVERIFY(writeFile(path(), contents));
        QString firstAside;
        {
            JsonSettingsStore store(path());
            firstAside = store.movedAsidePath();
            QVERIFY(!firstAside.isEmpty());
            QCOMPARE(readFile(firstAside), contents);
            QVERIFY(!QFile::exists(path()));

            QCOMPARE(AppState(store).outputMode(), OutputMode::TranslateOnly);
            QVERIFY(AppState::storedAutoReplace(store));
            QVERIFY(isDefaultList(loadHotkeyConfigs(store)));

            store.setString(SettingsKeys::defaultLanguage, QStringLiteral("fr"));
            QVERIFY(isJsonObject(readFile(path())));
        }
        QCOMPARE(readFile(firstAside), contents);
        {
            const JsonSettingsStore reopened(path());
            QVERIFY(reopened.movedAsidePath().isEmpty());
            QCOMPARE(reopened.stringValue(SettingsKeys::defaultLanguage), QStringLiteral("fr"));
        }

        // Broken again at once: the second copy goes elsewhere and the first one survives.
        QVERIFY(writeFile(path(), "second"));
        const JsonSettingsStore again(path());
        QVERIFY(!again.movedAsidePath().isEmpty() && again.movedAsidePath() != firstAside);
        QCOMPARE(readFile(again.movedAsidePath()), QByteArray("second"));
        QCOMPARE(readFile(firstAside), contents);
    }

    void everyWriteLeavesACompleteFile()
    {
        JsonSettingsStore store(path());
        const QString big(20000, QChar(0x00e9));
        for (int i = 0; i < 20; ++i) {
            store.setNumber(QString("n%1").arg(i), i);
            store.setString(QString("s%1").arg(i), big);
            QVERIFY2(isJsonObject(readFile(path())), qPrintable(QString("after write %1").arg(i)));
        }
        store.remove("n0");
        const JsonSettingsStore reopened(path());
        QVERIFY(!reopened.numberValue("n0"));
        QCOMPARE(reopened.numberValue("n19"), 19.0);
        QCOMPARE(reopened.stringValue("s19"), big);
        QCOMPARE(QDir(QFileInfo(path()).absolutePath()).entryList(QDir::Files | QDir::Hidden), QStringList{"settings.json"});
    }

    // The menus list languages in this order; unknown codes are shown as they are.
    void languageTable()
    {
        QStringList codes;
        for (const Language &language : supportedLanguages())
            codes << language.code;
        QCOMPARE(codes, QStringList({"en", "ja", "ko", "zh", "vi", "fr", "de", "es", "pt", "th", "hi", "it", "ru", "ar"}));
        QCOMPARE(languageName("zh"), QStringLiteral("Chinese (Simplified)"));
        QCOMPARE(languageName("xx"), QStringLiteral("xx"));
        QVERIFY(isSupportedLanguage("vi") && !isSupportedLanguage("EN"));
    }

    void changeSignals_data()
    {
        QTest::addColumn<int>("index");
        const QMetaObject &meta = AppState::staticMetaObject;
        for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i)
            QTest::newRow(meta.property(i).name()) << i;
    }

    // One signal per real change, none for the same value; nothing is written to the store.
    void changeSignals()
    {
        QFETCH(int, index);
        JsonSettingsStore store(path());
        AppState state(store);
        const QMetaProperty property = state.metaObject()->property(index);
        QVERIFY(property.hasNotifySignal());
        QSignalSpy spy(&state, property.notifySignal());

        const QVariant initial = property.read(&state);
        QVariant changed;
        switch (initial.typeId()) {
        case QMetaType::Bool: changed = !initial.toBool(); break;
        case QMetaType::Int: changed = initial.toInt() + 7; break;
        case QMetaType::Double: changed = initial.toDouble() + 2.5; break;
        case QMetaType::QString: changed = initial.toString() + " ✓"; break;
        default:
            QCOMPARE(initial.metaType(), QMetaType::fromType<OutputMode>());
            changed = QVariant::fromValue(OutputMode::Bilingual);
        }

        QVERIFY(property.write(&state, initial));
        QCOMPARE(spy.count(), 0);
        QVERIFY(property.write(&state, changed));
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy.at(0).at(0), changed);
        QCOMPARE(property.read(&state), changed);
        QVERIFY(property.write(&state, changed));
        QCOMPARE(spy.count(), 1);
        QVERIFY(!QFile::exists(path()));
    }
};

QTEST_GUILESS_MAIN(StateTest)
#include "tst_state.moc"
