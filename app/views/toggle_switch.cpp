#include "toggle_switch.h"

#include <QPainter>
#include <QStyle>
#include <QStyleOptionFocusRect>

namespace {

constexpr int kKnobInset = 2;    // between the knob and the track's edge
constexpr int kFocusMargin = 3;  // room for the focus frame around the track
constexpr int kTextSpacing = 8;  // between the text and the track
constexpr qreal kTrackAspect = 1.75;
constexpr qreal kOffTrackAlpha = 0.35;  // of the text colour, so it reads on light and dark
constexpr qreal kDisabledOpacity = 0.45;

}  // namespace

ToggleSwitch::ToggleSwitch(QWidget* parent) : ToggleSwitch(QString(), parent) {}

ToggleSwitch::ToggleSwitch(const QString& text, QWidget* parent) : QAbstractButton(parent) {
    setText(text);
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    knobSlide_.setEasingCurve(QEasingCurve::InOutQuad);
    connect(&knobSlide_, &QVariantAnimation::valueChanged, this, [this] { update(); });
    connect(this, &QAbstractButton::toggled, this, &ToggleSwitch::slideKnob);
}

QSize ToggleSwitch::trackSize() const {
    const int height = fontMetrics().height() + 2 * kKnobInset;
    return {qRound(height * kTrackAspect), height};
}

QSize ToggleSwitch::sizeHint() const {
    const QSize track = trackSize() + QSize(2 * kFocusMargin, 2 * kFocusMargin);
    if (text().isEmpty()) {
        return track;
    }
    const QSize label = fontMetrics().size(Qt::TextShowMnemonic, text());
    return {label.width() + kTextSpacing + track.width(), std::max(label.height(), track.height())};
}

QSize ToggleSwitch::minimumSizeHint() const {
    return sizeHint();
}

// At the trailing edge, centred vertically; the text takes the room before it.
QRect ToggleSwitch::trackRect() const {
    const QSize size = trackSize();
    const QRect leftToRight(width() - kFocusMargin - size.width(), (height() - size.height()) / 2,
                            size.width(), size.height());
    return QStyle::visualRect(layoutDirection(), rect(), leftToRight);
}

void ToggleSwitch::slideKnob(bool checked) {
    const qreal from = knobSlide_.state() == QAbstractAnimation::Running
                           ? knobSlide_.currentValue().toReal()
                           : (checked ? 0.0 : 1.0);
    knobSlide_.stop();
    const int duration = style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, this);
    if (!isVisible() || duration <= 0) {
        update();
        return;
    }
    knobSlide_.setDuration(duration);
    knobSlide_.setStartValue(from);
    knobSlide_.setEndValue(checked ? 1.0 : 0.0);
    knobSlide_.start();
}

void ToggleSwitch::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette::ColorGroup group = !isEnabled()       ? QPalette::Disabled
                                       : isActiveWindow() ? QPalette::Active
                                                          : QPalette::Inactive;
    const QRect track = trackRect();

    if (!text().isEmpty()) {
        QRect textRect(kFocusMargin, 0, width() - 2 * kFocusMargin - track.width() - kTextSpacing,
                       height());
        textRect = QStyle::visualRect(layoutDirection(), rect(), textRect);
        style()->drawItemText(
            &painter, textRect,
            QStyle::visualAlignment(layoutDirection(), Qt::AlignLeft | Qt::AlignVCenter) |
                Qt::TextShowMnemonic,
            palette(), isEnabled(), text(), QPalette::WindowText);
    }

    if (hasFocus()) {
        QStyleOptionFocusRect focus;
        focus.initFrom(this);
        focus.rect = track.adjusted(-kFocusMargin, -kFocusMargin, kFocusMargin, kFocusMargin);
        focus.backgroundColor = palette().color(group, QPalette::Window);
        style()->drawPrimitive(QStyle::PE_FrameFocusRect, &focus, &painter, this);
    }

    if (!isEnabled()) {
        painter.setOpacity(kDisabledOpacity);
    }
    const qreal position = knobSlide_.state() == QAbstractAnimation::Running
                               ? knobSlide_.currentValue().toReal()
                               : (isChecked() ? 1.0 : 0.0);
    const QColor onColor = palette().color(group, QPalette::Highlight);
    QColor offColor = palette().color(group, QPalette::WindowText);
    offColor.setAlphaF(kOffTrackAlpha);
    // Blend while sliding, so the colour follows the knob.
    const QColor trackColor =
        QColor::fromRgbF(offColor.redF() + (onColor.redF() - offColor.redF()) * position,
                         offColor.greenF() + (onColor.greenF() - offColor.greenF()) * position,
                         offColor.blueF() + (onColor.blueF() - offColor.blueF()) * position,
                         offColor.alphaF() + (onColor.alphaF() - offColor.alphaF()) * position);
    const qreal radius = track.height() / 2.0;
    painter.setPen(Qt::NoPen);
    painter.setBrush(trackColor);
    painter.drawRoundedRect(QRectF(track), radius, radius);

    const qreal diameter = track.height() - 2 * kKnobInset;
    const qreal travel = track.width() - 2 * kKnobInset - diameter;
    const qreal along = layoutDirection() == Qt::RightToLeft ? 1.0 - position : position;
    const QRectF knob(track.left() + kKnobInset + along * travel, track.top() + kKnobInset,
                      diameter, diameter);
    painter.setBrush(palette().color(group, QPalette::HighlightedText));
    painter.drawEllipse(knob);
}
