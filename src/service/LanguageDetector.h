#pragma once

#include <QString>
#include <QStringList>

// The language a text is written in, as a code of the language table.
struct DetectedLanguage
{
    enum class Method {
        None,       // nothing to go on (no letters), or no candidate fits
        Script,     // decided by the writing system alone (Han, Kana, Hangul, Thai, ...)
        Statistics, // decided by CLD2 among the Latin-script candidates
    };

    QString code; // empty when unknown
    Method method = Method::None;
    bool reliable = false; // CLD2's own verdict; always true for the script rule

    bool isKnown() const { return !code.isEmpty(); }
};

// Tells which language a text is in. Writing systems that belong to one language of the table
// decide at once (so "我用Windows电脑" is Chinese); Latin-script text goes to CLD2, whose top
// guesses are restricted to the candidate languages. Fast (microseconds) and thread-safe.
class LanguageDetector
{
public:
    // candidates: the codes the caller can use; empty means every language of the table.
    static DetectedLanguage detect(const QString &text, const QStringList &candidates = {});

    // The language the writing system alone gives, or an empty string for Latin-script text
    // and text without letters.
    static QString scriptLanguage(const QString &text);

    // Whether CLD2 is built in (it is on Linux); without it only the script rule works.
    static bool hasStatisticalDetection();
};
