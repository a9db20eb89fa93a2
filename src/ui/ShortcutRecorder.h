#pragma once

#include <QPushButton>
#include <optional>

class QKeyEvent;

// A button that records the next key pressed with modifiers, in the canonical form (the
// physical key's code and a Carbon modifier mask). Click to record; Escape, with or without
// modifiers, or a second click cancels; a key without any modifier is ignored.
class ShortcutRecorder : public QPushButton
{
    Q_OBJECT
public:
    struct Shortcut {
        quint32 keyCode = 0;
        quint32 modifiers = 0;
        friend bool operator==(const Shortcut &, const Shortcut &) = default;
    };

    explicit ShortcutRecorder(QWidget *parent = nullptr);
    ~ShortcutRecorder() override;

    // The title shown when not recording; an empty text shows "Click to set".
    void setShortcutTitle(const QString &text);
    QString normalTitle() const { return m_normalTitle; }

    bool isRecording() const { return m_isRecording; }
    void startRecording();
    void stopRecording();

    // The canonical key and modifiers of a key press; none for a modifier key on its own and for
    // keys the canonical form has no code for.
    static std::optional<Shortcut> shortcutFromKeyEvent(const QKeyEvent &event);
    // Qt's keyboard modifiers as a Carbon mask: Ctrl is Command, Alt is Option, Meta (Super on
    // Linux, the Control key on macOS) is Control. Keypad and group-switch flags are dropped.
    static quint32 carbonModifiers(Qt::KeyboardModifiers modifiers);

Q_SIGNALS:
    // Once per accepted shortcut, after recording stopped.
    void keyRecorded(quint32 keyCode, quint32 modifiers);
    void recordingChanged(bool isRecording);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void handleClick();
    void handleKeyPress(const QKeyEvent &event);

    QString m_normalTitle;
    bool m_isRecording = false;
};
