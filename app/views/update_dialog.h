#pragma once

// The window an update session shows: one page whose texts, progress bar and buttons change
// with the session's step.

#include <QDialog>

#include "app/platform/updates/update_user_driver.h"

class QLabel;
class QProgressBar;
class QPushButton;

class UpdateDialog : public QDialog, public UpdateUserDriver {
    Q_OBJECT

public:
    explicit UpdateDialog(QWidget* parent = nullptr);

    void showChecking() override;
    void showUpToDate(const QString& currentShortVersion) override;
    void showUpdateFound(const UpdateOffer& offer,
                         std::function<void(UpdateChoice)> answer) override;
    void showDownloadProgress(qint64 received, qint64 total) override;
    void showVerifying() override;
    void showInstalled(const QString& shortVersion) override;
    void showError(const QString& message, const QString& detail,
                   const QUrl& downloadPage) override;

    // Closing the window while an update is offered answers "Later".
    void reject() override;

private:
    enum ButtonSet {
        noButtons = 0,
        installButton = 1,
        downloadPageButton = 2,
        laterButton = 4,
        okButton = 8
    };
    void showStep(const QString& headline, const QString& details, int buttons);
    void setBusy();
    void answer(UpdateChoice choice);
    void openDownloadPage();

    QLabel* headline_;
    QLabel* details_;
    QProgressBar* progress_;
    QPushButton* installButton_;
    QPushButton* downloadPageButton_;
    QPushButton* laterButton_;
    QPushButton* okButton_;
    QUrl downloadPage_;
    std::function<void(UpdateChoice)> answer_;
};
