#include "ui/ShortcutRecorder.h"
#include "state/HotkeyConfig.h"
#include "state/KeyCodes.h"
#include "state/Log.h"

#include <QApplication>
#include <QFontDatabase>
#include <QKeyEvent>

namespace {

// Canonical codes of the modifier keys themselves (Command ... right Control, Caps Lock, Fn).
constexpr quint32 firstModifierKeyCode = 54;
constexpr quint32 lastModifierKeyCode = 63;

bool isModifierKey(int qtKey)
{
    switch (qtKey) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Meta:
    case Qt::Key_Alt:
    case Qt::Key_AltGr:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
    case Qt::Key_CapsLock:
    case Qt::Key_NumLock:
    case Qt::Key_ScrollLock:
        return true;
    default:
        return false;
    }
}

} // namespace

ShortcutRecorder::ShortcutRecorder(QWidget *parent)
    : QPushButton(parent)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(12);
    font.setWeight(QFont::Normal);
    setFont(font);
    setAutoDefault(false);
    setFocusPolicy(Qt::StrongFocus);
    setShortcutTitle({});
    connect(this, &QPushButton::clicked, this, &ShortcutRecorder::handleClick);
    // Recording holds back our global hot keys: it ends when the user turns to another program.
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state != Qt::ApplicationActive && m_isRecording) {
            logLine("Settings", QStringLiteral("shortcut recording ended: another application became active"));
            stopRecording();
        }
    });
}

ShortcutRecorder::~ShortcutRecorder()
{
    if (m_isRecording)
        qApp->removeEventFilter(this);
}

void ShortcutRecorder::setShortcutTitle(const QString &text)
{
    m_normalTitle = text.isEmpty() ? qtTrId("recorder.click_to_set") : text;
    if (!m_isRecording)
        setText(m_normalTitle);
}

void ShortcutRecorder::handleClick()
{
    if (m_isRecording)
        stopRecording();
    else
        startRecording();
}

void ShortcutRecorder::startRecording()
{
    if (m_isRecording)
        return;
    m_isRecording = true;
    setText(qtTrId("recorder.type_shortcut"));
    QPalette tinted = palette();
    tinted.setColor(QPalette::ButtonText, QColor(0x00, 0x7a, 0xff));
    setPalette(tinted);
    // Every key press of the application comes here first while recording, whichever widget
    // has the focus, and none reaches a widget or a shortcut.
    qApp->installEventFilter(this);
    Q_EMIT recordingChanged(true);
}

void ShortcutRecorder::stopRecording()
{
    if (!m_isRecording)
        return;
    m_isRecording = false;
    qApp->removeEventFilter(this);
    setText(m_normalTitle);
    setPalette(QPalette());
    Q_EMIT recordingChanged(false);
}

quint32 ShortcutRecorder::carbonModifiers(Qt::KeyboardModifiers modifiers)
{
    quint32 mask = 0;
    if (modifiers & Qt::ControlModifier)
        mask |= Modifier::Command;
    if (modifiers & Qt::ShiftModifier)
        mask |= Modifier::Shift;
    if (modifiers & Qt::AltModifier)
        mask |= Modifier::Option;
    if (modifiers & Qt::MetaModifier)
        mask |= Modifier::Control;
    return mask;
}

std::optional<ShortcutRecorder::Shortcut> ShortcutRecorder::shortcutFromKeyEvent(const QKeyEvent &event)
{
    if (isModifierKey(event.key()))
        return std::nullopt;
#ifdef Q_OS_MACOS
    const std::optional<quint32> keyCode = event.nativeVirtualKey();
#else
    const std::optional<quint32> keyCode = KeyCodes::keyCodeFromX11Keycode(event.nativeScanCode());
#endif
    if (!keyCode || (*keyCode >= firstModifierKeyCode && *keyCode <= lastModifierKeyCode))
        return std::nullopt;
    return Shortcut{*keyCode, carbonModifiers(event.modifiers())};
}

bool ShortcutRecorder::eventFilter(QObject *watched, QEvent *event)
{
    if (!m_isRecording)
        return QPushButton::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::ShortcutOverride:
        // Claim the key so that no menu or window shortcut fires; the press follows.
        event->accept();
        return true;
    case QEvent::KeyPress:
        // Taken at its first receiver (the window), so it never travels on to a widget.
        handleKeyPress(*static_cast<QKeyEvent *>(event));
        return true;
    case QEvent::KeyRelease:
        return true;
    default:
        return false;
    }
}

void ShortcutRecorder::handleKeyPress(const QKeyEvent &event)
{
    if (event.isAutoRepeat())
        return;
    const std::optional<Shortcut> shortcut = shortcutFromKeyEvent(event);
    if (!shortcut)
        return;
    if (shortcut->keyCode == KeyCodes::Escape) {
        stopRecording();
        return;
    }
    if (shortcut->modifiers == 0)
        return;
    stopRecording();
    Q_EMIT keyRecorded(shortcut->keyCode, shortcut->modifiers);
}

void ShortcutRecorder::hideEvent(QHideEvent *event)
{
    // A closed settings window must not go on swallowing the application's keys.
    stopRecording();
    QPushButton::hideEvent(event);
}
