#include "system/KeyboardSimulator.h"

#include "state/HotkeyConfig.h"
#include "state/KeyCodes.h"
#include "system/ApplicationChords.h"

#include <QCoreApplication>

namespace {
std::unique_ptr<KeyboardSimulator> &sharedSimulator()
{
    static std::unique_ptr<KeyboardSimulator> simulator;
    return simulator;
}
} // namespace

KeyboardSimulator::KeyboardSimulator(std::unique_ptr<KeySynthesiser> synthesiser)
    : m_synthesiser(std::move(synthesiser))
{
}

KeyboardSimulator &KeyboardSimulator::shared()
{
    auto &simulator = sharedSimulator();
    if (!simulator) {
        // The system's synthesiser holds a display connection and a timer: it goes with the
        // application object, not with the static destructors after it.
        if (QCoreApplication::instance())
            qAddPostRoutine([] { sharedSimulator().reset(); });
        simulator = std::make_unique<KeyboardSimulator>(createSystemKeySynthesiser());
    }
    return *simulator;
}

void KeyboardSimulator::setSharedBackend(std::unique_ptr<KeySynthesiser> synthesiser)
{
    // The shared simulator stays the same object: others hold references to it.
    auto &simulator = sharedSimulator();
    if (simulator)
        simulator->m_synthesiser = std::move(synthesiser);
    else
        simulator = std::make_unique<KeyboardSimulator>(std::move(synthesiser));
}

QCoro::Task<> KeyboardSimulator::sendCommandShortcut(quint32 keyCode)
{
    if (m_synthesiser)
        co_await m_synthesiser->pressChord({keyCode, Modifier::Command});
}

QCoro::Task<bool> KeyboardSimulator::simulateCopy(QString applicationId)
{
    const auto chord = chordsForApplication(applicationId).copy;
    if (!chord || !m_synthesiser)
        co_return false;
    co_await m_synthesiser->pressChord(*chord);
    co_return true;
}

QCoro::Task<bool> KeyboardSimulator::simulatePaste(QString applicationId)
{
    const auto chord = chordsForApplication(applicationId).paste;
    if (!chord || !m_synthesiser)
        co_return false;
    co_await m_synthesiser->pressChord(*chord);
    co_return true;
}

QCoro::Task<> KeyboardSimulator::deleteCharacters(int count)
{
    if (count >= 1 && m_synthesiser)
        co_await m_synthesiser->pressKey(KeyCodes::Delete, count);
}

QCoro::Task<> KeyboardSimulator::pressRightArrow()
{
    if (m_synthesiser)
        co_await m_synthesiser->pressKey(KeyCodes::RightArrow, 1);
}

QCoro::Task<> KeyboardSimulator::waitForKeysUp()
{
    if (!m_synthesiser)
        co_return;
    QCoro::Task<> released = m_synthesiser->waitForKeysUp();
    co_await released;
}

QCoro::Task<> KeyboardSimulator::selectToLineStart()
{
    if (!m_synthesiser)
        co_return;
#ifdef Q_OS_MACOS
    co_await m_synthesiser->pressChord({KeyCodes::LeftArrow, Modifier::Command | Modifier::Shift});
#else
    constexpr quint32 home = 115;
    co_await m_synthesiser->pressChord({home, Modifier::Shift});
#endif
}

bool KeyboardSimulator::typesFromClipboard() const
{
    return m_synthesiser && m_synthesiser->typesFromClipboard();
}

QCoro::Task<bool> KeyboardSimulator::typeText(QString text)
{
    if (!m_synthesiser)
        co_return false;
    co_return co_await m_synthesiser->typeText(std::move(text));
}
