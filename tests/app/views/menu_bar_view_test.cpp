// The panel's root and the login screen: which screen shows for the login state, the
// tabs, the footer, and what the login, logout and quit controls do.

#include "menu_bar_view.h"

#include <QLabel>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>

#include "app/views/view_harness.h"
#include "brisvane_version.h"
#include "launch_at_login_toggle.h"
#include "login_view.h"
#include "settings_footer.h"
#include "symbol_button.h"

using namespace Qt::Literals::StringLiterals;

class MenuBarViewTest : public QObject {
    Q_OBJECT

private slots:
    // The launch-at-login switch reads the user's autostart folder.
    void initTestCase() {
        QVERIFY(configHome_.isValid());
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(configHome_.path()));
    }

    void loggedOutShowsOnlyTheLoginScreen() {
        ViewHarness harness;
        harness.ip.setLoggedIn(false);
        MenuBarView view(harness.environment);
        QVERIFY(view.loginView() != nullptr);
        QVERIFY(view.tabs() == nullptr);
        QVERIFY(view.findChild<QTabWidget*>() == nullptr);
        QVERIFY(view.findChild<SettingsFooter*>() == nullptr);
    }

    void loggedInShowsStatusThenSettings() {
        ViewHarness harness;
        MenuBarView view(harness.environment);
        QTabWidget* tabs = view.tabs();
        QVERIFY(tabs != nullptr);
        QCOMPARE(tabs->count(), 2);
        QCOMPARE(tabs->tabText(0), u"Status"_s);
        QCOMPARE(tabs->tabText(1), u"Settings"_s);
        QVERIFY(!tabs->tabIcon(0).isNull());
        QVERIFY(!tabs->tabIcon(1).isNull());
        QCOMPARE(tabs->currentIndex(), 0);
        QCOMPARE(view.findChild<QLabel*>(u"versionLine"_s)->text(),
                 u"brisvane (version " BRISVANE_SHORT_VERSION_STRING ")"_s);
    }

    void followsTheLoginStateAndForgetsThePassword() {
        ViewHarness harness;
        harness.ip.setLoggedIn(false);
        MenuBarView view(harness.environment);
        QTest::keyClicks(view.loginView()->passwordField(), u"secret"_s);

        harness.ip.setLoggedIn(true);
        QVERIFY(view.tabs() != nullptr);
        view.tabs()->setCurrentIndex(1);
        harness.ip.setLoggedIn(false);
        QVERIFY(view.tabs() == nullptr);
        QVERIFY(view.loginView()->passwordField()->text().isEmpty());
        harness.ip.setLoggedIn(true);
        QCOMPARE(view.tabs()->currentIndex(), 0);
    }

    void loginSendsWhatWasTyped() {
        ViewHarness harness;
        harness.ip.setLoggedIn(false);
        MenuBarView view(harness.environment);
        LoginView* login = view.loginView();
        auto* loginButton = login->findChild<QPushButton*>(u"loginButton"_s);

        // No check of its own: empty fields go to the helper as they are.
        QTest::mouseClick(loginButton, Qt::LeftButton);
        QTest::keyClicks(login->usernameField(), u"ada@example.com"_s);
        // The e-mail lives in the model from the first key on.
        QCOMPARE(harness.ip.userName(), u"ada@example.com"_s);
        QTest::keyClicks(login->passwordField(), u"s3cret"_s);
        QTest::keyClick(login->passwordField(), Qt::Key_Return);
        QCOMPARE(harness.ip.published,
                 (QList<TypeIDAndData>{{u"auth"_s, QString(), QString()},
                                       {u"auth"_s, u"ada@example.com"_s, u"s3cret"_s}}));

        QCOMPARE(login->usernameField()->placeholderText(), u"email"_s);
        QCOMPARE(login->passwordField()->placeholderText(), u"password"_s);
        QCOMPARE(login->passwordField()->echoMode(), QLineEdit::Password);
    }

    void emailFieldFollowsTheModel() {
        ViewHarness harness;
        harness.ip.setUserName(u"kept@example.com"_s);
        harness.ip.setLoggedIn(false);
        MenuBarView view(harness.environment);
        QCOMPARE(view.loginView()->usernameField()->text(), u"kept@example.com"_s);
        harness.ip.setUserName(u"other@example.com"_s);
        QCOMPARE(view.loginView()->usernameField()->text(), u"other@example.com"_s);
    }

    void getPasswordOpensTheLoginAddressHeldAtTheClick() {
        ViewHarness harness;
        harness.ip.setLoggedIn(false);
        MenuBarView view(harness.environment);
        harness.ip.setLoginURL(QUrl(u"https://brisvane.example/later"_s));
        auto* link = view.loginView()->findChild<QLabel*>(u"getPasswordLink"_s);
        emit link->linkActivated(u"login"_s);
        QCOMPARE(harness.openedURLs, QList<QUrl>{QUrl(u"https://brisvane.example/later"_s)});
    }

    void focusMovesFromEmailToPasswordToLogin() {
        ViewHarness harness;
        harness.ip.setLoggedIn(false);
        MenuBarView view(harness.environment);
        view.show();
        QVERIFY(QTest::qWaitForWindowActive(&view));
        LoginView* login = view.loginView();
        login->usernameField()->setFocus();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), login->passwordField());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget()->objectName(), u"loginButton"_s);
    }

    void quitEndsTheApplicationFromEitherScreen_data() {
        QTest::addColumn<bool>("loggedIn");
        QTest::addColumn<bool>("useShortcut");
        QTest::newRow("login screen, button") << false << false;
        QTest::newRow("login screen, Ctrl+Q") << false << true;
        QTest::newRow("settings, button") << true << false;
        QTest::newRow("status tab, Ctrl+Q") << true << true;
    }

    void quitEndsTheApplicationFromEitherScreen() {
        QFETCH(bool, loggedIn);
        QFETCH(bool, useShortcut);
        ViewHarness harness;
        harness.ip.setLoggedIn(loggedIn);
        MenuBarView view(harness.environment);
        view.show();
        QVERIFY(QTest::qWaitForWindowActive(&view));
        if (useShortcut) {
            QTest::keyClick(&view, Qt::Key_Q, Qt::ControlModifier);
        } else {
            if (loggedIn) {
                view.tabs()->setCurrentIndex(1);
            }
            const auto quitButtons = view.findChildren<QPushButton*>(u"quitButton"_s);
            QCOMPARE(quitButtons.size(), 1);
            QTest::mouseClick(quitButtons.constFirst(), Qt::LeftButton);
        }
        QCOMPARE(harness.terminateCount, 1);
        QVERIFY(harness.ip.published.isEmpty() ||
                harness.ip.published.constFirst().type == u"getGroups"_s);
    }

    void logoutAsksTheHelperAndLeavesThePanelAlone() {
        ViewHarness harness;
        MenuBarView view(harness.environment);
        auto* logout = view.findChild<SymbolButton*>(u"logoutButton"_s);
        QCOMPARE(logout->text(), u"Logout"_s);
        QCOMPARE(logout->toolTip(), u"Logout"_s);
        QTest::mouseClick(logout, Qt::LeftButton);
        QCOMPARE(harness.ip.published,
                 (QList<TypeIDAndData>{{u"logoutAndExit"_s, QString(), QString()}}));
        QVERIFY(view.tabs() != nullptr);
        QCOMPARE(harness.terminateCount, 0);
    }

    void footerHasTheLaunchAtLoginSwitchOnlyOnNewerSystems_data() {
        QTest::addColumn<bool>("isMacOS13");
        QTest::newRow("newer") << true;
        QTest::newRow("older") << false;
    }

    void footerHasTheLaunchAtLoginSwitchOnlyOnNewerSystems() {
        QFETCH(bool, isMacOS13);
        ViewHarness harness;
        harness.ip.setMacOS13(isMacOS13);
        SettingsFooter footer(harness.environment);
        QCOMPARE(footer.findChild<LaunchAtLogin::Toggle*>() != nullptr, isMacOS13);
        QVERIFY(footer.findChild<SymbolButton*>(u"logoutButton"_s) != nullptr);
        QVERIFY(footer.findChild<QPushButton*>(u"quitButton"_s) != nullptr);
    }

private:
    QTemporaryDir configHome_;
};

QTEST_MAIN(MenuBarViewTest)
#include "menu_bar_view_test.moc"
