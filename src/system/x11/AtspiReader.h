#pragma once

#include "system/Accessibility.h"

#include <memory>

// The focused element of other applications through AT-SPI 2 (libatspi).
//
// AT-SPI calls go to other processes and block until they answer, so every libatspi call runs
// on one thread of its own, which owns GLib's default main context (Qt must run on its own
// event dispatcher: QT_NO_GLIB=1). Each call is bounded by a short time-out; an application
// that lets one run out is left alone until it answers a background probe again. Our own
// process, which is on the accessibility bus like any Qt application, is never called.
//
// The focused element is the source of the last "object:state-changed:focused" event, checked
// at use: it must still be focused and belong to the application of the active window
// (browsers keep the focused state after their window lost the focus). Otherwise the active
// window's application is searched (its Collection interface, or a walk of its visible tree).
//
// Readers share one thread; it stops when the last reader goes.
class AtspiReader final : public Accessibility
{
public:
    AtspiReader();
    ~AtspiReader() override;

    QCoro::Task<std::optional<FocusedElement>> focusedElement(Read read = Read::Element) override;
    QCoro::Task<std::optional<QRect>> boundsForRange(AccessibleElementId element, TextRange range) override;
    QCoro::Task<bool> isFocusedElementEditable() override;
    QCoro::Task<std::optional<QRect>> selectionRect() override;

    class Worker;

private:
    std::shared_ptr<Worker> m_worker;
};
