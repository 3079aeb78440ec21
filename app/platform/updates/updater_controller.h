#pragma once

#include <QObject>

#include "updater.h"

// Owns the application's one updater, started at once or left stopped (no check of any kind
// is made by a stopped updater).
class StandardUpdaterController : public QObject {
    Q_OBJECT

public:
    StandardUpdaterController(bool startingUpdater, UpdateUserDriverFactory makeUserDriver,
                              UpdaterConfiguration configuration = UpdaterConfiguration::builtIn(),
                              QObject* parent = nullptr);

    Updater& updater() { return updater_; }

private:
    Updater updater_;
};
