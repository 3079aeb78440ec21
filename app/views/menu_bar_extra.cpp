#include "app/views/menu_bar_extra.h"

#include <QCursor>
#include <QDBusConnection>
#include <QGuiApplication>
#include <QScreen>

#include "app/panel_model.h"
#include "app/platform/updater.h"
#include "app/views/symbol_icons.h"
#include "app/views/view_environment.h"

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

    connect(&environment_.ip, &PanelModel::menuBarStringChanged, this,
            &MenuBarExtra::showMenuBarSymbol);
    qGuiApp->installEventFilter(this);

    statusNotifierWatcher_.setConnection(QDBusConnection::sessionBus());
    statusNotifierWatcher_.addWatchedService(u"org.kde.StatusNotifierWatcher"_s);
    statusNotifierWatcher_.setWatchMode(QDBusServiceWatcher::WatchForRegistration);
    connect(&statusNotifierWatcher_, &QDBusServiceWatcher::serviceRegistered, this,
            &MenuBarExtra::createTrayIcon);

    createTrayIcon();
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        panel()->showAsWindow();
    }
}

MenuBarExtra::~MenuBarExtra() = default;

bool MenuBarExtra::eventFilter(QObject* watched, QEvent* event) {
    // The tray host keeps the picture it was handed, drawn in the old colours.
    if (watched == qGuiApp && event->type() == QEvent::ApplicationPaletteChange) {
        shownSymbol_.clear();
        showMenuBarSymbol();
    }
    return QObject::eventFilter(watched, event);
}

void MenuBarExtra::createTrayIcon() {
    trayIcon_ = std::make_unique<QSystemTrayIcon>();
    trayIcon_->setToolTip(u"brisvane"_s);
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
    if (symbol != shownSymbol_) {
        shownSymbol_ = symbol;
        trayIcon_->setIcon(SymbolIcon(symbol));
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
            if (!QSystemTrayIcon::isSystemTrayAvailable()) {
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
    anchor.iconGeometry = trayIcon_->geometry();
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
