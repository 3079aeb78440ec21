#include "content_view.h"

#include <QFrame>
#include <QScrollArea>
#include <QStackedLayout>
#include <QStyle>
#include <QVBoxLayout>
#include <algorithm>

#include "app/panel_model.h"
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
    auto* folderList = new QScrollArea(listPage);
    folderList->setObjectName(u"folderList"_s);
    folderList->setWidgetResizable(true);
    folderList->setFrameShape(QFrame::NoFrame);
    folderList->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* rowsWidget = new QWidget(folderList);
    rowsLayout_ = new QVBoxLayout(rowsWidget);
    // Twice the usual inset on each side, so the rows sit clear of the scroll bar.
    const int inset = 2 * style()->pixelMetric(QStyle::PM_LayoutLeftMargin);
    rowsLayout_->setContentsMargins(inset, 0, inset, 0);
    rowsLayout_->addStretch(1);
    folderList->setWidget(rowsWidget);
    listLayout->addWidget(folderList);

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
    QList<FolderStatusRow*> rows;
    for (int index = 0; index < rowsLayout_->count(); ++index) {
        if (auto* row = qobject_cast<FolderStatusRow*>(rowsLayout_->itemAt(index)->widget())) {
            rows.append(row);
        }
    }
    return rows;
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

// Rows are kept by path and updated in place, so a bar keeps gliding while the
// model reports ten times a second, and only the order is redone.
void ContentView::showFolders() {
    QList<DirItem> sorted = environment_.ip.dirItems();
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const DirItem& a, const DirItem& b) { return a.name < b.name; });

    QHash<QString, FolderStatusRow*> stale = std::exchange(rowsByPath_, {});
    for (int position = 0; position < sorted.size(); ++position) {
        const DirItem& item = sorted.at(position);
        FolderStatusRow* row = stale.take(item.path);
        if (row == nullptr) {
            row = new FolderStatusRow(environment_, item, rowsLayout_->parentWidget());
        } else {
            row->setItem(item);
        }
        rowsByPath_.insert(item.path, row);
        if (rowsLayout_->indexOf(row) != position) {
            rowsLayout_->removeWidget(row);
            rowsLayout_->insertWidget(position, row);
        }
    }
    qDeleteAll(stale);
}
