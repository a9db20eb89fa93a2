#pragma once

#include <QString>

// Offsets into a field's text. Our flows count characters (Unicode code points of the text);
// toolkits count code points (GTK, Chromium) or UTF-16 units (Qt, macOS, and Firefox once the
// U+FEFF it inserts after every character beyond the BMP is removed).
namespace TextOffsets {

enum class Unit { CodePoint, Utf16 };

struct ToolkitText
{
    QString text;   // the field's text, without any padding the toolkit added
    Unit unit = Unit::CodePoint;
};

// Interprets a text as a toolkit reported it together with the number of offsets the toolkit
// says it has (its character count): the text proper and the unit of the toolkit's offsets.
ToolkitText interpret(const QString &reported, int reportedCount);

// Number of characters (code points) of a text.
int characterCount(const QString &text);

// The character offset of a toolkit offset, clamped to the text. An offset that falls inside a
// surrogate pair counts the whole character.
int toCharacters(const QString &text, Unit unit, int offset);

// The toolkit offset of a character offset, clamped to the text.
int fromCharacters(const QString &text, Unit unit, int characters);

// The part of a text from character `start`, `length` characters long (-1: to the end).
QString characterMid(const QString &text, int start, int length = -1);

} // namespace TextOffsets
