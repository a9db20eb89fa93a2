#pragma once

#include <QLocale>

// Loads the interface texts for the locale (English when the locale's language has none).
// Every visible text is then looked up by its dotted key with qtTrId().
void installTranslations(const QLocale &locale = QLocale::system());
