#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

// What another X client sees on the clipboard, read with xclip target by target.
using Formats = QMap<QString, QByteArray>;

struct ToolResult {
    int exitCode = -1;
    QByteArray out;
};

// Runs a tool to its end while the caller's event loop keeps turning (the tool may be reading
// the clipboard from the caller); its raw standard output.
ToolResult runToolRaw(const QString &program, const QStringList &arguments);

// One target of a selection ("clipboard", "primary") as xclip reads it.
ToolResult xclip(const QString &selection, const QString &target);

// Every data target of the clipboard (not TARGETS, TIMESTAMP and the like) with its bytes.
Formats clipboardFormats();

// The clipboard's text as another client reads it; empty when it holds none.
QByteArray clipboardText();

// Whether two readings are the same, target for target and byte for byte; says what differs.
bool sameFormats(const Formats &actual, const Formats &expected);
