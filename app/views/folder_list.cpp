#include "folder_list.h"

#include <QScrollBar>
#include <QStyle>
#include <algorithm>

#include "folder_status_row.h"

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kRowSpacing = 6;
// Rows kept beyond those in view: enough that a small scroll finds its rows made.
constexpr int kRowsBeyondView = 1;
constexpr int kSpareRowsKept = 4;

}  // namespace

FolderList::FolderList(ViewEnvironment& environment, QWidget* parent)
    : QScrollArea(parent), environment_(environment), canvas_(new QWidget(this)) {
    setObjectName(u"folderList"_s);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setWidgetResizable(false);
    setWidget(canvas_);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &FolderList::placeRows);
}

int FolderList::rowStride() {
    if (rowStride_ == 0) {
        // Every row has the same height: its texts are one line each, elided if need be.
        const FolderStatusRow probe(environment_, DirItem{});
        rowStride_ = probe.sizeHint().height() + kRowSpacing;
    }
    return rowStride_;
}

void FolderList::setFolders(QList<DirItem> folders) {
    std::stable_sort(folders.begin(), folders.end(),
                     [](const DirItem& a, const DirItem& b) { return a.name < b.name; });
    folders_ = std::move(folders);
    canvas_->resize(viewport()->width(), static_cast<int>(folders_.size()) * rowStride());
    placeRows();
}

void FolderList::resizeEvent(QResizeEvent* event) {
    QScrollArea::resizeEvent(event);
    canvas_->resize(viewport()->width(), canvas_->height());
    placeRows();
}

void FolderList::placeRows() {
    const int stride = rowStride();
    const int top = verticalScrollBar()->value();
    // Before the first layout the viewport has no height yet: take the list's own.
    const int height = std::max(viewport()->height(), this->height());
    const auto count = static_cast<int>(folders_.size());
    const int first = std::clamp(top / stride - kRowsBeyondView, 0, count);
    const int last = std::clamp((top + height) / stride + 1 + kRowsBeyondView, first, count);

    // Twice the usual inset on each side, so the rows sit clear of the scroll bar.
    const int inset = 2 * style()->pixelMetric(QStyle::PM_LayoutLeftMargin);
    const auto place = [&](FolderStatusRow* row, int index) {
        row->setGeometry(inset, index * stride, canvas_->width() - 2 * inset, stride - kRowSpacing);
    };

    // A folder still in view keeps its row; the others take whatever rows are left over.
    QHash<QString, FolderStatusRow*> previous = std::exchange(placedByPath_, {});
    QList<int> withoutRow;
    for (int index = first; index < last; ++index) {
        const DirItem& folder = folders_.at(index);
        if (FolderStatusRow* row = previous.take(folder.path)) {
            row->setItem(folder);
            place(row, index);
            placedByPath_.insert(folder.path, row);
        } else {
            withoutRow.append(index);
        }
    }
    spare_.append(previous.values());
    for (const int index : withoutRow) {
        const DirItem& folder = folders_.at(index);
        FolderStatusRow* row = nullptr;
        if (spare_.isEmpty()) {
            row = new FolderStatusRow(environment_, folder, canvas_);
        } else {
            row = spare_.takeLast();
            row->setItem(folder);
        }
        place(row, index);
        row->show();
        placedByPath_.insert(folder.path, row);
    }
    for (FolderStatusRow* row : std::as_const(spare_)) {
        row->hide();
    }
    while (spare_.size() > kSpareRowsKept) {
        delete spare_.takeLast();
    }
}

QList<FolderStatusRow*> FolderList::rows() const {
    QList<FolderStatusRow*> rows = placedByPath_.values();
    std::sort(rows.begin(), rows.end(),
              [](const FolderStatusRow* a, const FolderStatusRow* b) { return a->y() < b->y(); });
    return rows;
}
