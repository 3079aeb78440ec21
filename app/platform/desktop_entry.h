#pragma once

// The small part of the freedesktop desktop-entry format an autostart entry needs:
// reading the main group of an entry strictly, and writing a program path as an
// Exec= value that the desktop's launcher splits back into exactly that path.

#include <QByteArray>
#include <QHash>
#include <QString>
#include <optional>

namespace DesktopEntry {

// The keys of the "[Desktop Entry]" group, or nothing when the text is not a desktop
// entry: not UTF-8, a line that is neither comment, group header nor key=value, a
// key before the first group, or a first group of another name. Of repeated keys
// the last counts, as the desktop's own key-file reader does it.
std::optional<QHash<QString, QString>> mainGroup(const QByteArray& text);

// The path as an Exec= value: quoted when it holds a space or a reserved character,
// with the quoting, field-code and string escapes the format asks for.
QString execValue(const QString& programPath);

}  // namespace DesktopEntry
