#include "menu_bar_view.h"

#include <QLabel>
#include <QShortcut>
#include <QTabWidget>
#include <QVBoxLayout>

#include "app/panel_model.h"
#include "brisvane_version.h"
#include "content_view.h"
#include "helper_silence.h"
#include "login_view.h"
#include "panel_layout.h"
#include "settings_footer.h"
#include "settings_view.h"
#include "symbol_icons.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QKeySequence quitKeys() {
    // Desktops without a platform theme know no standard binding for quitting.
    const QKeySequence standard(QKeySequence::Quit);
    return standard.isEmpty() ? QKeySequence(Qt::CTRL | Qt::Key_Q) : standard;
}

}  // namespace

MenuBarView::MenuBarView(ViewEnvironment& environment, QWidget* parent)
    : QWidget(parent), environment_(environment) {
    setObjectName(u"menuBarView"_s);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);

    auto* quitShortcut = new QShortcut(quitKeys(), this);
    quitShortcut->setContext(Qt::WindowShortcut);
    connect(quitShortcut, &QShortcut::activated, this, [this] { environment_.terminate(); });

    layout->addWidget(new HelperSilentNotice(environment_.ip, this));

    connect(&environment_.ip, &PanelModel::isLoggedInChanged, this,
            &MenuBarView::showScreenForLoginState);
    showScreenForLoginState();
}

void MenuBarView::showScreenForLoginState() {
    const bool hadFocus = screen_ != nullptr && screen_->isAncestorOf(focusWidget());
    if (screen_ != nullptr) {
        screen_->hide();
        screen_->deleteLater();
    }
    tabs_ = nullptr;
    loginView_ = nullptr;
    if (environment_.ip.isLoggedIn()) {
        tabs_ = new QTabWidget(this);
        tabs_->setObjectName(u"tabs"_s);
        tabs_->setDocumentMode(true);
        tabs_->addTab(makeStatusTab(), SymbolIcon(u"list.dash"_s), tr("Status"));
        tabs_->addTab(makeSettingsTab(), SymbolIcon(u"square.and.pencil"_s), tr("Settings"));
        screen_ = tabs_;
    } else {
        loginView_ = new LoginView(environment_, this);
        screen_ = loginView_;
    }
    layout()->addWidget(screen_);
    if (hadFocus || screen_->window()->isActiveWindow()) {
        screen_->setFocus();
        if (loginView_ != nullptr) {
            loginView_->usernameField()->setFocus();
        }
    }
    emit screenChanged();
}

QWidget* MenuBarView::makeStatusTab() {
    auto* tab = new QWidget;
    auto* column = new QVBoxLayout(tab);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(new ContentView(environment_, tab));
    column->addWidget(HorizontalDivider(tab));
    auto* versionLine =
        new QLabel(tr("brisvane (version %1)").arg(BRISVANE_SHORT_VERSION_STRING), tab);
    versionLine->setObjectName(u"versionLine"_s);
    versionLine->setContentsMargins(8, 4, 8, 8);
    column->addWidget(versionLine);
    return tab;
}

QWidget* MenuBarView::makeSettingsTab() {
    auto* tab = new QWidget;
    auto* column = new QVBoxLayout(tab);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(new SettingsView(environment_, tab));
    column->addWidget(new SettingsFooter(environment_, tab));
    return tab;
}
