#include "update_dialog.h"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <utility>

namespace {

// Progress is shown in thousandths, so archives beyond the int range still fit the bar.
constexpr int kProgressSteps = 1000;

QPushButton* makeButton(const QString& text, const QString& name, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setObjectName(name);
    button->setAccessibleName(text);
    return button;
}

}  // namespace

UpdateDialog::UpdateDialog(QWidget* parent)
    : QDialog(parent),
      headline_(new QLabel(this)),
      details_(new QLabel(this)),
      progress_(new QProgressBar(this)),
      installButton_(makeButton(tr("Install"), QStringLiteral("installButton"), this)),
      downloadPageButton_(
          makeButton(tr("Download page"), QStringLiteral("downloadPageButton"), this)),
      laterButton_(makeButton(tr("Later"), QStringLiteral("laterButton"), this)),
      okButton_(makeButton(tr("OK"), QStringLiteral("okButton"), this)) {
    setWindowTitle(tr("Software Update"));
    setAccessibleName(tr("Software Update"));
    setMinimumWidth(420);

    QFont headlineFont = headline_->font();
    headlineFont.setBold(true);
    headline_->setFont(headlineFont);
    headline_->setObjectName(QStringLiteral("headline"));
    headline_->setAccessibleName(tr("Update status"));
    details_->setObjectName(QStringLiteral("details"));
    details_->setAccessibleName(tr("Update details"));
    details_->setWordWrap(true);
    details_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    progress_->setObjectName(QStringLiteral("progress"));
    progress_->setAccessibleName(tr("Update progress"));
    progress_->setTextVisible(false);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    for (QPushButton* button : {downloadPageButton_, laterButton_, installButton_, okButton_}) {
        buttons->addWidget(button);
    }
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(headline_);
    layout->addWidget(details_);
    layout->addWidget(progress_);
    layout->addLayout(buttons);

    connect(installButton_, &QPushButton::clicked, this, [this] { answer(UpdateChoice::install); });
    connect(laterButton_, &QPushButton::clicked, this, [this] {
        answer(UpdateChoice::later);
        hide();
    });
    connect(downloadPageButton_, &QPushButton::clicked, this, [this] {
        openDownloadPage();
        answer(UpdateChoice::later);
        hide();
    });
    connect(okButton_, &QPushButton::clicked, this, &QDialog::hide);
}

void UpdateDialog::showStep(const QString& headline, const QString& details, int buttons) {
    headline_->setText(headline);
    details_->setText(details);
    details_->setVisible(!details.isEmpty());
    installButton_->setVisible(buttons & installButton);
    downloadPageButton_->setVisible(buttons & downloadPageButton);
    laterButton_->setVisible(buttons & laterButton);
    okButton_->setVisible(buttons & okButton);
    progress_->setVisible(false);
    for (QPushButton* button : {installButton_, okButton_}) {
        if (button->isVisible()) {
            button->setDefault(true);
        }
    }
}

void UpdateDialog::setBusy() {
    progress_->setRange(0, 0);
    progress_->setVisible(true);
}

void UpdateDialog::showChecking() {
    showStep(tr("Checking for updates…"), QString(), noButtons);
    setBusy();
    show();
    raise();
}

void UpdateDialog::showUpToDate(const QString& currentShortVersion) {
    showStep(tr("You're up to date!"),
             tr("brisvane %1 is the newest version available.").arg(currentShortVersion), okButton);
    show();
    raise();
}

void UpdateDialog::showUpdateFound(const UpdateOffer& offer,
                                   std::function<void(UpdateChoice)> answer) {
    answer_ = std::move(answer);
    downloadPage_ = offer.downloadPage;
    QString details = tr("brisvane %1 is now available; you have %2.")
                          .arg(offer.shortVersion, offer.currentShortVersion);
    if (offer.whyNotInstallable.isEmpty()) {
        details += u' ' + tr("Would you like to install it now?");
    } else {
        details += u'\n' + offer.whyNotInstallable + u' ' +
                   tr("You can get the new version from the download page.");
    }
    const bool installable = offer.whyNotInstallable.isEmpty();
    showStep(tr("A new version of brisvane is available!"), details,
             downloadPageButton | laterButton | (installable ? installButton : noButtons));
    show();
    raise();
}

void UpdateDialog::showDownloadProgress(qint64 received, qint64 total) {
    const QLocale locale;
    showStep(tr("Downloading the update…"),
             total > 0
                 ? tr("%1 of %2")
                       .arg(locale.formattedDataSize(received), locale.formattedDataSize(total))
                 : locale.formattedDataSize(received),
             noButtons);
    progress_->setRange(0, kProgressSteps);
    progress_->setValue(total > 0 ? static_cast<int>(received * kProgressSteps / total) : 0);
    progress_->setVisible(true);
}

void UpdateDialog::showVerifying() {
    showStep(tr("Checking and installing the update…"), QString(), noButtons);
    setBusy();
}

void UpdateDialog::showInstalled(const QString& shortVersion) {
    showStep(tr("brisvane %1 is installed.").arg(shortVersion),
             tr("The new version runs the next time you start brisvane."), okButton);
    show();
    raise();
}

void UpdateDialog::showError(const QString& message, const QString& detail,
                             const QUrl& downloadPage) {
    downloadPage_ = downloadPage;
    showStep(tr("The update did not go through."),
             detail.isEmpty() ? message : message + u'\n' + detail,
             okButton | (downloadPage.isValid() ? downloadPageButton : noButtons));
    show();
    raise();
}

void UpdateDialog::reject() {
    answer(UpdateChoice::later);
    QDialog::reject();
}

void UpdateDialog::answer(UpdateChoice choice) {
    if (!answer_) {
        return;
    }
    // Taken out first: the answer may start the next step, which can offer again.
    const std::function<void(UpdateChoice)> reply = std::exchange(answer_, nullptr);
    reply(choice);
}

void UpdateDialog::openDownloadPage() {
    QDesktopServices::openUrl(downloadPage_);
}
