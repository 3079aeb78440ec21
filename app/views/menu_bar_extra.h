#pragma once

// The tray icon and the panel it drops. The icon shows the model's menu-bar symbol;
// a left click toggles the panel, and a small menu offers the same for hosts that
// open menus on every click. Without any tray host the panel opens as an ordinary
// window, so the user is never left without a face, and the icon appears as soon as
// a host does.

#include <QDBusServiceWatcher>
#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <memory>

#include "app/views/panel_window.h"

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
    QSystemTrayIcon* trayIcon() const { return trayIcon_.get(); }
    QMenu* contextMenu() { return &contextMenu_; }

    void togglePanel();
    void openPanel();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // Made anew when a status-notifier host appears, since Qt picks between that
    // protocol and the older embedding only when an icon is made.
    void createTrayIcon();
    void showMenuBarSymbol();

    ViewEnvironment& environment_;
    std::unique_ptr<PanelWindow> panel_;
    QMenu contextMenu_;
    std::unique_ptr<QSystemTrayIcon> trayIcon_;
    QString shownSymbol_;
    QDBusServiceWatcher statusNotifierWatcher_;
};
