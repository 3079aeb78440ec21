#include "helper_silence.h"

#include "app/panel_model.h"

using namespace Qt::Literals::StringLiterals;

QString HelperSilentText() {
    return QObject::tr("The sync helper is not responding");
}

QString TrayToolTip(const PanelModel& model) {
    return model.isHelperSilent() ? u"brisvane\n"_s + HelperSilentText() : u"brisvane"_s;
}

HelperSilentNotice::HelperSilentNotice(const PanelModel& model, QWidget* parent)
    : QLabel(HelperSilentText(), parent) {
    setObjectName(u"helperSilentNotice"_s);
    setAccessibleName(HelperSilentText());
    setWordWrap(true);
    setMargin(6);
    setAutoFillBackground(true);
    // The palette's own highlight, so the band reads on light and dark themes alike.
    QPalette colours = palette();
    colours.setColor(QPalette::Window, colours.color(QPalette::Highlight));
    colours.setColor(QPalette::WindowText, colours.color(QPalette::HighlightedText));
    setPalette(colours);
    setVisible(model.isHelperSilent());
    connect(&model, &PanelModel::isHelperSilentChanged, this,
            [this, &model] { setVisible(model.isHelperSilent()); });
}
