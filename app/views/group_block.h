#pragma once

// One group in the settings list: its header with the add buttons, then one row per
// watched path with open and stop-watching buttons.

#include <QWidget>

#include "records/records.h"

class PanelModel;
class SymbolButton;
struct ViewEnvironment;

class GroupBlock : public QWidget {
    Q_OBJECT

public:
    GroupBlock(ViewEnvironment& environment, const GroupItem& group, QWidget* parent = nullptr);

    const GroupItem& group() const { return group_; }
    // The open buttons show each folder's icon, which changes with its status.
    void refreshFolderIcons();

private:
    QWidget* makeHeader();
    QWidget* makeFolderRow(const QString& path);
    void addFolder();
    void addPhotoLibrary();
    void stopWatching(const QString& path);
    static void watch(ViewEnvironment& environment, const QString& groupName, const QString& path);

    ViewEnvironment& environment_;
    GroupItem group_;
    QList<SymbolButton*> openButtons_;
};

// Asks the helper for the groups.
void AskForGroups(PanelModel& ip);
// Asks at once and once more half a second later, after a request that changes the
// groups: the helper may not have taken it in by the first answer.
void AskForGroupsNowAndSoon(PanelModel& ip);
