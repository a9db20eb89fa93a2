#pragma once

#include "state/OutputMode.h"

#include <QObject>
#include <QString>

class SettingsStore;

// The one process-wide settings and status object. Setting a property notifies observers but
// does not persist it: the code that changes a setting writes its key to the store itself.
class AppState : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isTranslating READ isTranslating WRITE setIsTranslating NOTIFY isTranslatingChanged)
    Q_PROPERTY(bool autoReplace READ autoReplace WRITE setAutoReplace NOTIFY autoReplaceChanged)
    Q_PROPERTY(OutputMode outputMode READ outputMode WRITE setOutputMode NOTIFY outputModeChanged)
    Q_PROPERTY(QString bilingualTemplate READ bilingualTemplate WRITE setBilingualTemplate NOTIFY bilingualTemplateChanged)
    Q_PROPERTY(QString defaultLanguage READ defaultLanguage WRITE setDefaultLanguage NOTIFY defaultLanguageChanged)
    Q_PROPERTY(bool isAccessibilityGranted READ isAccessibilityGranted WRITE setIsAccessibilityGranted NOTIFY isAccessibilityGrantedChanged)
    Q_PROPERTY(int settingsTabSelection READ settingsTabSelection WRITE setSettingsTabSelection NOTIFY settingsTabSelectionChanged)
    Q_PROPERTY(bool inlineTranslationEnabled READ inlineTranslationEnabled WRITE setInlineTranslationEnabled NOTIFY inlineTranslationEnabledChanged)
    Q_PROPERTY(double popupDismissDelay READ popupDismissDelay WRITE setPopupDismissDelay NOTIFY popupDismissDelayChanged)
    Q_PROPERTY(int quotaRemaining READ quotaRemaining WRITE setQuotaRemaining NOTIFY quotaRemainingChanged)

public:
    static inline const QString defaultTemplate = QStringLiteral("{original}\n\n{translated}");
    static constexpr double defaultDismissDelay = 10.0;

    // Creates the state from the initial values and then the stored settings.
    explicit AppState(SettingsStore &store, QObject *parent = nullptr);

    // The single instance, loaded from SettingsStore::shared() on first access (main thread).
    static AppState &shared();

    bool isTranslating() const { return m_isTranslating; }
    bool autoReplace() const { return m_autoReplace; }
    OutputMode outputMode() const { return m_outputMode; }
    QString bilingualTemplate() const { return m_bilingualTemplate; }
    QString defaultLanguage() const { return m_defaultLanguage; }
    bool isAccessibilityGranted() const { return m_isAccessibilityGranted; }
    int settingsTabSelection() const { return m_settingsTabSelection; }
    bool inlineTranslationEnabled() const { return m_inlineTranslationEnabled; }
    double popupDismissDelay() const { return m_popupDismissDelay; }
    int quotaRemaining() const { return m_quotaRemaining; }

    void setIsTranslating(bool value);
    void setAutoReplace(bool value);
    void setOutputMode(OutputMode value);
    void setBilingualTemplate(const QString &value);
    void setDefaultLanguage(const QString &value);
    void setIsAccessibilityGranted(bool value);
    void setSettingsTabSelection(int value);
    void setInlineTranslationEnabled(bool value);
    void setPopupDismissDelay(double value);
    void setQuotaRemaining(int value);

    // "auto_replace" is read by the launch sequence rather than when the state is created:
    // an absent key or a value that is not a boolean gives true.
    static bool storedAutoReplace(const SettingsStore &store);

Q_SIGNALS:
    void isTranslatingChanged(bool);
    void autoReplaceChanged(bool);
    void outputModeChanged(OutputMode);
    void bilingualTemplateChanged(const QString &);
    void defaultLanguageChanged(const QString &);
    void isAccessibilityGrantedChanged(bool);
    void settingsTabSelectionChanged(int);
    void inlineTranslationEnabledChanged(bool);
    void popupDismissDelayChanged(double);
    void quotaRemainingChanged(int);

private:
    bool m_isTranslating = false;
    bool m_autoReplace = true;
    OutputMode m_outputMode = OutputMode::TranslateOnly;
    QString m_bilingualTemplate = defaultTemplate;
    QString m_defaultLanguage = QStringLiteral("en");
    bool m_isAccessibilityGranted = false;
    int m_settingsTabSelection = 0;
    bool m_inlineTranslationEnabled = false;
    double m_popupDismissDelay = defaultDismissDelay;
    int m_quotaRemaining = 0;
};
