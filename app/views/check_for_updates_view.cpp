#include "check_for_updates_view.h"

#include "app/platform/updates/updater.h"

CheckForUpdatesViewModel::CheckForUpdatesViewModel(Updater& updater, QObject* parent)
    : QObject(parent) {
    connect(&updater, &Updater::canCheckForUpdatesChanged, this,
            &CheckForUpdatesViewModel::setCanCheckForUpdates);
    setCanCheckForUpdates(updater.canCheckForUpdates());
}

void CheckForUpdatesViewModel::setCanCheckForUpdates(bool canCheckForUpdates) {
    if (canCheckForUpdates_ == canCheckForUpdates) {
        return;
    }
    canCheckForUpdates_ = canCheckForUpdates;
    emit canCheckForUpdatesChanged(canCheckForUpdates_);
}

CheckForUpdatesView::CheckForUpdatesView(Updater& updater, QWidget* parent)
    : QPushButton(tr("Check for Updates…"), parent),
      checkForUpdatesViewModel_(new CheckForUpdatesViewModel(updater, this)) {
    setObjectName(QStringLiteral("checkForUpdatesButton"));
    setAccessibleName(text());
    setEnabled(checkForUpdatesViewModel_->canCheckForUpdates());
    connect(checkForUpdatesViewModel_, &CheckForUpdatesViewModel::canCheckForUpdatesChanged, this,
            &QWidget::setEnabled);
    connect(this, &QPushButton::clicked, &updater, &Updater::checkForUpdates);
}
