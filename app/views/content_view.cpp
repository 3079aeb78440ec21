#include "content_view.h"

#include <QStackedLayout>
#include <QVBoxLayout>
#include <algorithm>

#include "app/panel_model.h"
#include "folder_list.h"
#include "folder_status_row.h"
#include "panel_layout.h"
#include "view_environment.h"
#include "waiting_face.h"

using namespace Qt::Literals::StringLiterals;

ContentView::ContentView(ViewEnvironment& environment, QWidget* parent)
    : QWidget(parent), environment_(environment) {
    setObjectName(u"contentView"_s);
    SetTabContentSize(this);

    auto* listPage = new QWidget(this);
    auto* listLayout = new QVBoxLayout(listPage);
    listLayout->setContentsMargins(0, 0, 0, 0);
    listLayout->addWidget(HorizontalDivider(listPage));
    folderList_ = new FolderList(environment_, listPage);
    listLayout->addWidget(folderList_);

    waitingFace_ =
        new WaitingFace(tr("Please select a folder to sync from the Settings tab"), this);
    branches_ = new QStackedLayout(this);
    branches_->addWidget(listPage);
    branches_->addWidget(waitingFace_);

    connect(&environment_.ip, &PanelModel::dirItemsChanged, this, &ContentView::redrawWhenSeen);
    connect(&environment_.ip, &PanelModel::isLoadingChanged, this, &ContentView::redrawWhenSeen);
    redraw();
}

// The model reports ten times a second while folders sync, and the panel is closed
// most of the time: a hidden list waits until it is looked at.
void ContentView::redrawWhenSeen() {
    if (isVisible()) {
        redraw();
    } else {
        isStale_ = true;
    }
}

void ContentView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (std::exchange(isStale_, false)) {
        redraw();
    }
}

QList<FolderStatusRow*> ContentView::rows() const {
    return folderList_->rows();
}

void ContentView::redraw() {
    const PanelModel& ip = environment_.ip;
    if (!ip.dirItems().isEmpty()) {
        branch_ = Branch::folderList;
        showFolders();
        branches_->setCurrentIndex(0);
    } else if (ip.isLoading()) {
        branch_ = Branch::spinner;
        waitingFace_->showSpinner();
        branches_->setCurrentIndex(1);
    } else {
        branch_ = Branch::waitingText;
        waitingFace_->showText();
        branches_->setCurrentIndex(1);
    }
}

void ContentView::showFolders() {
    folderList_->setFolders(environment_.ip.dirItems());
}
