#include "app/platform/updater_controller.h"

StandardUpdaterController::StandardUpdaterController(bool startingUpdater,
                                                     UpdaterConfiguration configuration,
                                                     QObject* parent,
                                                     std::unique_ptr<UpdateUserDriver> userDriver)
    : QObject(parent), updater_(std::move(configuration), std::move(userDriver)) {
    if (startingUpdater) {
        updater_.startUpdater();
    }
}
