#include "ui/TranslationSettingsTab.h"

#include "service/EngineSettings.h"
#include "service/KeychainStore.h"
#include "service/TranslationService.h"
#include "state/AppState.h"
#include "state/Log.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"

#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPointer>
#include <QPushButton>
#include <QShowEvent>
#include <QVBoxLayout>

namespace {

QString fieldName(const QString &engineId, const QString &field)
{
    return engineId + QLatin1Char('.') + field;
}

// The settings key of an engine's server URL or model; empty when there is none.
QString settingsKey(const QString &engineId, const QString &field)
{
    if (field == QLatin1String("model"))
        return engineId == EngineIds::openai ? SettingsKeys::openaiModel : QString();
    if (engineId == EngineIds::deepl)
        return SettingsKeys::deeplUrl;
    if (engineId == EngineIds::libretranslate)
        return SettingsKeys::libretranslateUrl;
    if (engineId == EngineIds::openai)
        return SettingsKeys::openaiUrl;
    return {};
}

QLabel *noteLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

// A field for a secret: masked, never echoed, kept out of the clipboard's reach.
QLineEdit *secretField(const QString &objectName, QWidget *parent)
{
    auto *field = new QLineEdit(parent);
    field->setObjectName(objectName);
    field->setEchoMode(QLineEdit::Password);
    field->setClearButtonEnabled(true);
    return field;
}

} // namespace

QString TranslationSettingsTab::sampleTargetLanguage()
{
    const QString language = AppState::shared().defaultLanguage();
    return language == QLatin1String("en") ? QStringLiteral("es") : language;
}

QString TranslationSettingsTab::engineDisplayName(const QString &engineId)
{
    if (engineId == EngineIds::service)
        return qtTrId("translation.engine.service");
    if (engineId == EngineIds::offline)
        return qtTrId("translation.engine.offline");
    if (engineId == EngineIds::deepl)
        return qtTrId("translation.engine.deepl");
    if (engineId == EngineIds::libretranslate)
        return qtTrId("translation.engine.libretranslate");
    if (engineId == EngineIds::openai)
        return qtTrId("translation.engine.openai");
    return engineId;
}

TranslationSettingsTab::TranslationSettingsTab(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("TranslationSettingsTab"));

    m_engine = new QComboBox(this);
    m_engine->setObjectName(QStringLiteral("engine"));
    // One page per engine, only the chosen one shown (so the tab is as tall as that page).
    auto *pagesLayout = new QVBoxLayout;
    pagesLayout->setContentsMargins(0, 0, 0, 0);
    for (const QString &id : EngineSettings::engineIds()) {
        m_engine->addItem(engineDisplayName(id), id);
        if (id == EngineIds::service)
            m_pages << buildServicePage();
        else if (id == EngineIds::offline)
            m_pages << buildOfflinePage();
        else
            m_pages << buildEnginePage(id, id == EngineIds::openai);
        pagesLayout->addWidget(m_pages.last());
    }

    auto *engineRow = new QHBoxLayout;
    auto *engineLabel = new QLabel(qtTrId("translation.engine"), this);
    engineLabel->setBuddy(m_engine);
    engineRow->addWidget(engineLabel);
    engineRow->addWidget(m_engine, 1);

    auto *testBox = new QGroupBox(qtTrId("translation.test.title"), this);
    m_test = new QPushButton(qtTrId("translation.test.button"), testBox);
    m_test->setObjectName(QStringLiteral("test"));
    m_testResult = new QLabel(testBox);
    m_testResult->setObjectName(QStringLiteral("testResult"));
    m_testResult->setWordWrap(true);
    m_testResult->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *testLayout = new QVBoxLayout(testBox);
    testLayout->addWidget(noteLabel(qtTrId("translation.test.explanation").arg(sampleText), testBox));
    auto *testRow = new QHBoxLayout;
    testRow->addWidget(m_test);
    testRow->addWidget(m_testResult, 1);
    testLayout->addLayout(testRow);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 20);
    layout->setSpacing(14);
    layout->addLayout(engineRow);
    layout->addLayout(pagesLayout);
    layout->addWidget(testBox);
    layout->addStretch();

    loadValues();
    connect(m_engine, &QComboBox::currentIndexChanged, this, &TranslationSettingsTab::engineChanged);
    connect(m_test, &QPushButton::clicked, this, &TranslationSettingsTab::testEngine);
    connect(&AppState::shared(), &AppState::quotaRemainingChanged, this, [this] {
        m_quotaReported = true;
        updateQuota();
    });
}

TranslationSettingsTab::~TranslationSettingsTab() = default;

QWidget *TranslationSettingsTab::buildServicePage()
{
    auto *page = new QGroupBox(qtTrId("translation.account.title"), this);
    page->setObjectName(EngineIds::service);
    m_accountStatus = new QLabel(page);
    m_accountStatus->setObjectName(QStringLiteral("accountStatus"));
    m_token = secretField(QStringLiteral("serviceToken"), page);
    m_token->setPlaceholderText(qtTrId("translation.account.token_placeholder"));
    m_token->setAccessibleName(qtTrId("translation.account.token_placeholder"));
    m_signIn = new QPushButton(qtTrId("translation.account.sign_in"), page);
    m_signIn->setObjectName(QStringLiteral("signIn"));
    m_signOut = new QPushButton(qtTrId("translation.account.sign_out"), page);
    m_signOut->setObjectName(QStringLiteral("signOut"));
    m_quota = new QLabel(page);
    m_quota->setObjectName(QStringLiteral("quota"));
    connect(m_signIn, &QPushButton::clicked, this, &TranslationSettingsTab::signIn);
    connect(m_token, &QLineEdit::returnPressed, this, &TranslationSettingsTab::signIn);
    connect(m_signOut, &QPushButton::clicked, this, &TranslationSettingsTab::signOut);
    connect(m_token, &QLineEdit::textChanged, this,
            [this](const QString &text) { m_signIn->setEnabled(!text.trimmed().isEmpty()); });

    auto *tokenRow = new QHBoxLayout;
    tokenRow->addWidget(m_token, 1);
    tokenRow->addWidget(m_signIn);
    auto *statusRow = new QHBoxLayout;
    statusRow->addWidget(m_accountStatus, 1);
    statusRow->addWidget(m_signOut);
    auto *layout = new QVBoxLayout(page);
    layout->addLayout(statusRow);
    layout->addLayout(tokenRow);
    layout->addWidget(noteLabel(qtTrId("translation.account.explanation"), page));
    layout->addWidget(m_quota);
    return page;
}

QWidget *TranslationSettingsTab::buildOfflinePage()
{
    auto *page = new QGroupBox(engineDisplayName(EngineIds::offline), this);
    page->setObjectName(EngineIds::offline);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(noteLabel(qtTrId("translation.offline.explanation"), page));
    return page;
}

QWidget *TranslationSettingsTab::buildEnginePage(const QString &engineId, bool hasModel)
{
    auto *page = new QGroupBox(engineDisplayName(engineId), this);
    page->setObjectName(engineId);
    auto *form = new QFormLayout(page);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);

    QStringList fields{QStringLiteral("url")};
    if (hasModel)
        fields << QStringLiteral("model");
    for (const QString &field : fields) {
        auto *edit = new QLineEdit(page);
        edit->setObjectName(fieldName(engineId, field));
        if (field == QLatin1String("model"))
            edit->setPlaceholderText(EngineSettings::defaultOpenAiModel);
        else if (engineId == EngineIds::deepl)
            edit->setPlaceholderText(qtTrId("translation.url.deepl_automatic"));
        else if (engineId == EngineIds::libretranslate)
            edit->setPlaceholderText(EngineSettings::defaultLibreTranslateUrl);
        else
            edit->setPlaceholderText(EngineSettings::defaultOpenAiUrl);
        const QString key = settingsKey(engineId, field);
        connect(edit, &QLineEdit::editingFinished, this, [edit, key] {
            const QString value = edit->text().trimmed();
            SettingsStore &store = SettingsStore::shared();
            if (value == store.stringValue(key).value_or(QString()).trimmed())
                return;
            if (value.isEmpty())
                store.remove(key);
            else
                store.setString(key, value);
            logLine("Settings", QStringLiteral("%1 = %2").arg(key, value.isEmpty() ? QStringLiteral("(default)") : value));
        });
        form->addRow(field == QLatin1String("model") ? qtTrId("translation.model") : qtTrId("translation.url"), edit);
    }

    auto *keyField = secretField(fieldName(engineId, QStringLiteral("key")), page);
    keyField->setPlaceholderText(qtTrId("translation.key_placeholder"));
    const QString account = EngineSettings::keyAccount(engineId);
    connect(keyField, &QLineEdit::editingFinished, this, [keyField, account] {
        const QString value = keyField->text().trimmed();
        KeychainStore &keychain = KeychainStore::shared();
        if (value == keychain.load(account).value_or(QString()).trimmed())
            return;
        if (value.isEmpty()) {
            keychain.remove(account);
            logLine("Settings", account + QStringLiteral(" removed from the credential store"));
        } else if (keychain.save(account, value)) {
            logLine("Settings", account + QStringLiteral(" saved in the credential store"));
        } else {
            logLine("Settings", account + QStringLiteral(" could not be saved in the credential store"));
        }
    });
    form->addRow(qtTrId("translation.key"), keyField);
    form->addRow(noteLabel(qtTrId("translation.key_explanation"), page));
    return page;
}

void TranslationSettingsTab::showPage(int index)
{
    for (int i = 0; i < m_pages.size(); ++i)
        m_pages.at(i)->setVisible(i == index);
}

QLineEdit *TranslationSettingsTab::engineField(const QString &engineId, const QString &field) const
{
    return findChild<QLineEdit *>(fieldName(engineId, field));
}

void TranslationSettingsTab::loadValues()
{
    const QString selected = EngineSettings::selectedEngine();
    const int index = qMax(0, m_engine->findData(selected));
    {
        const QSignalBlocker blocker(m_engine);
        m_engine->setCurrentIndex(index);
    }
    showPage(index);
    for (const QString &id : EngineSettings::engineIds()) {
        for (const QString &field : {QStringLiteral("url"), QStringLiteral("model")}) {
            if (QLineEdit *edit = engineField(id, field))
                edit->setText(SettingsStore::shared().stringValue(settingsKey(id, field)).value_or(QString()));
        }
        if (QLineEdit *key = engineField(id, QStringLiteral("key")))
            key->setText(KeychainStore::shared().load(EngineSettings::keyAccount(id)).value_or(QString()));
    }
    m_token->clear();
    m_signIn->setEnabled(false);
    m_quotaReported = m_quotaReported || AppState::shared().quotaRemaining() != 0;
    updateAccountStatus();
    updateQuota();
}

void TranslationSettingsTab::showEvent(QShowEvent *event)
{
    // The window is kept between showings: the keyring or the settings may have changed since.
    if (!event->spontaneous())
        loadValues();
    QWidget::showEvent(event);
}

void TranslationSettingsTab::engineChanged(int index)
{
    const QString id = m_engine->itemData(index).toString();
    showPage(index);
    SettingsStore::shared().setString(SettingsKeys::translationEngine, id);
    m_testResult->clear();
    logLine("Settings", QStringLiteral("translation_engine = ") + id);
}

void TranslationSettingsTab::signIn()
{
    const QString token = m_token->text().trimmed();
    if (token.isEmpty())
        return;
    const bool saved = KeychainStore::shared().save(KeychainStore::sessionTokenKey, token);
    logLine("Settings", saved ? QStringLiteral("signed in: token saved in the credential store")
                              : QStringLiteral("sign-in failed: the credential store did not take the token"));
    m_token->clear();
    updateAccountStatus();
    if (!saved)
        m_accountStatus->setText(qtTrId("translation.account.save_failed"));
}

void TranslationSettingsTab::signOut()
{
    KeychainStore::shared().remove(KeychainStore::sessionTokenKey);
    logLine("Settings", QStringLiteral("signed out: token deleted from the credential store"));
    updateAccountStatus();
}

void TranslationSettingsTab::updateAccountStatus()
{
    const bool signedIn = KeychainStore::shared().load(KeychainStore::sessionTokenKey).has_value();
    m_accountStatus->setText(signedIn ? qtTrId("translation.account.signed_in") : qtTrId("translation.account.signed_out"));
    m_signOut->setEnabled(signedIn);
}

void TranslationSettingsTab::updateQuota()
{
    if (!m_quotaReported) {
        m_quota->setText(qtTrId("translation.quota.unknown"));
        return;
    }
    m_quota->setText(qtTrId("translation.quota.remaining").arg(QLocale().toString(AppState::shared().quotaRemaining())));
}

void TranslationSettingsTab::testEngine()
{
    // Keys and URLs being typed count: their fields save when editing ends.
    if (QWidget *focused = focusWidget())
        focused->clearFocus();
    runTest();
}

QCoro::Task<> TranslationSettingsTab::runTest()
{
    QPointer<TranslationSettingsTab> self(this);
    m_test->setEnabled(false);
    m_testResult->setText(qtTrId("translation.test.running"));
    const QString text = sampleText;
    const QString target = sampleTargetLanguage();
    auto task = TranslationService::shared().translate(text, target);
    const TranslationResult result = co_await task;
    if (!self)
        co_return;
    m_test->setEnabled(true);
    if (result.isOk()) {
        m_testResult->setText(qtTrId("translation.test.result").arg(text, result.value().translatedText));
        logLine("Settings", QStringLiteral("engine test: translated"));
    } else {
        m_testResult->setText(result.error().userMessage());
        logLine("Settings", QStringLiteral("engine test failed: ") + result.error().userMessage());
    }
    Q_EMIT testFinished();
}
