#include "ui/Localisation.h"

#include <QCoreApplication>
#include <QTranslator>

void installTranslations(const QLocale &locale)
{
    static QTranslator *translator = nullptr;
    if (translator) {
        QCoreApplication::removeTranslator(translator);
        delete translator;
    }
    translator = new QTranslator;
    if (!translator->load(locale, QStringLiteral("parlanto"), QStringLiteral("_"), QStringLiteral(":/i18n")))
        (void)translator->load(QStringLiteral(":/i18n/parlanto_en.qm"));
    QCoreApplication::installTranslator(translator);
}
