#pragma once

#include "system/PermissionChecker.h"

#include <QPointer>
#include <QWidget>

class QLabel;

// Explains, in three steps, what the program is missing to read selections and send keys, and
// offers to open the system's settings. Closes itself once the permission checker reports the
// program trusted, and then announces it with permissionGranted().
class PermissionWindow : public QWidget
{
    Q_OBJECT
public:
    explicit PermissionWindow(PermissionChecker &checker, QWidget *parent = nullptr);

    // The texts for what is missing (the step labels' keys differ per cause on Linux).
    static QStringList stepTexts(const QList<PermissionRequirement> &missing);

Q_SIGNALS:
    void permissionGranted();

public Q_SLOTS:
    void openSettings();

private:
    PermissionChecker &m_checker;
};
