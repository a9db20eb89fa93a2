#include "ui/PermissionWindow.h"

#include <QLabel>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

namespace {

QLabel *label(const QString &text, int pixelSize, bool bold, Qt::Alignment alignment, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPixelSize(pixelSize);
    font.setBold(bold);
    label->setFont(font);
    label->setWordWrap(true);
    label->setAlignment(alignment);
    return label;
}

} // namespace

QStringList PermissionWindow::stepTexts(const QList<PermissionRequirement> &missing)
{
#ifdef Q_OS_MACOS
    Q_UNUSED(missing);
    return {qtTrId("permission.step1"), qtTrId("permission.step2"), qtTrId("permission.step3")};
#else
    if (missing.contains(PermissionRequirement::KeySynthesis) || missing.contains(PermissionRequirement::KeyWatching))
        return {qtTrId("permission.x11.step1"), qtTrId("permission.x11.step2"), qtTrId("permission.x11.step3")};
    if (missing.contains(PermissionRequirement::AccessibilityBus))
        return {qtTrId("permission.bus.step1"), qtTrId("permission.bus.step2"), qtTrId("permission.bus.step3")};
    return {qtTrId("permission.step1"), qtTrId("permission.step2"), qtTrId("permission.step3")};
#endif
}

PermissionWindow::PermissionWindow(PermissionChecker &checker, QWidget *parent)
    : QWidget(parent, Qt::Window | Qt::WindowStaysOnTopHint)
    , m_checker(checker)
{
    setObjectName(QStringLiteral("PermissionWindow"));
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(qtTrId("permission.title"));
    setFixedSize(480, 320);

    auto *icon = new QLabel(this);
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(48, 48));
    icon->setAlignment(Qt::AlignCenter);
    auto *title = label(qtTrId("permission.title"), 17, true, Qt::AlignCenter, this);
    auto *body = label(qtTrId("permission.body"), 13, false, Qt::AlignCenter, this);
    body->setForegroundRole(QPalette::PlaceholderText);
    auto *button = new QPushButton(qtTrId("permission.open_settings"), this);
    button->setObjectName(QStringLiteral("openSettings"));
    button->setDefault(true);
    button->setFixedWidth(200);
    connect(button, &QPushButton::clicked, this, &PermissionWindow::openSettings);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 28, 24, 20);
    layout->setSpacing(0);
    layout->addWidget(icon);
    layout->addSpacing(12);
    layout->addWidget(title);
    layout->addSpacing(10);
    layout->addWidget(body);
    layout->addSpacing(20);
    const QStringList steps = stepTexts(checker.missingRequirements());
    for (int i = 0; i < steps.size(); ++i) {
        auto *step = label(steps.at(i), 13, false, Qt::AlignLeft, this);
        step->setObjectName(QStringLiteral("step%1").arg(i + 1));
        step->setContentsMargins(16, 0, 0, 0);
        if (i > 0)
            layout->addSpacing(8);
        layout->addWidget(step);
    }
    layout->addSpacing(24);
    layout->addWidget(button, 0, Qt::AlignHCenter);
    layout->addStretch();

    QPointer<PermissionWindow> self(this);
    m_checker.startMonitoring([self] {
        if (!self)
            return;
        self->close();
        Q_EMIT self->permissionGranted();
    });
}

void PermissionWindow::openSettings()
{
    m_checker.openAccessibilitySettings();
}
