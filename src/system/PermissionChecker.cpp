#include "system/PermissionChecker.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QTimer>

QString describe(PermissionRequirement requirement)
{
    switch (requirement) {
    case PermissionRequirement::AccessibilityPermission:
        return QStringLiteral("the Accessibility permission is not granted");
    case PermissionRequirement::AccessibilityBus:
        return QStringLiteral("the accessibility bus (AT-SPI) is not reachable");
    case PermissionRequirement::AccessibilityEnabled:
        return QStringLiteral("the accessibility bus is switched off");
    case PermissionRequirement::KeySynthesis:
        return QStringLiteral("the X server has no XTest extension");
    case PermissionRequirement::KeyWatching:
        return QStringLiteral("the X server has no XInput 2 extension");
    }
    return {};
}

PermissionChecker::PermissionChecker(std::unique_ptr<PermissionBackend> backend, QObject *parent)
    : QObject(parent)
    , m_backend(std::move(backend))
{
}

PermissionChecker::~PermissionChecker() = default;

PermissionChecker &PermissionChecker::shared()
{
    static QPointer<PermissionChecker> instance;
    if (!instance)
        instance = new PermissionChecker(createSystemPermissionBackend(), QCoreApplication::instance());
    return *instance;
}

bool PermissionChecker::isTrusted() const
{
    return m_backend->missingRequirements().isEmpty();
}

QList<PermissionRequirement> PermissionChecker::missingRequirements() const
{
    return m_backend->missingRequirements();
}

void PermissionChecker::startMonitoring(std::function<void()> callback)
{
    // The timer is the checker's child: it stops when the checker goes.
    auto *timer = new QTimer(this);
    timer->setInterval(1000);
    connect(timer, &QTimer::timeout, this, [this, timer, callback = std::move(callback)] {
        if (!isTrusted())
            return;
        timer->stop();
        timer->deleteLater();
        QMetaObject::invokeMethod(QCoreApplication::instance(), callback, Qt::QueuedConnection);
    });
    timer->start();
}

void PermissionChecker::requestWithPrompt()
{
    m_backend->requestWithPrompt();
}

void PermissionChecker::openAccessibilitySettings()
{
    m_backend->openAccessibilitySettings();
}
