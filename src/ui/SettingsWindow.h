#pragma once

#include <QWidget>

class GeneralSettingsTab;
class QTabWidget;

// The program's one ordinary window: a fixed 600x660 content area with the General tab and the
// Translation tab. Created once and kept; closing it only hides it (it never quits the program),
// and showing it again brings back the same window with the same tab and controls.
class SettingsWindow : public QWidget
{
    Q_OBJECT
public:
    static constexpr int contentWidth = 600;
    static constexpr int contentHeight = 660;

    explicit SettingsWindow(QWidget *parent = nullptr);
    ~SettingsWindow() override;

    // Shows the window, raises it and gives it the keyboard focus.
    void showAndActivate();

    QTabWidget *tabs() const { return m_tabs; }
    GeneralSettingsTab *generalTab() const { return m_general; }

private:
    QTabWidget *m_tabs = nullptr;
    GeneralSettingsTab *m_general = nullptr;
};
