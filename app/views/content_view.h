#pragma once

// The "Status" tab: every watched folder with its progress, or, while there is none,
// a spinner or a short text.

#include <QHash>
#include <QWidget>

class FolderStatusRow;
class QStackedLayout;
class QVBoxLayout;
class WaitingFace;
struct ViewEnvironment;

class ContentView : public QWidget {
    Q_OBJECT

public:
    explicit ContentView(ViewEnvironment& environment, QWidget* parent = nullptr);

    // What the view shows now; tests read it.
    enum class Branch { folderList, spinner, waitingText };
    Branch branch() const { return branch_; }
    // The rows from top to bottom.
    QList<FolderStatusRow*> rows() const;

protected:
    void showEvent(QShowEvent* event) override;

private:
    void redrawWhenSeen();
    void redraw();
    void showFolders();

    ViewEnvironment& environment_;
    Branch branch_ = Branch::waitingText;
    bool isStale_ = false;

    QStackedLayout* branches_;
    QVBoxLayout* rowsLayout_;
    QHash<QString, FolderStatusRow*> rowsByPath_;
    WaitingFace* waitingFace_;
};
