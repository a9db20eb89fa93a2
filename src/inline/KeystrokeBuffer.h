#pragma once

#include "system/KeyWatcher.h"

#include <QSet>
#include <QString>

// The characters typed since the last reset, and the inline trigger: a marker "@" or "#" at the
// start or after a space, a supported language code, then a space ("Good morning @ja ").
// The buffer only decides whether a trigger was typed; it lives in memory and is never logged.
class KeystrokeBuffer
{
public:
    static constexpr int maxBufferLength = 300;   // user-perceived characters

    struct Outcome {
        enum class Kind {
            Kept,            // the key was buffered (or ignored)
            Cleared,         // the buffer was emptied; the session goes on
            SessionEnded,    // the buffer was emptied and the session starts again (Return, arrows...)
            Trigger,         // a trigger: translate into `language`
        };
        Kind kind = Kind::Kept;
        QString language;
        int triggerLength = 0;   // space before the marker, marker, code, space after it
    };

    // The 14 codes a trigger may name.
    static const QSet<QString> &supportedCodes();

    Outcome handleKey(const KeyPress &press);

    const QString &text() const { return m_text; }
    int length() const;   // user-perceived characters
    bool isEmpty() const { return m_text.isEmpty(); }
    void clear() { m_text.clear(); }

private:
    void append(const QString &characters);
    Outcome detectTrigger();

    QString m_text;
};
