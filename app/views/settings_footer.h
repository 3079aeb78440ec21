#pragma once

// The row under the settings: launch at login (where the system offers it), "Logout"
// and "Quit".

#include <QWidget>

struct ViewEnvironment;

class SettingsFooter : public QWidget {
    Q_OBJECT

public:
    explicit SettingsFooter(ViewEnvironment& environment, QWidget* parent = nullptr);
};
