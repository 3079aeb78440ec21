#pragma once

// The views and the model name icons by symbol ("arrow.clockwise", "internaldrive", ...).
// Each name maps to a monochrome SVG shipped in the application's resources, drawn in the
// palette's text colour at paint time, so the icons follow a light or dark palette
// without being created again.

#include <QIcon>
#include <QString>
#include <QStringList>

// The icon for a symbol name; an unknown name gives a visible placeholder rather
// than nothing, so a new name the model starts using never leaves a blank button.
QIcon SymbolIcon(const QString& symbolName);

// Every symbol name the table knows.
QStringList KnownSymbolNames();
