#include "menu_bar_extra.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

#include "app/panel_model.h"
#include "app/platform/updates/updater.h"
#include "helper_silence.h"
#include "status_notifier_host.h"
#include "tray_icon.h"
#include "view_environment.h"

using namespace Qt::Literals::StringLiterals;

MenuBarExtra::MenuBarExtra(ViewEnvironment& environment, Updater* updater, QObject* parent)
    : QObject(parent), environment_(environment) {
    contextMenu_.addAction(tr("Open brisvane"), this, &MenuBarExtra::openPanel);
    if (updater != nullptr) {
        QAction* checkForUpdates =
            contextMenu_.addAction(tr("Check for Updates…"), updater, &Updater::checkForUpdates);
        checkForUpdates->setEnabled(updater->canCheckForUpdates());
        connect(updater, &Updater::canCheckForUpdatesChanged, checkForUpdates,
                &QAction::setEnabled);
    }
    contextMenu_.addSeparator();
    contextMenu_.addAction(tr("Quit"), this, [this] { environment_.terminate(); });

    connect(&environment_.ip, &PanelModel::isHelperSilentChanged, this, [this] {
        if (trayIcon_) {
            trayIcon_->setToolTip(TrayToolTip(environment_.ip));
        }
    });
    connect(&environment_.ip, &PanelModel::menuBarStringChanged, this,
            &MenuBarExtra::showMenuBarSymbol);

    if (IsWaylandSession()) {
        // Once made, the icon finds hosts that restart or come later by itself.
        hostWatch_ = std::make_unique<StatusNotifierHostWatch>();
        connect(hostWatch_.get(), &StatusNotifierHostWatch::answered, this,
                &MenuBarExtra::statusNotifierHostAnswered);
        hostWatch_->ask();
    } else {
        createTrayIcon();
        if (!QSystemTrayIcon::isSystemTrayAvailable()) {
            panel()->showAsWindow();
        }
    }
}

MenuBarExtra::~MenuBarExtra() = default;

void MenuBarExtra::statusNotifierHostAnswered(bool hostRegistered) {
    if (trayIcon_ != nullptr) {
        return;
    }
    if (hostRegistered) {
        createTrayIcon();
    } else if (panel_ == nullptr) {
        // The first answer, at start: without a tray the user is given the panel.
        panel()->showAsWindow();
    }
}

bool MenuBarExtra::hasTray() const {
    // Asked only once the icon exists: before that, asking would settle the protocol
    // too early.
    return trayIcon_ != nullptr && QSystemTrayIcon::isSystemTrayAvailable();
}

void MenuBarExtra::createTrayIcon() {
    trayIcon_ = std::make_unique<QSystemTrayIcon>();
    trayIcon_->setToolTip(TrayToolTip(environment_.ip));
    trayIcon_->setContextMenu(&contextMenu_);
    connect(trayIcon_.get(), &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::MiddleClick) {
                    togglePanel();
                }
            });
    shownSymbol_.clear();
    showMenuBarSymbol();
    trayIcon_->show();
}

// Tray hosts draw the icon again on every set, and the model reports ten times a
// second, so the icon is set only when its symbol really changes.
void MenuBarExtra::showMenuBarSymbol() {
    const QString& symbol = environment_.ip.menuBarString();
    if (trayIcon_ != nullptr && symbol != shownSymbol_) {
        shownSymbol_ = symbol;
        trayIcon_->setIcon(TrayIcon(symbol));
    }
}

// Made at the first open: most of the time the panel is never looked at, and its
// widgets, style and fonts would only take memory.
PanelWindow* MenuBarExtra::panel() {
    if (panel_ == nullptr) {
        panel_ = std::make_unique<PanelWindow>(environment_);
        connect(panel_.get(), &PanelWindow::windowClosed, this, [this] {
            // Closing the only face the application has ends it; otherwise it would run
            // on unseen, and a new start would find it and quit.
            if (!hasTray()) {
                environment_.terminate();
            }
        });
    }
    return panel_.get();
}

void MenuBarExtra::togglePanel() {
    if (panel_ == nullptr) {
        openPanel();
    } else if (panel_->isVisible() && panel_->isPopup()) {
        panel_->hide();
    } else if (!panel_->closedByFocusLossJustNow()) {
        openPanel();
    }
}

void MenuBarExtra::openPanel() {
    PopupAnchor anchor;
    if (trayIcon_ != nullptr) {
        anchor.iconGeometry = trayIcon_->geometry();
    }
    anchor.cursor = QCursor::pos();
    const QPoint point =
        anchor.iconGeometry.isValid() ? anchor.iconGeometry.center() : anchor.cursor;
    QScreen* screen = QGuiApplication::screenAt(point);
    if (screen == nullptr) {
        screen = QGuiApplication::primaryScreen();
    }
    if (screen != nullptr) {
        anchor.screenGeometry = screen->geometry();
        anchor.availableGeometry = screen->availableGeometry();
    }
    panel()->showAsPopup(anchor);
}

void MenuBarExtra::bringPanelToFront() {
    if (hasTray()) {
        openPanel();
    } else {
        panel()->showAsWindow();
    }
}
