#pragma once

#include <QList>
#include <QString>

struct Language {
    QString code;
    QString name; // English display name
};

// The target languages in the order every language chooser offers them; "en" first.
const QList<Language> &supportedLanguages();

// The English name of a code, or the code itself when the table does not have it.
QString languageName(const QString &code);
bool isSupportedLanguage(const QString &code);
