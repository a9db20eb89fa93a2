#include "state/Languages.h"

const QList<Language> &supportedLanguages()
{
    static const QList<Language> table = {
        {QStringLiteral("en"), QStringLiteral("English")},
        {QStringLiteral("ja"), QStringLiteral("Japanese")},
        {QStringLiteral("ko"), QStringLiteral("Korean")},
        {QStringLiteral("zh"), QStringLiteral("Chinese (Simplified)")},
        {QStringLiteral("vi"), QStringLiteral("Vietnamese")},
        {QStringLiteral("fr"), QStringLiteral("French")},
        {QStringLiteral("de"), QStringLiteral("German")},
        {QStringLiteral("es"), QStringLiteral("Spanish")},
        {QStringLiteral("pt"), QStringLiteral("Portuguese")},
        {QStringLiteral("th"), QStringLiteral("Thai")},
        {QStringLiteral("hi"), QStringLiteral("Hindi")},
        {QStringLiteral("it"), QStringLiteral("Italian")},
        {QStringLiteral("ru"), QStringLiteral("Russian")},
        {QStringLiteral("ar"), QStringLiteral("Arabic")},
    };
    return table;
}

QString languageName(const QString &code)
{
    for (const Language &language : supportedLanguages()) {
        if (language.code == code)
            return language.name;
    }
    return code;
}

bool isSupportedLanguage(const QString &code)
{
    for (const Language &language : supportedLanguages()) {
        if (language.code == code)
            return true;
    }
    return false;
}
