#pragma once

#include <QObject>

#include "app/platform/updater.h"

// Owns the application's one updater, started at once or left stopped (no check of any kind
// is made by a stopped updater).
class StandardUpdaterController : public QObject {
    Q_OBJECT

public:
    explicit StandardUpdaterController(
        bool startingUpdater, UpdaterConfiguration configuration = UpdaterConfiguration::builtIn(),
        QObject* parent = nullptr, std::unique_ptr<UpdateUserDriver> userDriver = nullptr);

    Updater& updater() { return updater_; }

private:
    Updater updater_;
};
