#pragma once

// An on/off switch: a rounded track with a sliding knob, in the palette's colours
// (the highlight when on), with an optional text beside it that belongs to the
// control, so clicking the text switches too. Checkable, focusable, switched with
// Space, and seen by assistive technology as a check box named by its text.

#include <QAbstractButton>
#include <QVariantAnimation>

class ToggleSwitch : public QAbstractButton {
    Q_OBJECT

public:
    explicit ToggleSwitch(QWidget* parent = nullptr);
    explicit ToggleSwitch(const QString& text, QWidget* parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QSize trackSize() const;
    QRect trackRect() const;
    void slideKnob(bool checked);

    // 0 = off, 1 = on; between the two while sliding.
    QVariantAnimation knobSlide_;
};
