#include "ui/Localisation.h"

#include "state/Log.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>

namespace {

QTranslator *ownTexts = nullptr;
QTranslator *qtTexts = nullptr;

void replace(QTranslator *&translator)
{
    if (translator) {
        QCoreApplication::removeTranslator(translator);
        delete translator;
    }
    translator = new QTranslator;
}

} // namespace

void installTranslations(const QLocale &locale)
{
    replace(ownTexts);
    // Tries the locale's languages in the user's order (LANGUAGE, then LC_MESSAGES/LANG).
    if (!ownTexts->load(locale, QStringLiteral("parlanto"), QStringLiteral("_"), QStringLiteral(":/i18n")))
        (void)ownTexts->load(QStringLiteral(":/i18n/parlanto_en.qm"));
    QCoreApplication::installTranslator(ownTexts);

    replace(qtTexts);
    const QString language = interfaceLanguage();
    if (language != QLatin1String("en")
        && qtTexts->load(QStringLiteral("qtbase_") + language, QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
        QCoreApplication::installTranslator(qtTexts);
    logLine("Parlanto", QStringLiteral("interface language: ") + language);
}

QString interfaceLanguage()
{
    if (!ownTexts || ownTexts->language().isEmpty())
        return QStringLiteral("en");
    return ownTexts->language().section(QLatin1Char('_'), 0, 0).section(QLatin1Char('-'), 0, 0);
}
