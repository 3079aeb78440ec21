#include "app/platform/updater_schedule.h"

#include <iostream>

#include "app/platform/updater.h"

QTimer* StartScheduledUpdateChecks(Updater& updater, QObject* parent) {
    updater.setAutomaticallyDownloadsUpdates(true);
    updater.setAutomaticallyChecksForUpdates(true);
    updater.checkForUpdatesInBackground();
    auto* timer = new QTimer(parent);
    timer->setInterval(kDailyUpdateCheckIntervalMs);
    timer->setTimerType(Qt::VeryCoarseTimer);
    QObject::connect(timer, &QTimer::timeout, &updater, [&updater] { dailyUpdateCheck(updater); });
    timer->start();
    return timer;
}

void dailyUpdateCheck(Updater& updater) {
    std::cout << "Check for sparkle update" << std::endl;
    if (!updater.sessionInProgress()) {
        updater.checkForUpdatesInBackground();
    }
}
