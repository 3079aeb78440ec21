#pragma once

// The "Settings" tab: the user's groups, each with the folders watched for it and
// the buttons that add a folder or a photo library or stop watching one.

#include <QWidget>

class GroupBlock;
class QStackedLayout;
class QVBoxLayout;
class WaitingFace;
struct ViewEnvironment;

class SettingsView : public QWidget {
    Q_OBJECT

public:
    explicit SettingsView(ViewEnvironment& environment, QWidget* parent = nullptr);

    enum class Branch { groupList, spinner, waitingText };
    Branch branch() const { return branch_; }
    QList<GroupBlock*> groupBlocks() const { return groupBlocks_; }

protected:
    // Every time the tab comes into view the groups are asked for, and again a little
    // later, since the helper may still be reading them.
    void showEvent(QShowEvent* event) override;

private:
    void redraw();
    void refreshFolderIcons();
    void rebuildGroups();

    ViewEnvironment& environment_;
    bool rebuildPending_ = false;
    bool iconsAreStale_ = false;
    Branch branch_ = Branch::waitingText;

    QStackedLayout* branches_;
    QVBoxLayout* groupsLayout_;
    QList<GroupBlock*> groupBlocks_;
    WaitingFace* waitingFace_;
};
