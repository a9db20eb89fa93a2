#pragma once

#include <QList>
#include <QWidget>
#include <QCoro/QCoroTask>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

// The Translation tab of the settings window: which engine translates, each engine's server,
// model and key (keys go to the credential store and are only ever shown masked), a Test button
// that translates a sample with the engine chosen, and for the web service the account token
// (paste to sign in, Sign out deletes it) and the characters left this month.
class TranslationSettingsTab : public QWidget
{
    Q_OBJECT
public:
    // What the Test button translates, and into which language (the default language unless it
    // is English, then Spanish).
    static inline const QString sampleText = QStringLiteral("Good morning");
    static QString sampleTargetLanguage();
    // The engine's name as the menu shows it.
    static QString engineDisplayName(const QString &engineId);

    explicit TranslationSettingsTab(QWidget *parent = nullptr);
    ~TranslationSettingsTab() override;

    // Shows the stored settings in the controls, without writing.
    void loadValues();

    QComboBox *engineMenu() const { return m_engine; }
    QLineEdit *tokenField() const { return m_token; }
    QPushButton *signInButton() const { return m_signIn; }
    QPushButton *signOutButton() const { return m_signOut; }
    QLabel *accountStatusLabel() const { return m_accountStatus; }
    QLabel *quotaLabel() const { return m_quota; }
    QPushButton *testButton() const { return m_test; }
    QLabel *testResultLabel() const { return m_testResult; }
    // The field of an engine's server URL, model or API key ("url", "model", "key"); nullptr
    // when that engine has none.
    QLineEdit *engineField(const QString &engineId, const QString &field) const;

public Q_SLOTS:
    void engineChanged(int index);
    void signIn();
    void signOut();
    void testEngine();

Q_SIGNALS:
    // The Test button's translation ended (result or error shown).
    void testFinished();

protected:
    void showEvent(QShowEvent *event) override;

private:
    QWidget *buildServicePage();
    QWidget *buildOfflinePage();
    QWidget *buildEnginePage(const QString &engineId, bool hasModel);
    void showPage(int index);
    void updateAccountStatus();
    void updateQuota();
    QCoro::Task<> runTest();

    QComboBox *m_engine = nullptr;
    QList<QWidget *> m_pages;
    QLineEdit *m_token = nullptr;
    QPushButton *m_signIn = nullptr;
    QPushButton *m_signOut = nullptr;
    QLabel *m_accountStatus = nullptr;
    QLabel *m_quota = nullptr;
    QPushButton *m_test = nullptr;
    QLabel *m_testResult = nullptr;
    bool m_quotaReported = false;
};
