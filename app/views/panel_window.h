#pragma once

// The top-level window the panel lives in: a frameless popup dropped from the tray
// icon that closes when the user turns elsewhere, or, with no tray to drop from, an
// ordinary window.

#include <QElapsedTimer>
#include <QWidget>

#include "popup_placement.h"

class MenuBarView;
struct ViewEnvironment;

class PanelWindow : public QWidget {
    Q_OBJECT

public:
    explicit PanelWindow(ViewEnvironment& environment, QWidget* parent = nullptr);

    MenuBarView* menuBarView() const { return menuBarView_; }
    bool isPopup() const { return isPopup_; }

    // Drops the panel by the anchor and gives it the keyboard. On Wayland the
    // compositor places it instead: no client may place its own window there.
    void showAsPopup(const PopupAnchor& anchor);
    // Shows the panel as a window of its own, with a frame and a title, and brings it
    // to the front when it is already open.
    void showAsWindow();
    // True for a moment after the popup closed because it lost focus: a click on the
    // tray icon takes the focus first and arrives second, and must not reopen it.
    bool closedByFocusLossJustNow() const;

signals:
    // The user closed the panel shown as an ordinary window.
    void windowClosed();

protected:
    void changeEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void setPopup(bool popup);
    // The login screen and the tabs differ in size; the popup keeps to its anchor.
    void fitToScreen();
    void closeIfFocusLeft();
    void releaseWindowWhileHidden();

    MenuBarView* menuBarView_;
    bool isPopup_ = true;
    PopupAnchor anchor_;
    QElapsedTimer sinceFocusLossClose_;
};
