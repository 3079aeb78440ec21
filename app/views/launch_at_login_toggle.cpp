#include "launch_at_login_toggle.h"

#include <QHBoxLayout>
#include <QLabel>

#include "toggle_switch.h"

namespace LaunchAtLogin {

Toggle::Toggle(QWidget* parent) : Toggle(nullptr, tr("Launch at login"), parent) {}

Toggle::Toggle(const QString& title, QWidget* parent) : Toggle(nullptr, title, parent) {}

Toggle::Toggle(QWidget* label, QWidget* parent) : Toggle(label, QString(), parent) {}

Toggle::Toggle(QWidget* label, const QString& title, QWidget* parent)
    : QWidget(parent), control_(new ToggleSwitch(title, this)) {
    control_->setObjectName(QStringLiteral("launchAtLoginSwitch"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    if (label) {
        layout->addWidget(label, 1);
        if (auto* textLabel = qobject_cast<QLabel*>(label)) {
            textLabel->setBuddy(control_);
            control_->setAccessibleName(textLabel->text());
        }
    }
    layout->addWidget(control_);

    // Only the user's own switching writes; a failed attempt falls back to the truth.
    connect(control_, &QAbstractButton::clicked, this, [this](bool checked) {
        launchAtLogin_.setEnabled(checked);
        showCurrentState();
    });
    showCurrentState();
}

void Toggle::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    showCurrentState();
}

void Toggle::showCurrentState() {
    control_->setChecked(launchAtLogin_.isEnabled());
}

}  // namespace LaunchAtLogin
