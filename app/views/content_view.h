#pragma once

// The "Status" tab: every watched folder with its progress, or, while there is none,
// a spinner or a short text.

#include <QWidget>

class FolderList;
class FolderStatusRow;
class QStackedLayout;
class WaitingFace;
struct ViewEnvironment;

class ContentView : public QWidget {
    Q_OBJECT

public:
    explicit ContentView(ViewEnvironment& environment, QWidget* parent = nullptr);

    // What the view shows now; tests read it.
    enum class Branch { folderList, spinner, waitingText };
    Branch branch() const { return branch_; }
    // The rows that exist, from top to bottom: those in view.
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
    FolderList* folderList_;
    WaitingFace* waitingFace_;
};
