#pragma once

// The picture the tray shows for a menu-bar symbol.

#include <QIcon>
#include <QString>

// The symbol in white on a blue disc with a white rim, at the sizes tray hosts ask
// for. Neither tray protocol tells the application the colour of the panel it is
// drawn on, and panels come light and dark: the disc stands out on light ones, the
// rim and the symbol on dark ones. A symbol without a tray picture falls back to the
// panel's own symbol icon.
QIcon TrayIcon(const QString& symbolName);
