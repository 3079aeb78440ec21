#pragma once

// What a tab shows while it has nothing to list: a spinner, or a waiting text that
// turns into a hint five seconds after it is first shown, and stays a hint.

#include <QString>
#include <QWidget>

class BusyIndicator;
class QLabel;
class QStackedLayout;

class WaitingFace : public QWidget {
    Q_OBJECT

public:
    explicit WaitingFace(const QString& hint, QWidget* parent = nullptr);

    void showSpinner();
    void showText();

private:
    QString hint_;
    bool timerStarted_ = false;
    QStackedLayout* faces_;
    BusyIndicator* spinner_;
    QLabel* text_;
};
