#include "brisvane_app.h"

#include <QApplication>
#include <QTimer>

#include "app/platform/updates/updater_schedule.h"
#include "app/views/menu_bar_extra.h"
#include "app/views/menu_bar_extra_legacy.h"
#include "app/views/update_dialog.h"
#include "process_manager/instance_activation.h"
#include "termination_signals.h"

void brisvaneApp::prepareApplicationObject() {
    QApplication::setApplicationName(QStringLiteral("brisvane"));
    QApplication::setOrganizationDomain(QStringLiteral("brisvane.app"));
    QGuiApplication::setDesktopFileName(QStringLiteral("app.brisvane.Brisvane"));
    QApplication::setQuitOnLastWindowClosed(false);
    QuitOnTerminationSignals();
}

brisvaneApp::brisvaneApp(Seams seams)
    // A second copy of the application ends itself in here, before any updater exists.
    : ip_(std::make_unique<ItemsProvider>(seams.model)) {
    const bool isMacOS13 = ip_->isMacOS13();
    // The updater knows no windows: what a session shows, it shows in the views' dialog.
    updaterController_ = std::make_unique<StandardUpdaterController>(
        isMacOS13, [] { return std::make_unique<UpdateDialog>(); });
    environment_ = std::make_unique<ViewEnvironment>(ViewEnvironment::standard(*ip_));
    if (seams.adjustEnvironment) {
        seams.adjustEnvironment(*environment_);
    }
    if (isMacOS13) {
        dailyUpdateCheck_ = StartScheduledUpdateChecks(updaterController_->updater(), this);
        menuBarExtra_ =
            std::make_unique<MenuBarExtra>(*environment_, &updaterController_->updater());
        auto* activation = new ApplicationActivation(this);
        connect(activation, &ApplicationActivation::activateRequested, menuBarExtra_.get(),
                &MenuBarExtra::bringPanelToFront);
    } else {
        MenuBarExtraLegacy(*environment_, this);
    }
}

// The views go first: they hold the environment and listen to the model.
brisvaneApp::~brisvaneApp() {
    menuBarExtra_.reset();
    qDeleteAll(children());
}
