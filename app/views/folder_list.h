#pragma once

// The watched folders in name order, as rows under one another. Only the rows in view, and
// one more on either side, exist as widgets; scrolling moves them to the folders that come
// into view. A library of ten thousand folders thus costs what a screenful does, in memory
// and in the time a report takes to show.

#include <QHash>
#include <QList>
#include <QScrollArea>

#include "records/records.h"

class FolderStatusRow;
struct ViewEnvironment;

class FolderList : public QScrollArea {
    Q_OBJECT

public:
    explicit FolderList(ViewEnvironment& environment, QWidget* parent = nullptr);

    // Shows these folders, sorted by name. A row that stays in view keeps its widget, so
    // its bar glides on to the folder's new progress.
    void setFolders(QList<DirItem> folders);
    // The rows that exist, from top to bottom.
    QList<FolderStatusRow*> rows() const;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void placeRows();
    int rowStride();

    ViewEnvironment& environment_;
    QWidget* canvas_;
    QList<DirItem> folders_;
    QHash<QString, FolderStatusRow*> placedByPath_;
    QList<FolderStatusRow*> spare_;
    int rowStride_ = 0;
};
