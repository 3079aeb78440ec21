#pragma once

// The launch-at-login switch of the settings: a ToggleSwitch bound to the one shared
// LaunchAtLogin::observable(), which reads and writes the autostart entry.

#include <QString>
#include <QWidget>

#include "app/platform/launch_at_login.h"

class QShowEvent;
class ToggleSwitch;

namespace LaunchAtLogin {

// A switch bound to observable().isEnabled, with a label.
class Toggle : public QWidget {
    Q_OBJECT

public:
    // Labelled "Launch at login".
    explicit Toggle(QWidget* parent = nullptr);
    explicit Toggle(const QString& title, QWidget* parent = nullptr);
    // The caller's label view, placed before the switch. The parent has no default:
    // a lone widget argument means the parent, as for every other widget.
    Toggle(QWidget* label, QWidget* parent);

    ToggleSwitch* control() const { return control_; }
    Observable& launchAtLogin() const { return launchAtLogin_; }

protected:
    // The entry may have changed behind our back while hidden.
    void showEvent(QShowEvent* event) override;

private:
    Toggle(QWidget* label, const QString& title, QWidget* parent);
    void showCurrentState();

    Observable& launchAtLogin_ = observable();
    ToggleSwitch* control_ = nullptr;
};

}  // namespace LaunchAtLogin
