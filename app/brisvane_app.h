#pragma once

// The application: the one model, the update controller and the tray item, made in
// that order. Its whole face is the tray item; there are no document windows.

#include <QObject>
#include <functional>
#include <memory>

#include "app/items_provider.h"
#include "app/platform/updates/updater_controller.h"
#include "app/views/view_environment.h"

class MenuBarExtra;
class QTimer;

class brisvaneApp : public QObject {
    Q_OBJECT

public:
    // What a test may change about the application it starts: the model's collaborators, and
    // the desktop parts of the views (a folder chooser that answers by itself).
    struct Seams {
        ItemsProviderCollaborators model;
        std::function<void(ViewEnvironment&)> adjustEnvironment;
    };

    // Names the application object for the desktop (the desktop entry, the settings
    // folder) and keeps it running while no window is open: the panel comes and goes,
    // and the update dialog has no parent; only "Quit" ends the application, or the
    // session's SIGTERM, SIGINT and SIGHUP, which take the same way out.
    static void prepareApplicationObject();

    explicit brisvaneApp(Seams seams = {});
    ~brisvaneApp() override;

    ItemsProvider& ip() { return *ip_; }
    StandardUpdaterController& updaterController() { return *updaterController_; }
    // The tray item of newer systems; null on older ones.
    MenuBarExtra* menuBarExtra() const { return menuBarExtra_.get(); }

private:
    std::unique_ptr<ItemsProvider> ip_;
    std::unique_ptr<StandardUpdaterController> updaterController_;
    QTimer* dailyUpdateCheck_ = nullptr;
    std::unique_ptr<ViewEnvironment> environment_;
    std::unique_ptr<MenuBarExtra> menuBarExtra_;
};
