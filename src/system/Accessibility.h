#pragma once

#include <QByteArray>
#include <QCoro/QCoroTask>
#include <QHashFunctions>
#include <QRect>
#include <QString>
#include <memory>
#include <optional>

// One accessible element, recognisable across reads: two ids are equal when they name the same
// element of the same running application. A null id names nothing.
class AccessibleElementId
{
public:
    AccessibleElementId() = default;
    explicit AccessibleElementId(QByteArray key) : m_key(std::move(key)) {}

    bool isNull() const { return m_key.isEmpty(); }
    friend bool operator==(const AccessibleElementId &, const AccessibleElementId &) = default;
    friend size_t qHash(const AccessibleElementId &id, size_t seed = 0) { return qHash(id.m_key, seed); }

private:
    QByteArray m_key;
};

// A run of characters of a field's text. Characters are the Unicode code points of the text,
// whatever unit the application's toolkit counts in. A length of 0 is a caret position.
struct TextRange
{
    int start = 0;
    int length = 0;

    int end() const { return start + length; }
    friend bool operator==(const TextRange &, const TextRange &) = default;
};

struct AccessibleApplication
{
    qint64 pid = 0;
    QString name;
};

// The element that has the keyboard focus, as its application describes it.
struct FocusedElement
{
    AccessibleElementId id;
    QString role;               // the toolkit's role name: "entry", "text", "password text", "AXTextField"...
    bool editable = false;      // the user can change its text
    bool isPassword = false;    // a password field: its text, caret and selection are never read
    AccessibleApplication application;

    // Only for elements that expose their text (never for a password field):
    bool hasText = false;
    int caret = -1;                       // characters before the caret; -1 when unknown (macOS tells
                                          // no caret apart from the selection: its start)
    std::optional<TextRange> selection;   // the selected characters; length 0 (at the caret) when none
    std::optional<QString> text;          // the whole text, when it was asked for
};

// Reads what the focused element of another application shows, through the system's
// accessibility interface. Every read is awaited and never blocks the caller's thread; a read
// that cannot be answered (nothing focused, an application that does not answer, our own
// process, a field without text) reports none. Rectangles are in screen coordinates.
class Accessibility
{
public:
    enum class Read { Element, WithText };

    virtual ~Accessibility() = default;

    // The focused element of the active application, with its caret and selection, and with its
    // text when asked for (a password field reports none).
    virtual QCoro::Task<std::optional<FocusedElement>> focusedElement(Read read = Read::Element) = 0;

    // Where a range of the focused element's text is on screen, if that element is still `element`.
    // An empty range gives the caret: a rectangle 1 pixel wide at the character's left edge (at the
    // right edge of the last character when the caret ends the text).
    virtual QCoro::Task<std::optional<QRect>> boundsForRange(AccessibleElementId element, TextRange range) = 0;

    // The focused element takes typed or pasted text.
    virtual QCoro::Task<bool> isFocusedElementEditable() = 0;

    // Where the focused element's selected text is on screen; none without a selection.
    virtual QCoro::Task<std::optional<QRect>> selectionRect() = 0;
};

// The system's accessibility reader: AT-SPI 2 on Linux, the AXUIElement API on macOS.
std::unique_ptr<Accessibility> createSystemAccessibility();
