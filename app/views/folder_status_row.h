#pragma once

// One watched folder in the status list: open button, name, path, status, the
// group's web page button and an animated progress bar.

#include <QPropertyAnimation>
#include <QWidget>

#include "records/records.h"

class QLabel;
class QProgressBar;
class SymbolButton;
struct ViewEnvironment;

class FolderStatusRow : public QWidget {
    Q_OBJECT

public:
    // The bar's steps: progress 0 to 1 in thousandths.
    static constexpr int progressSteps = 1000;

    FolderStatusRow(ViewEnvironment& environment, const DirItem& item, QWidget* parent = nullptr);

    const DirItem& item() const { return item_; }
    // Shows the folder as it now stands; the bar glides to its new value.
    void setItem(const DirItem& item);

    QProgressBar* progressBar() const { return progressBar_; }

private:
    void showTexts();

    ViewEnvironment& environment_;
    DirItem item_;
    SymbolButton* openButton_;
    QLabel* nameLabel_;
    QLabel* pathLabel_;
    QLabel* statusLabel_;
    SymbolButton* webButton_;
    QProgressBar* progressBar_;
    QPropertyAnimation progressAnimation_;
};
