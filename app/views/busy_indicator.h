#pragma once

// An indeterminate spinner: a turning arc in the palette's text colour. It turns only
// while visible, so a hidden panel costs no timer ticks.

#include <QVariantAnimation>
#include <QWidget>

class BusyIndicator : public QWidget {
    Q_OBJECT

public:
    explicit BusyIndicator(QWidget* parent = nullptr);

    QSize sizeHint() const override { return {32, 32}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    QVariantAnimation rotation_;
};
