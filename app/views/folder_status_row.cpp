#include "folder_status_row.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>
#include <cmath>

#include "app/panel_model.h"
#include "elided_label.h"
#include "symbol_button.h"
#include "view_environment.h"
#include "view_fonts.h"

using namespace Qt::Literals::StringLiterals;

namespace {

int barValue(double progress) {
    return static_cast<int>(std::lround(progress * FolderStatusRow::progressSteps));
}

}  // namespace

FolderStatusRow::FolderStatusRow(ViewEnvironment& environment, const DirItem& item, QWidget* parent)
    : QWidget(parent), environment_(environment), item_(item) {
    openButton_ = new SymbolButton(item.icon(), 32, tr("Open"), tr("Open %1").arg(item.name), this);
    openButton_->setObjectName(u"openDirButton"_s);
    connect(openButton_, &QToolButton::clicked, this,
            [this] { environment_.ip.publish(u"openDirPath"_s, item_.path, QString()); });

    nameLabel_ = new QLabel(this);
    nameLabel_->setFont(Title3Font(font()));
    pathLabel_ = new ElidedLabel(QString(), this);
    statusLabel_ = new QLabel(this);
    for (QLabel* label : {nameLabel_, statusLabel_}) {
        label->setTextFormat(Qt::PlainText);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    pathLabel_->setObjectName(u"pathLabel"_s);
    statusLabel_->setObjectName(u"statusLabel"_s);

    webButton_ = new SymbolButton(u"network"_s, 32, tr("Open in %1").arg(ServiceHostName()),
                                  tr("Open %1 in %2").arg(item.name, ServiceHostName()), this);
    webButton_->setObjectName(u"openWebButton"_s);
    connect(webButton_, &QToolButton::clicked, this, [this] {
        environment_.ip.publish(u"openWeb"_s, QString::number(item_.groupID), QString());
    });

    progressBar_ = new QProgressBar(this);
    progressBar_->setRange(0, progressSteps);
    progressBar_->setTextVisible(false);
    progressBar_->setValue(barValue(item.progress()));
    progressAnimation_.setTargetObject(progressBar_);
    progressAnimation_.setPropertyName("value");
    progressAnimation_.setDuration(350);
    progressAnimation_.setEasingCurve(QEasingCurve::InOutQuad);

    auto* nameAndPath = new QHBoxLayout;
    nameAndPath->addWidget(nameLabel_);
    nameAndPath->addWidget(pathLabel_, 1);
    auto* texts = new QVBoxLayout;
    texts->addLayout(nameAndPath);
    texts->addWidget(statusLabel_);
    auto* textsAndWeb = new QHBoxLayout;
    textsAndWeb->addLayout(texts, 1);
    textsAndWeb->addWidget(webButton_);
    auto* column = new QVBoxLayout;
    column->setContentsMargins(20, 0, 0, 0);
    column->addLayout(textsAndWeb);
    column->addSpacing(10);
    column->addWidget(progressBar_);

    auto* row = new QHBoxLayout(this);
    row->addWidget(openButton_, 0, Qt::AlignTop);
    row->addLayout(column, 1);
    showTexts();
}

void FolderStatusRow::setItem(const DirItem& item) {
    if (item == item_) {
        return;
    }
    const bool sameFolder = item.path == item_.path;
    const int oldValue = barValue(item_.progress());
    item_ = item;
    openButton_->setSymbolName(item.icon());
    showTexts();
    const int newValue = barValue(item.progress());
    if (!sameFolder) {
        // The row now stands for another folder: its bar shows that folder's progress at once.
        progressAnimation_.stop();
        progressBar_->setValue(newValue);
    } else if (newValue != oldValue) {
        progressAnimation_.stop();
        progressAnimation_.setStartValue(progressBar_->value());
        progressAnimation_.setEndValue(newValue);
        progressAnimation_.start();
    }
}

void FolderStatusRow::showTexts() {
    nameLabel_->setText(item_.name);
    pathLabel_->setText(item_.path);
    statusLabel_->setText(item_.status);
    progressBar_->setAccessibleName(tr("%1: %2").arg(item_.name, item_.status));
    openButton_->setAccessibleName(tr("Open %1").arg(item_.name));
    webButton_->setAccessibleName(tr("Open %1 in %2").arg(item_.name, ServiceHostName()));
}
