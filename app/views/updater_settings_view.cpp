#include "updater_settings_view.h"

#include <QVBoxLayout>

#include "app/platform/updates/updater.h"
#include "toggle_switch.h"

namespace {

QAbstractButton* makeSwitch(const QString& text, const QString& name, bool checked,
                            QWidget* parent) {
    auto* toggle = new ToggleSwitch(text, parent);
    toggle->setObjectName(name);
    toggle->setAccessibleName(text);
    toggle->setCheckable(true);
    toggle->setChecked(checked);
    return toggle;
}

}  // namespace

UpdaterSettingsView::UpdaterSettingsView(Updater& updater, QWidget* parent)
    : QWidget(parent),
      automaticallyChecksSwitch_(makeSwitch(tr("Automatically check for updates"),
                                            QStringLiteral("automaticallyChecksSwitch"),
                                            updater.automaticallyChecksForUpdates(), this)),
      automaticallyDownloadsSwitch_(makeSwitch(tr("Automatically download updates"),
                                               QStringLiteral("automaticallyDownloadsSwitch"),
                                               updater.automaticallyDownloadsUpdates(), this)) {
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(automaticallyChecksSwitch_);
    layout->addWidget(automaticallyDownloadsSwitch_);

    automaticallyDownloadsSwitch_->setEnabled(automaticallyChecksSwitch_->isChecked());
    connect(automaticallyChecksSwitch_, &QAbstractButton::toggled, this,
            [this, &updater](bool checked) {
                updater.setAutomaticallyChecksForUpdates(checked);
                automaticallyDownloadsSwitch_->setEnabled(checked);
            });
    connect(automaticallyDownloadsSwitch_, &QAbstractButton::toggled, &updater,
            &Updater::setAutomaticallyDownloadsUpdates);
}
