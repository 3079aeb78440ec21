#pragma once

// One group in the settings list: its header with the add buttons, then one row per
// watched path with open and stop-watching buttons.

#include <QWidget>

#include "app/records.h"

class QVBoxLayout;
class SymbolButton;
struct ViewEnvironment;

class GroupBlock : public QWidget {
    Q_OBJECT

public:
    GroupBlock(ViewEnvironment& environment, const GroupItem& group, QWidget* parent = nullptr);

    const GroupItem& group() const { return group_; }
    // The open buttons show each folder's icon, which changes with its status.
    void refreshFolderIcons();

signals:
    // A request was sent that changes the groups; the view asks for them again.
    void groupsNeedRefresh();

private:
    QWidget* makeHeader();
    QWidget* makeFolderRow(const QString& path);
    void addFolder();
    void addPhotoLibrary();
    void stopWatching(const QString& path);
    void watch(const QString& path);

    ViewEnvironment& environment_;
    GroupItem group_;
    QList<SymbolButton*> openButtons_;
};
