#pragma once

// A one-line label for a folder's path. A path can be longer than the panel is wide,
// and the panel keeps its size: the text gives way in the middle, where a path says
// least, and a tooltip shows the whole of it. Screen readers get the whole text, since
// the label's text itself stays whole.

#include <QLabel>

class ElidedLabel : public QLabel {
    Q_OBJECT

public:
    explicit ElidedLabel(const QString& text = {}, QWidget* parent = nullptr);

    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    bool isCut() const;
};
