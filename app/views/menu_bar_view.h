#pragma once

// The panel's root: the login screen while logged out, else the "Status" and
// "Settings" tabs. Ctrl+Q quits from anywhere in it.

#include <QWidget>

#include "view_environment.h"

class LoginView;
class QTabWidget;

class MenuBarView : public QWidget {
    Q_OBJECT

public:
    // The environment must outlive the view; every view below shares it.
    explicit MenuBarView(ViewEnvironment& environment, QWidget* parent = nullptr);

    // The tabs while logged in, else null.
    QTabWidget* tabs() const { return tabs_; }
    // The login screen while logged out, else null.
    LoginView* loginView() const { return loginView_; }

signals:
    // The login screen gave way to the tabs or back.
    void screenChanged();

private:
    // A fresh screen each time the login state turns: the typed password goes with
    // the login view, and the tabs start again on "Status".
    void showScreenForLoginState();
    QWidget* makeStatusTab();
    QWidget* makeSettingsTab();

    ViewEnvironment& environment_;
    QWidget* screen_ = nullptr;
    QTabWidget* tabs_ = nullptr;
    LoginView* loginView_ = nullptr;
};
