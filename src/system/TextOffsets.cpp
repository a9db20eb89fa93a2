#include "system/TextOffsets.h"

#include <algorithm>

namespace TextOffsets {

namespace {

constexpr char16_t zeroWidthNoBreakSpace = 0xFEFF;

bool startsPair(const QString &text, qsizetype i)
{
    return i + 1 < text.size() && text.at(i).isHighSurrogate() && text.at(i + 1).isLowSurrogate();
}

// Firefox follows every character beyond the BMP with U+FEFF so that its offsets stay UTF-16
// units of the text without them. True when every such character is followed by one.
bool isPadded(const QString &text)
{
    bool any = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (!startsPair(text, i))
            continue;
        if (i + 2 >= text.size() || text.at(i + 2) != QChar(zeroWidthNoBreakSpace))
            return false;
        any = true;
        i += 2;
    }
    return any;
}

QString withoutPadding(const QString &text)
{
    QString result;
    result.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        result.append(text.at(i));
        if (startsPair(text, i)) {
            result.append(text.at(i + 1));
            i += 2; // the pair's second half, then the padding after it
        }
    }
    return result;
}

} // namespace

ToolkitText interpret(const QString &reported, int reportedCount)
{
    if (isPadded(reported))
        return {withoutPadding(reported), Unit::Utf16};
    const int codePoints = characterCount(reported);
    if (codePoints != reported.size() && reportedCount == reported.size())
        return {reported, Unit::Utf16};
    return {reported, Unit::CodePoint};
}

int characterCount(const QString &text)
{
    int count = 0;
    for (qsizetype i = 0; i < text.size(); ++i, ++count) {
        if (startsPair(text, i))
            ++i;
    }
    return count;
}

int toCharacters(const QString &text, Unit unit, int offset)
{
    if (unit == Unit::CodePoint)
        return std::clamp(offset, 0, characterCount(text));
    const qsizetype end = std::clamp<qsizetype>(offset, 0, text.size());
    int count = 0;
    for (qsizetype i = 0; i < end; ++i, ++count) {
        if (startsPair(text, i))
            ++i;
    }
    return count;
}

int fromCharacters(const QString &text, Unit unit, int characters)
{
    if (unit == Unit::CodePoint)
        return std::clamp(characters, 0, characterCount(text));
    qsizetype i = 0;
    for (int n = 0; n < characters && i < text.size(); ++n)
        i += startsPair(text, i) ? 2 : 1;
    return static_cast<int>(i);
}

QString characterMid(const QString &text, int start, int length)
{
    const int from = fromCharacters(text, Unit::Utf16, start);
    if (length < 0)
        return text.mid(from);
    return text.mid(from, fromCharacters(text, Unit::Utf16, start + length) - from);
}

} // namespace TextOffsets
