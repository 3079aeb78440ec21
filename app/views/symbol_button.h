#pragma once

// The panel's borderless icon buttons: a symbol drawn square at the given width.

#include <QString>
#include <QToolButton>

class SymbolButton : public QToolButton {
    Q_OBJECT

public:
    // toolTip is the hover help; accessibleName names the button for screen readers
    // and tests, where the hover help alone would not tell two rows' buttons apart.
    SymbolButton(const QString& symbolName, int width, const QString& toolTip,
                 const QString& accessibleName, QWidget* parent = nullptr);

    const QString& symbolName() const { return symbolName_; }
    // Redraws with another symbol; a no-op when it is the one shown.
    void setSymbolName(const QString& symbolName);

private:
    QString symbolName_;
};
