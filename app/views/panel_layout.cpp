#include "panel_layout.h"

#include <QFrame>
#include <QGridLayout>

void SetTabContentSize(QWidget* view) {
    view->setMinimumSize(650, 450);
    view->setMaximumHeight(450);
    view->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QFrame* HorizontalDivider(QWidget* parent) {
    auto* divider = new QFrame(parent);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    return divider;
}

QWidget* Centered(QWidget* content, QWidget* parent) {
    auto* page = new QWidget(parent);
    auto* layout = new QGridLayout(page);
    layout->addWidget(content, 0, 0, Qt::AlignCenter);
    return page;
}
