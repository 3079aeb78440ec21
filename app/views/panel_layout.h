#pragma once

// Layout pieces the panel's views share.

class QFrame;
class QWidget;

// The tab contents' frame: at least 650 wide, exactly 450 high.
void SetTabContentSize(QWidget* view);

QFrame* HorizontalDivider(QWidget* parent);

// A page that keeps content in its middle.
QWidget* Centered(QWidget* content, QWidget* parent);
