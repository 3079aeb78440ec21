#pragma once

// The tray icon and the panel it drops. The icon shows the model's menu-bar symbol;
// a left click toggles the panel, and a small menu offers the same for hosts that
// open menus on every click. Without any tray host the panel opens as an ordinary
// window, so the user is never left without a face, and the icon appears as soon as
// a host does.

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <memory>

#include "panel_window.h"

class StatusNotifierHostWatch;
class Updater;
struct ViewEnvironment;

class MenuBarExtra : public QObject {
    Q_OBJECT

public:
    // updater may be null: the menu then offers no update check.
    MenuBarExtra(ViewEnvironment& environment, Updater* updater, QObject* parent = nullptr);
    ~MenuBarExtra() override;

    // The panel, made on first use.
    PanelWindow* panel();
    // Null on Wayland until a status-notifier host is there.
    QSystemTrayIcon* trayIcon() const { return trayIcon_.get(); }
    QMenu* contextMenu() { return &contextMenu_; }

    void togglePanel();
    void openPanel();
    // For a second start of the application: the panel, from the tray when there is
    // one, else as the window it is without one.
    void bringPanelToFront();

private:
    void createTrayIcon();
    void statusNotifierHostAnswered(bool hostRegistered);
    bool hasTray() const;
    void showMenuBarSymbol();

    ViewEnvironment& environment_;
    std::unique_ptr<PanelWindow> panel_;
    QMenu contextMenu_;
    std::unique_ptr<QSystemTrayIcon> trayIcon_;
    QString shownSymbol_;
    // On Wayland: tells when the first icon can be made.
    std::unique_ptr<StatusNotifierHostWatch> hostWatch_;
};
