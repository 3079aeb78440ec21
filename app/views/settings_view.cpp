#include "settings_view.h"

#include <QScrollArea>
#include <QShowEvent>
#include <QStackedLayout>
#include <QTimer>
#include <QVBoxLayout>

#include "app/panel_model.h"
#include "group_block.h"
#include "panel_layout.h"
#include "view_environment.h"
#include "waiting_face.h"

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

SettingsView::SettingsView(ViewEnvironment& environment, QWidget* parent)
    : QWidget(parent), environment_(environment) {
    setObjectName(u"settingsView"_s);
    SetTabContentSize(this);

    auto* groupList = new QScrollArea(this);
    groupList->setObjectName(u"groupList"_s);
    groupList->setWidgetResizable(true);
    groupList->setFrameShape(QFrame::NoFrame);
    groupList->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* groupsWidget = new QWidget(groupList);
    groupsLayout_ = new QVBoxLayout(groupsWidget);
    groupsLayout_->setContentsMargins(0, 0, 0, 0);
    groupsLayout_->addWidget(HorizontalDivider(groupsWidget));
    groupsLayout_->addStretch(1);
    groupList->setWidget(groupsWidget);

    waitingFace_ =
        new WaitingFace(tr("Please login to %1 and create a group").arg(ServiceHostName()), this);
    branches_ = new QStackedLayout(this);
    branches_->addWidget(groupList);
    branches_->addWidget(waitingFace_);

    PanelModel& ip = environment_.ip;
    // A group list changes when a button of one of its blocks is pressed; rebuilding
    // later lets that button's handler finish before its block goes.
    connect(&ip, &PanelModel::groupsChanged, this, [this] {
        if (!std::exchange(rebuildPending_, true)) {
            QMetaObject::invokeMethod(
                this,
                [this] {
                    rebuildPending_ = false;
                    rebuildGroups();
                    redraw();
                },
                Qt::QueuedConnection);
        }
    });
    connect(&ip, &PanelModel::isLoadingChanged, this, &SettingsView::redraw);
    connect(&ip, &PanelModel::dirItemsChanged, this, [this] {
        // Folders change ten times a second while they sync; hidden icons wait.
        if (isVisible()) {
            refreshFolderIcons();
        } else {
            iconsAreStale_ = true;
        }
        redraw();
    });
    rebuildGroups();
    redraw();
}

void SettingsView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (event->spontaneous()) {
        return;
    }
    if (std::exchange(iconsAreStale_, false)) {
        refreshFolderIcons();
    }
    AskForGroups(environment_.ip);
    QTimer::singleShot(5s, this, [this] { AskForGroups(environment_.ip); });
}

void SettingsView::refreshFolderIcons() {
    for (GroupBlock* block : std::as_const(groupBlocks_)) {
        block->refreshFolderIcons();
    }
}

void SettingsView::redraw() {
    const PanelModel& ip = environment_.ip;
    if (!ip.groups().isEmpty()) {
        branch_ = Branch::groupList;
        branches_->setCurrentIndex(0);
    } else if (ip.isLoading() || !ip.dirItems().isEmpty()) {
        // Watched folders without groups mean the groups are still on their way.
        branch_ = Branch::spinner;
        waitingFace_->showSpinner();
        branches_->setCurrentIndex(1);
    } else {
        branch_ = Branch::waitingText;
        waitingFace_->showText();
        branches_->setCurrentIndex(1);
    }
}

void SettingsView::rebuildGroups() {
    for (GroupBlock* block : std::as_const(groupBlocks_)) {
        block->hide();
        block->deleteLater();
    }
    groupBlocks_.clear();
    QWidget* groupsWidget = groupsLayout_->parentWidget();
    // After the divider, before the closing stretch.
    int position = 1;
    for (const GroupItem& group : environment_.ip.groups()) {
        auto* block = new GroupBlock(environment_, group, groupsWidget);
        groupsLayout_->insertWidget(position++, block);
        groupBlocks_.append(block);
    }
}
