#pragma once

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QTimer>
#include <optional>

#include <QWidget>

// The small dark panel that shows a translation beside the selection when it is not pasted
// back: the language code, the text (scrollable, selectable), a close button and "Copy". It
// never takes the focus from the application the user works in, and closes itself after the
// user's dismiss delay.
class TranslationPopup : public QObject
{
    Q_OBJECT
public:
    static constexpr int width = 360;
    static constexpr int textWidth = 336;
    static constexpr int maxTextAreaHeight = 160;

    static TranslationPopup &shared();

    // Closes any popup already shown, then shows the text. `selection` is the selected text's
    // rectangle in global screen coordinates, when known.
    void show(const QString &translatedText, const QString &targetLanguage, std::optional<QRect> selection);
    void closePanel();
    void copyText();

    // The panel on screen, or null.
    QWidget *panel() const { return m_panel; }

    // The height of the text area for a text: from 36 px for one line up to 160 px.
    static int textAreaHeight(const QString &text);

private:
    QPointer<QWidget> m_panel;
    QString m_text;
    QTimer m_dismissTimer;
};
