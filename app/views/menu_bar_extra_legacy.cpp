#include "menu_bar_extra_legacy.h"

#include <QCursor>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QVBoxLayout>
#include <QWidgetAction>

#include "app/panel_model.h"
#include "helper_silence.h"
#include "menu_bar_view.h"
#include "tray_icon.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// The menu and its content are widgets, which cannot be children of a plain
// object; this holds them for the owner.
class LegacyStatusItem : public QObject {
public:
    LegacyStatusItem(ViewEnvironment& environment, QObject* owner) : QObject(owner) {
        setObjectName(u"legacyStatusItem"_s);
        auto* content = new QWidget;
        content->setObjectName(u"legacyPanelContent"_s);
        auto* column = new QVBoxLayout(content);
        column->addWidget(new MenuBarView(environment, content));
        content->setFixedSize(550, 450);

        auto* item = new QWidgetAction(&menu_);
        item->setDefaultWidget(content);
        menu_.addAction(item);

        statusItem_ = new QSystemTrayIcon(TrayIcon(u"internaldrive"_s), this);
        statusItem_->setToolTip(TrayToolTip(environment.ip));
        connect(&environment.ip, &PanelModel::isHelperSilentChanged, this,
                [this, &model = environment.ip] { statusItem_->setToolTip(TrayToolTip(model)); });
        statusItem_->setContextMenu(&menu_);
        // A left click opens the same menu, as the only thing the item offers.
        connect(statusItem_, &QSystemTrayIcon::activated, this,
                [this](QSystemTrayIcon::ActivationReason reason) {
                    if (reason == QSystemTrayIcon::Trigger) {
                        const QRect icon = statusItem_->geometry();
                        menu_.popup(icon.isValid() ? icon.bottomLeft() : QCursor::pos());
                    }
                });
        statusItem_->show();
    }

private:
    QMenu menu_;
    QSystemTrayIcon* statusItem_;
};

}  // namespace

void MenuBarExtraLegacy(ViewEnvironment& environment, QObject* owner) {
    new LegacyStatusItem(environment, owner);
}
