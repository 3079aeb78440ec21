#pragma once

// The two update preferences as switches. Their states are read from the updater once, when
// the view is made, and each change is written straight back. Downloading automatically
// needs checking automatically, so the second switch is greyed out (keeping its value) while
// the first is off.

#include <QWidget>

class QAbstractButton;
class Updater;

class UpdaterSettingsView : public QWidget {
    Q_OBJECT

public:
    explicit UpdaterSettingsView(Updater& updater, QWidget* parent = nullptr);

private:
    QAbstractButton* automaticallyChecksSwitch_;
    QAbstractButton* automaticallyDownloadsSwitch_;
};
