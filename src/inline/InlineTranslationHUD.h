#pragma once

#include <QPointer>
#include <QRect>
#include <optional>

#include <QWidget>

// The "Translating…" pill beside the caret while an inline translation waits for its result.
// It never takes the focus and lets clicks through to the window beneath.
class InlineTranslationHUD
{
public:
    static constexpr int width = 122;
    static constexpr int height = 24;

    static InlineTranslationHUD &shared();

    // Shows the pill near the caret (global screen coordinates), or beside the mouse pointer
    // when the caret is unknown. Does nothing while a pill is already shown.
    void show(std::optional<QRect> caret);
    void hide();

    QWidget *panel() const { return m_panel; }

private:
    QPointer<QWidget> m_panel;
};
