#include "inline/KeystrokeBuffer.h"

#include "state/HotkeyConfig.h"
#include "state/KeyCodes.h"

#include <QTextBoundaryFinder>

namespace {

constexpr quint32 heldModifiers = Modifier::Command | Modifier::Option | Modifier::Control;

int graphemeCount(const QString &text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (finder.toNextBoundary() > 0)
        ++count;
    return count;
}

bool isBlank(QStringView text)
{
    for (QChar c : text)
        if (c != QLatin1Char(' ') && c != QLatin1Char('\t'))
            return false;
    return true;
}

} // namespace

const QSet<QString> &KeystrokeBuffer::supportedCodes()
{
    static const QSet<QString> codes{
        QStringLiteral("en"), QStringLiteral("zh"), QStringLiteral("ja"), QStringLiteral("ko"), QStringLiteral("vi"),
        QStringLiteral("es"), QStringLiteral("fr"), QStringLiteral("de"), QStringLiteral("pt"), QStringLiteral("th"),
        QStringLiteral("hi"), QStringLiteral("it"), QStringLiteral("ru"), QStringLiteral("ar")};
    return codes;
}

int KeystrokeBuffer::length() const
{
    return graphemeCount(m_text);
}

void KeystrokeBuffer::append(const QString &characters)
{
    m_text += characters;
    // Never more characters than UTF-16 units: only a long buffer needs counting.
    if (m_text.size() <= maxBufferLength)
        return;
    int excess = graphemeCount(m_text) - maxBufferLength;
    if (excess <= 0)
        return;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, m_text);
    qsizetype cut = 0;
    while (excess-- > 0)
        cut = finder.toNextBoundary();
    m_text.remove(0, cut);
}

KeystrokeBuffer::Outcome KeystrokeBuffer::handleKey(const KeyPress &press)
{
    if (press.modifiers & heldModifiers) {
        m_text.clear();
        return {Outcome::Kind::Cleared};
    }
    switch (press.keyCode) {
    case KeyCodes::Return:
    case KeyCodes::KeypadEnter:
    case KeyCodes::Escape:
    case KeyCodes::LeftArrow:
    case KeyCodes::RightArrow:
    case KeyCodes::DownArrow:
    case KeyCodes::UpArrow:
        m_text.clear();
        return {Outcome::Kind::SessionEnded};
    case KeyCodes::Space:
        append(QStringLiteral(" "));
        return detectTrigger();
    case KeyCodes::Delete:
        if (!m_text.isEmpty()) {
            QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, m_text);
            finder.toEnd();
            m_text.truncate(finder.toPreviousBoundary());
        }
        return {};
    default:
        if (!press.text.isEmpty())
            append(press.text);
        return {};
    }
}

KeystrokeBuffer::Outcome KeystrokeBuffer::detectTrigger()
{
    const QStringView typed = QStringView(m_text).chopped(1);   // without the space just typed
    if (typed.isEmpty())
        return {};
    qsizetype marker = -1;
    for (qsizetype i = typed.size() - 1; i >= 0; --i) {
        const QChar c = typed[i];
        if ((c == QLatin1Char('@') || c == QLatin1Char('#')) && (i == 0 || typed[i - 1] == QLatin1Char(' '))) {
            marker = i;
            break;
        }
    }
    if (marker < 0 || marker == typed.size() - 1)
        return {};
    const QString code = typed.mid(marker + 1).toString().toLower();
    if (!supportedCodes().contains(code))
        return {};
    const bool noText = isBlank(typed.left(marker));
    m_text.clear();
    if (noText)
        return {Outcome::Kind::Cleared};
    return {Outcome::Kind::Trigger, code, int(code.size()) + 3};
}
