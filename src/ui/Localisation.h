#pragma once

#include <QLocale>
#include <QString>

// Loads the interface texts for the locale's preferred languages (English when none of them has
// a translation), and Qt's own texts (standard buttons, text-field menus) for the same language.
// Every visible text is then looked up by its dotted key with qtTrId().
void installTranslations(const QLocale &locale = QLocale::system());

// The language of the texts installed last ("en", "es").
QString interfaceLanguage();
