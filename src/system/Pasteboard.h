#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QCoro/QCoroTask>
#include <memory>
#include <optional>

// One representation of a clipboard item: its type (a MIME type, a uniform type identifier, an
// X11 target name) and its bytes. On X11 the bytes travel with a type name and a unit size of
// their own, which a byte-exact restore gives back as they came.
struct PasteboardEntry {
    QString type;
    QByteArray bytes;
    QByteArray wireType;      // X11: the reply's type name; empty means the same as `type`
    quint8 wireFormat = 8;    // X11: 8, 16 or 32 bits per unit

    friend bool operator==(const PasteboardEntry &, const PasteboardEntry &) = default;
};

// Every representation of one item, in the clipboard's order, each type once.
using PasteboardItem = QList<PasteboardEntry>;

// The whole clipboard at one moment: every item with every type that could be read.
struct PasteboardSnapshot {
    QList<PasteboardItem> items;   // items whose every type failed are left out
    qint64 changeCount = 0;

    friend bool operator==(const PasteboardSnapshot &, const PasteboardSnapshot &) = default;
};

// A text read from the clipboard or the active selection. `concealed` is set when its owner
// marked it secret (a password manager): such a text is never to be used.
struct PasteboardText {
    std::optional<QString> text;
    bool concealed = false;
};

// What the system's clipboard must offer. Main thread only; nothing blocks on another
// application: reads are asynchronous and bounded in time.
class Pasteboard : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // Advances whenever the clipboard's content is replaced, by anyone.
    virtual qint64 changeCount() = 0;
    // Every item and type, bounded in time and size: a type its owner does not hand over in
    // time is left out.
    virtual QCoro::Task<PasteboardSnapshot> snapshot() = 0;
    // Empties the clipboard.
    virtual void clear() = 0;
    // Replaces the clipboard with these items (nothing: an empty clipboard). True on success.
    virtual bool write(const QList<PasteboardItem> &items) = 0;
    // Replaces the clipboard with a plain text. A transient text (one put there only to be
    // pasted) is marked so that clipboard managers leave it out of their history; a text left
    // for the user to paste is not. True on success.
    virtual bool writeString(const QString &text, bool transient = true) = 0;
    // The clipboard's plain text; none when it holds no text.
    virtual QCoro::Task<PasteboardText> readText() = 0;
    // The text selected in the active window without any copy (X11's PRIMARY selection, when
    // the active window's application owns it); none where the system has no such thing.
    virtual QCoro::Task<PasteboardText> readActiveSelection() = 0;
    // Whether pastedTextTaken() is ever emitted here.
    virtual bool reportsTextTaken() const = 0;

Q_SIGNALS:
    // The clipboard's content was replaced (where the system tells; changeCount() always knows).
    void changed();
    // An application asked for the text last put there by writeString(): it is pasting it.
    void pastedTextTaken();
};

// This system's clipboard: a raw selection owner and reader on X11, NSPasteboard on macOS.
std::unique_ptr<Pasteboard> createSystemPasteboard();
