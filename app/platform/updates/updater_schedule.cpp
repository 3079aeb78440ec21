#include "updater_schedule.h"

#include "diagnostics/diagnostics.h"
#include "updater.h"

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
    Diagnostics::printLine("Check for sparkle update");
    if (!updater.sessionInProgress()) {
        updater.checkForUpdatesInBackground();
    }
}
