#include "service/LanguageDetector.h"

#include "state/Languages.h"

#include <QChar>

#include <array>

#ifdef PARLANTO_HAVE_CLD2
#include <cstdio> // the CLD2 header uses FILE without including it
#include <cld2/public/compact_lang_det.h>
#include <cld2/public/encodings.h>
#endif

namespace {

// Writing systems that, among the languages of the table, belong to one language only.
enum Group { Han, Kana, Hangul, Thai, Devanagari, Arabic, Cyrillic, GroupCount };

QStringList tableCodes()
{
    QStringList codes;
    for (const Language &language : supportedLanguages())
        codes.append(language.code);
    return codes;
}

#ifdef PARLANTO_HAVE_CLD2
QString codeOf(CLD2::Language language)
{
    if (language == CLD2::UNKNOWN_LANGUAGE || language == CLD2::TG_UNKNOWN_LANGUAGE)
        return {};
    QString code = QString::fromLatin1(CLD2::LanguageCode(language));
    // "zh-Hant" and similar regional codes count as their language.
    const qsizetype dash = code.indexOf(QLatin1Char('-'));
    if (dash > 0)
        code.truncate(dash);
    return code;
}
#endif

// How many letters of each writing system a text has.
struct ScriptCounts
{
    std::array<int, GroupCount> groups{};
    int latin = 0;
    int other = 0; // Greek, Hebrew, Armenian...: letters of no language of the table
};

ScriptCounts countScripts(const QString &text)
{
    ScriptCounts counts;
    const QList<uint> codePoints = text.toUcs4();
    for (const uint c : codePoints) {
        switch (QChar::script(char32_t(c))) {
        case QChar::Script_Han: ++counts.groups[Han]; break;
        case QChar::Script_Hiragana:
        case QChar::Script_Katakana: ++counts.groups[Kana]; break;
        case QChar::Script_Hangul: ++counts.groups[Hangul]; break;
        case QChar::Script_Thai: ++counts.groups[Thai]; break;
        case QChar::Script_Devanagari: ++counts.groups[Devanagari]; break;
        case QChar::Script_Arabic: ++counts.groups[Arabic]; break;
        case QChar::Script_Cyrillic: ++counts.groups[Cyrillic]; break;
        case QChar::Script_Latin: ++counts.latin; break;
        default:
            // Digits, punctuation, emoji and combining marks do not count.
            if (QChar::isLetter(char32_t(c)))
                ++counts.other;
            break;
        }
    }
    return counts;
}

} // namespace

QString LanguageDetector::scriptLanguage(const QString &text)
{
    const ScriptCounts script = countScripts(text);
    const auto &counts = script.groups;
    const int latin = script.latin;

    // Japanese writes kanji among its kana: any kana makes the Han characters Japanese.
    // A CJK character carries about a word, so it weighs like a few letters of an alphabet.
    const int cjk = 3;
    struct Candidate { const char *code; int weight; };
    const std::array<Candidate, 7> scored = {{
        {"ja", counts[Kana] > 0 ? cjk * (counts[Kana] + counts[Han]) : 0},
        {"zh", counts[Kana] > 0 ? 0 : cjk * counts[Han]},
        {"ko", cjk * counts[Hangul]},
        {"th", counts[Thai]},
        {"hi", counts[Devanagari]},
        {"ar", counts[Arabic]},
        {"ru", counts[Cyrillic]},
    }};
    const Candidate *best = nullptr;
    for (const Candidate &candidate : scored) {
        if (candidate.weight > 0 && (!best || candidate.weight > best->weight))
            best = &candidate;
    }
    // A brand name in Latin letters does not make "我用Windows电脑" English, but a foreign
    // name does not make an English sentence Chinese either: the other script must weigh at
    // least half as much as the Latin letters.
    if (!best || best->weight * 2 < latin)
        return {};
    return QString::fromLatin1(best->code);
}

DetectedLanguage LanguageDetector::detect(const QString &text, const QStringList &candidates)
{
    const QStringList accepted = candidates.isEmpty() ? tableCodes() : candidates;

    const QString byScript = scriptLanguage(text);
    if (!byScript.isEmpty()) {
        if (!accepted.contains(byScript))
            return {};
        return {byScript, DetectedLanguage::Method::Script, true};
    }

    const ScriptCounts script = countScripts(text);
    if (script.latin == 0 || script.other > script.latin)
        return {}; // no letters, or a writing system none of the candidates uses

#ifdef PARLANTO_HAVE_CLD2
    const QByteArray utf8 = text.toUtf8();
    struct Guess { QString code; double score = 0; bool reliable = false; };
    const auto guess = [&utf8](CLD2::Language hint, const QStringList &accepted) -> Guess {
        CLD2::CLDHints hints = {nullptr, nullptr, CLD2::UNKNOWN_ENCODING, hint};
        CLD2::Language language3[3];
        int percent3[3];
        double normalizedScore3[3];
        int textBytes = 0;
        bool reliable = false;
        CLD2::ExtDetectLanguageSummary(utf8.constData(), int(utf8.size()), true, &hints,
                                       CLD2::kCLDFlagBestEffort, language3, percent3,
                                       normalizedScore3, nullptr, &textBytes, &reliable);
        for (int i = 0; i < 3; ++i) {
            const QString code = codeOf(language3[i]);
            if (!code.isEmpty() && accepted.contains(code))
                return {code, normalizedScore3[i], reliable};
        }
        return {};
    };

    const Guess plain = guess(CLD2::UNKNOWN_LANGUAGE, accepted);
    if (!plain.code.isEmpty())
        return {plain.code, DetectedLanguage::Method::Statistics, plain.reliable};

    // CLD2 settled on a language we do not have (a short Spanish text read as Galician, a
    // French phrase as Catalan). Ask again with each candidate as the hint, and keep the one
    // that, when suggested, fits the text best.
    Guess best;
    for (const QString &candidate : accepted) {
        const CLD2::Language language = CLD2::GetLanguageFromName(candidate.toLatin1().constData());
        if (language == CLD2::UNKNOWN_LANGUAGE)
            continue;
        const Guess hinted = guess(language, {candidate});
        if (!hinted.code.isEmpty() && hinted.score > best.score)
            best = hinted;
    }
    if (!best.code.isEmpty())
        return {best.code, DetectedLanguage::Method::Statistics, false};
#endif
    return {};
}

bool LanguageDetector::hasStatisticalDetection()
{
#ifdef PARLANTO_HAVE_CLD2
    return true;
#else
    return false;
#endif
}
