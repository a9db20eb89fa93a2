#pragma once

#include "system/Pasteboard.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include <xcb/xcb.h>

class QSocketNotifier;

// The X11 clipboard, byte for byte: a selection owner and reader of its own, on a private
// connection to the display serviced through a socket notifier. It reads every target the owner
// offers with its type and unit size, answers every target it holds the same way, and moves large
// data in increments (INCR) both ways. Nothing here waits on another application synchronously:
// conversions are awaited with deadlines; only round trips to the X server itself are synchronous.
class X11Pasteboard : public Pasteboard
{
    Q_OBJECT

public:
    // Bounds of one snapshot: a type not handed over in time, or beyond the size budget, is left out.
    static constexpr std::chrono::milliseconds snapshotTimeBound{500};
    static constexpr qsizetype snapshotSizeBound = qsizetype(64) * 1024 * 1024;
    // Bound of reading a text.
    static constexpr std::chrono::milliseconds readTimeBound{500};

    explicit X11Pasteboard(QObject *parent = nullptr);
    ~X11Pasteboard() override;

    // False when no display could be opened: everything then reads as empty and writes fail.
    bool isConnected() const { return m_connection != nullptr; }

    qint64 changeCount() override;
    QCoro::Task<PasteboardSnapshot> snapshot() override;
    void clear() override;
    bool write(const QList<PasteboardItem> &items) override;
    bool writeString(const QString &text, bool transient = true) override;
    QCoro::Task<PasteboardText> readText() override;
    QCoro::Task<PasteboardText> readActiveSelection() override;
    bool reportsTextTaken() const override { return true; }

Q_SIGNALS:
    // Some conversion of ours made progress (internal: awaited by the readers).
    void conversionProgress();

private:
    struct Conversion;
    struct Received {
        QByteArray bytes;
        xcb_atom_t type = 0;
        quint8 format = 8;
    };
    struct Offered {
        xcb_atom_t target = 0;
        xcb_atom_t type = 0;
        PasteboardEntry entry;
        bool countsAsTaken = false;
    };
    struct Ownership {
        std::vector<Offered> offered;
        xcb_timestamp_t time = 0;
    };
    struct Outgoing {
        xcb_window_t requestor = 0;
        xcb_atom_t property = 0;
        xcb_atom_t type = 0;
        quint8 format = 8;
        QByteArray data;
        qsizetype offset = 0;
        bool finished = false;
        QElapsedTimer idle;
    };
    using Deadline = std::chrono::steady_clock::time_point;

    xcb_atom_t atom(const QByteArray &name);
    QList<QByteArray> atomNames(const QList<xcb_atom_t> &atoms);
    xcb_timestamp_t serverTime();
    xcb_window_t selectionOwner(xcb_atom_t selection);
    bool own(xcb_atom_t selection, const PasteboardItem &entries, bool reportTaken);

    QCoro::Task<std::optional<Received>> convert(xcb_atom_t selection, xcb_atom_t target, Deadline deadline,
                                                 qsizetype limit);
    QCoro::Task<PasteboardText> readTextOf(xcb_atom_t selection);
    PasteboardText ownedText(xcb_atom_t selection) const;
    xcb_atom_t takeProperty();

    void processEvents();
    void scheduleProcessing();
    void handleEvent(const xcb_generic_event_t *event);
    void handleSelectionRequest(const xcb_selection_request_event_t *request);
    void handleSelectionNotify(const xcb_selection_notify_event_t *notify);
    void handlePropertyNotify(const xcb_property_notify_event_t *notify);
    bool answer(const Ownership &ownership, xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property,
                bool *taken);
    bool answerMultiple(const Ownership &ownership, xcb_window_t requestor, xcb_atom_t property, bool *taken);
    void sendData(xcb_window_t requestor, xcb_atom_t property, xcb_atom_t type, quint8 format, const QByteArray &data);
    void sendNextChunk(Outgoing &transfer);
    Received readProperty(xcb_atom_t property, qsizetype limit, bool *tooLarge);

    xcb_connection_t *m_connection = nullptr;
    xcb_window_t m_window = 0;
    xcb_window_t m_root = 0;
    quint32 m_resourceMask = 0;
    quint8 m_xfixesEvent = 0;
    QSocketNotifier *m_notifier = nullptr;
    bool m_processingScheduled = false;

    QHash<QByteArray, xcb_atom_t> m_atoms;
    QHash<xcb_atom_t, QByteArray> m_atomNames;
    std::deque<std::unique_ptr<xcb_generic_event_t, decltype(&free)>> m_queued;

    std::map<xcb_atom_t, Ownership> m_owned;      // by selection
    std::map<xcb_atom_t, std::shared_ptr<Conversion>> m_conversions;   // by property
    std::vector<xcb_atom_t> m_freeProperties;
    int m_propertiesMade = 0;
    std::vector<Outgoing> m_outgoing;
    qint64 m_changeCount = 0;
};
