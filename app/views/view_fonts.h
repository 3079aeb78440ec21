#pragma once

// The panel's three text styles, derived from the widget's own font so that the
// desktop's font choice and size carry through.

#include <QFont>

// A folder's or a group's name.
inline QFont Title3Font(QFont font) {
    font.setPointSizeF(font.pointSizeF() * 1.25);
    font.setBold(true);
    return font;
}

// The login screen's title and button.
inline QFont HeadlineFont(QFont font) {
    font.setPointSizeF(font.pointSizeF() * 1.1);
    font.setWeight(QFont::DemiBold);
    return font;
}
