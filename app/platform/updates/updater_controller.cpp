#include "updater_controller.h"

StandardUpdaterController::StandardUpdaterController(bool startingUpdater,
                                                     UpdateUserDriverFactory makeUserDriver,
                                                     UpdaterConfiguration configuration,
                                                     QObject* parent)
    : QObject(parent), updater_(std::move(configuration), std::move(makeUserDriver)) {
    if (startingUpdater) {
        updater_.startUpdater();
    }
}
