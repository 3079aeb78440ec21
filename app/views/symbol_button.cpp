#include "symbol_button.h"

#include "symbol_icons.h"

SymbolButton::SymbolButton(const QString& symbolName, int width, const QString& toolTip,
                           const QString& accessibleName, QWidget* parent)
    : QToolButton(parent), symbolName_(symbolName) {
    setAutoRaise(true);
    setIcon(SymbolIcon(symbolName));
    setIconSize(QSize(width, width));
    setToolTip(toolTip);
    setAccessibleName(accessibleName);
    setCursor(Qt::PointingHandCursor);
}

void SymbolButton::setSymbolName(const QString& symbolName) {
    if (symbolName == symbolName_) {
        return;
    }
    symbolName_ = symbolName;
    setIcon(SymbolIcon(symbolName));
}
