// The general pasteboard with every item (Qt's clipboard sees only the first one): snapshots
// keep each item's every type, restores write them back as items in the same order.
#include "system/Pasteboard.h"

#import <AppKit/AppKit.h>

namespace {

NSString *const transientType = @"org.nspasteboard.TransientType";
NSString *const concealedType = @"org.nspasteboard.ConcealedType";

NSString *toNSString(const QString &text)
{
    return text.toNSString();
}

PasteboardSnapshot takeSnapshot()
{
    PasteboardSnapshot snapshot;
    @autoreleasepool {
        NSPasteboard *pasteboard = [NSPasteboard generalPasteboard];
        snapshot.changeCount = [pasteboard changeCount];
        for (NSPasteboardItem *item in [pasteboard pasteboardItems]) {
            PasteboardItem entries;
            for (NSPasteboardType type in [item types]) {
                NSData *data = [item dataForType:type];
                if (!data)
                    continue;
                PasteboardEntry entry;
                entry.type = QString::fromNSString(type);
                entry.bytes = QByteArray::fromNSData(data);
                // A type listed twice: the later data counts.
                entries.removeIf([&](const PasteboardEntry &e) { return e.type == entry.type; });
                entries.append(entry);
            }
            if (!entries.isEmpty())
                snapshot.items.append(entries);
        }
    }
    return snapshot;
}

bool writeItems(const QList<PasteboardItem> &items)
{
    @autoreleasepool {
        NSPasteboard *pasteboard = [NSPasteboard generalPasteboard];
        [pasteboard clearContents];
        if (items.isEmpty())
            return true;
        NSMutableArray<NSPasteboardItem *> *objects = [NSMutableArray arrayWithCapacity:NSUInteger(items.size())];
        for (const PasteboardItem &entries : items) {
            NSPasteboardItem *item = [[[NSPasteboardItem alloc] init] autorelease];
            for (const PasteboardEntry &entry : entries)
                [item setData:entry.bytes.toNSData() forType:toNSString(entry.type)];
            [objects addObject:item];
        }
        return [pasteboard writeObjects:objects];
    }
}

bool writePlainString(const QString &text, bool transient)
{
    @autoreleasepool {
        NSPasteboard *pasteboard = [NSPasteboard generalPasteboard];
        [pasteboard clearContents];
        if (![pasteboard setString:toNSString(text) forType:NSPasteboardTypeString])
            return false;
        // Clipboard managers leave transient content out of their history.
        if (transient)
            [pasteboard setData:[NSData data] forType:transientType];
        return true;
    }
}

PasteboardText readPlainString()
{
    PasteboardText result;
    @autoreleasepool {
        NSPasteboard *pasteboard = [NSPasteboard generalPasteboard];
        for (NSPasteboardItem *item in [pasteboard pasteboardItems]) {
            if ([[item types] containsObject:concealedType])
                result.concealed = true;
        }
        NSString *string = [pasteboard stringForType:NSPasteboardTypeString];
        if (string)
            result.text = QString::fromNSString(string);
    }
    return result;
}

class MacPasteboard final : public Pasteboard
{
public:
    qint64 changeCount() override { return [[NSPasteboard generalPasteboard] changeCount]; }
    QCoro::Task<PasteboardSnapshot> snapshot() override { co_return takeSnapshot(); }
    void clear() override { [[NSPasteboard generalPasteboard] clearContents]; }
    bool write(const QList<PasteboardItem> &items) override { return writeItems(items); }
    bool writeString(const QString &text, bool transient = true) override { return writePlainString(text, transient); }
    QCoro::Task<PasteboardText> readText() override { co_return readPlainString(); }
    // macOS has no selection that can be read without copying.
    QCoro::Task<PasteboardText> readActiveSelection() override { co_return PasteboardText{}; }
    bool reportsTextTaken() const override { return false; }
};

} // namespace

std::unique_ptr<Pasteboard> createSystemPasteboard()
{
    return std::make_unique<MacPasteboard>();
}
