#include "settings_footer.h"

#include <QHBoxLayout>
#include <QPushButton>

#include "app/panel_model.h"
#include "launch_at_login_toggle.h"
#include "symbol_button.h"
#include "view_environment.h"

using namespace Qt::Literals::StringLiterals;

SettingsFooter::SettingsFooter(ViewEnvironment& environment, QWidget* parent) : QWidget(parent) {
    setObjectName(u"settingsFooter"_s);
    auto* row = new QHBoxLayout(this);

    // Older systems keep no login items for us; the slot then takes no room at all.
    if (environment.ip.isMacOS13()) {
        auto* launchAtLogin = new LaunchAtLogin::Toggle(this);
        launchAtLogin->setObjectName(u"launchAtLoginToggle"_s);
        row->addWidget(launchAtLogin);
    }
    row->addStretch(1);

    auto* logoutButton = new SymbolButton(u"icloud.slash"_s, 16, tr("Logout"), tr("Logout"), this);
    logoutButton->setObjectName(u"logoutButton"_s);
    logoutButton->setText(tr("Logout"));
    logoutButton->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    // The helper logs out and ends; the model then shows the login screen. The panel
    // itself stays as it is.
    connect(logoutButton, &QToolButton::clicked, this,
            [&environment] { environment.ip.publish(u"logoutAndExit"_s, QString(), QString()); });
    row->addWidget(logoutButton);
    row->addStretch(1);

    auto* quitButton = new QPushButton(tr("Quit"), this);
    quitButton->setObjectName(u"quitButton"_s);
    connect(quitButton, &QPushButton::clicked, this, [&environment] { environment.terminate(); });
    row->addWidget(quitButton);
}
