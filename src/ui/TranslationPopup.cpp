#include "ui/TranslationPopup.h"
#include "system/FloatingPanel.h"
#include "state/AppState.h"
#include "state/SettingsKeys.h"
#include "state/SettingsStore.h"
#include "system/PanelPlacement.h"

#include <QClipboard>
#include <QCursor>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QTextEdit>

#include <algorithm>
#include <climits>

namespace {

QFont systemFont(int pixelSize, QFont::Weight weight = QFont::Normal)
{
    QFont font = QGuiApplication::font();
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

// Seconds after which the popup closes by itself; 0 or less: never.
double dismissDelay()
{
    return SettingsStore::shared().numberValue(SettingsKeys::popupDismissDelay).value_or(AppState::defaultDismissDelay);
}

} // namespace

TranslationPopup &TranslationPopup::shared()
{
    static TranslationPopup *instance = new TranslationPopup;
    return *instance;
}

int TranslationPopup::textAreaHeight(const QString &text)
{
    const QFontMetrics metrics(systemFont(13));
    const int textHeight = metrics.boundingRect(QRect(0, 0, textWidth, INT_MAX), Qt::TextWordWrap, text).height();
    return std::min(std::max(36, textHeight + 4), maxTextAreaHeight);
}

void TranslationPopup::show(const QString &translatedText, const QString &targetLanguage, std::optional<QRect> selection)
{
    closePanel();
    const QFontMetrics metrics(systemFont(13));
    const int textHeight =
        metrics.boundingRect(QRect(0, 0, textWidth, INT_MAX), Qt::TextWordWrap, translatedText).height();
    const int documentHeight = std::max(36, textHeight + 4);
    const int scrollHeight = std::min(documentHeight, maxTextAreaHeight);
    const int height = scrollHeight + 92;

    auto *panel = new RoundedPanel(QColor::fromRgbF(0.1f, 0.1f, 0.13f, 0.95f));
    panel->setObjectName(QStringLiteral("TranslationPopup"));
    panel->setFixedSize(width, height);

    auto *header = new QLabel(targetLanguage.toUpper(), panel);
    header->setObjectName(QStringLiteral("language"));
    header->setFont(systemFont(10, QFont::DemiBold));
    header->setStyleSheet(QStringLiteral("color: rgba(255,255,255,128); background: transparent;"));
    header->setGeometry(12, 6, 60, 16);

    auto *close = new QPushButton(QStringLiteral("\u00D7"), panel);
    close->setObjectName(QStringLiteral("close"));
    close->setFont(systemFont(15));
    close->setFlat(true);
    close->setFocusPolicy(Qt::NoFocus);
    close->setCursor(Qt::PointingHandCursor);
    close->setStyleSheet(QStringLiteral("QPushButton { color: rgba(255,255,255,115); border: none; background: transparent; }"));
    close->setGeometry(width - 28, 4, 20, 20);
    connect(close, &QPushButton::clicked, this, &TranslationPopup::closePanel);

    auto *text = new QTextEdit(panel);
    text->setObjectName(QStringLiteral("text"));
    text->setPlainText(translatedText);
    text->setReadOnly(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    text->setFocusPolicy(Qt::NoFocus);
    text->setFont(systemFont(13));
    text->setFrameShape(QFrame::NoFrame);
    text->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    text->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    text->document()->setDocumentMargin(0);
    text->setStyleSheet(QStringLiteral(
        "QTextEdit { color: rgba(255,255,255,235); background: transparent; }"
        "QScrollBar:vertical { background: transparent; width: 8px; margin: 0; }"
        "QScrollBar::handle:vertical { background: rgba(255,255,255,70); border-radius: 3px; min-height: 24px; }"
        "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; }"
        "QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: transparent; }"));
    text->viewport()->setAutoFillBackground(false);
    text->setGeometry(12, 40, textWidth, scrollHeight);

    auto *copy = new QPushButton(qtTrId("popup.copy"), panel);
    copy->setObjectName(QStringLiteral("copy"));
    copy->setFont(systemFont(12));
    copy->setFocusPolicy(Qt::NoFocus);
    copy->setStyleSheet(QStringLiteral(
        "QPushButton { color: white; background: rgba(255,255,255,40); border: 1px solid rgba(255,255,255,50);"
        " border-radius: 6px; } QPushButton:pressed { background: rgba(255,255,255,70); }"));
    copy->setGeometry(12, height - 38, 72, 26);
    connect(copy, &QPushButton::clicked, this, &TranslationPopup::copyText);

    panel->move(PanelPlacement::popupPosition(panel->size(), selection, QCursor::pos(), RoundedPanel::screenGeometries()));
    panel->show();

    m_panel = panel;
    m_text = translatedText;
    m_dismissTimer.stop();
    const double delay = dismissDelay();
    if (delay > 0) {
        m_dismissTimer.setSingleShot(true);
        m_dismissTimer.setInterval(static_cast<int>(std::min(delay * 1000.0, double(INT_MAX))));
        disconnect(&m_dismissTimer, nullptr, this, nullptr);
        connect(&m_dismissTimer, &QTimer::timeout, this, &TranslationPopup::closePanel);
        m_dismissTimer.start();
    }
}

void TranslationPopup::closePanel()
{
    m_dismissTimer.stop();
    if (m_panel) {
        m_panel->hide();
        m_panel->deleteLater();
    }
    m_panel = nullptr;
}

void TranslationPopup::copyText()
{
    QGuiApplication::clipboard()->setText(m_text);
    closePanel();
}
