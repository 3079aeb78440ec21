#pragma once

// What the tray and the panel say while the helper gives no answer: a line beside what they
// show, never in its place, gone with the next answer.

#include <QLabel>
#include <QString>

class PanelModel;

QString HelperSilentText();
// "brisvane", and the notice on a second line while the helper is silent.
QString TrayToolTip(const PanelModel& model);

// A slim band over the panel's screen, shown only while the helper is silent.
class HelperSilentNotice : public QLabel {
    Q_OBJECT

public:
    explicit HelperSilentNotice(const PanelModel& model, QWidget* parent = nullptr);
};
