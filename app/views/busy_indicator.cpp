#include "busy_indicator.h"

#include <QPainter>

BusyIndicator::BusyIndicator(QWidget* parent) : QWidget(parent) {
    setAccessibleName(tr("Loading"));
    setFixedSize(sizeHint());
    rotation_.setStartValue(0);
    rotation_.setEndValue(360);
    rotation_.setDuration(1000);
    rotation_.setLoopCount(-1);
    connect(&rotation_, &QVariantAnimation::valueChanged, this, qOverload<>(&QWidget::update));
}

void BusyIndicator::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal penWidth = 3.0;
    QPen pen(palette().color(QPalette::WindowText), penWidth, Qt::SolidLine, Qt::RoundCap);
    painter.setPen(pen);
    const QRectF arcRect = QRectF(rect()).adjusted(penWidth, penWidth, -penWidth, -penWidth);
    // Angles are in sixteenths of a degree, counter-clockwise; the arc turns clockwise.
    const int start = -rotation_.currentValue().toInt() * 16;
    painter.drawArc(arcRect, start, 270 * 16);
}

void BusyIndicator::showEvent(QShowEvent*) {
    rotation_.start();
}

void BusyIndicator::hideEvent(QHideEvent*) {
    rotation_.stop();
}
