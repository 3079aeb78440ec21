#include "desktop_entry.h"

#include <QStringDecoder>
#include <algorithm>

namespace DesktopEntry {
namespace {

const QString kMainGroup = QStringLiteral("Desktop Entry");

// Only spaces and tabs surround a key, a value or a line (and a carriage return ends one):
// any other white space, such as a form feed or a no-break space, is part of the value and
// ends a program path as much as any letter does, since the Exec= writer quotes or escapes
// exactly these.
bool isBlank(QChar c) {
    return c == u' ' || c == u'\t' || c == u'\r';
}

QStringView trimmedBlanks(QStringView text) {
    while (!text.isEmpty() && isBlank(text.front())) {
        text = text.sliced(1);
    }
    while (!text.isEmpty() && isBlank(text.back())) {
        text.chop(1);
    }
    return text;
}

// Letters, digits and "-", optionally followed by a "[locale]" suffix.
bool isKey(QStringView key) {
    const qsizetype bracket = key.indexOf(u'[');
    const QStringView name = bracket < 0 ? key : key.first(bracket);
    if (name.isEmpty()) {
        return false;
    }
    const bool plainName = std::all_of(name.begin(), name.end(), [](QChar c) {
        return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') ||
               c == u'-';
    });
    if (!plainName) {
        return false;
    }
    return bracket < 0 || (key.endsWith(u']') && key.size() > bracket + 2);
}

}  // namespace

std::optional<QHash<QString, QString>> mainGroup(const QByteArray& text) {
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString decoded = decoder.decode(text);
    if (decoder.hasError()) {
        return std::nullopt;
    }

    QHash<QString, QString> keys;
    std::optional<QString> group;
    for (QStringView rawLine : QStringView(decoded).split(u'\n')) {
        const QStringView line = trimmedBlanks(rawLine);
        if (line.isEmpty() || line.startsWith(u'#')) {
            continue;
        }
        if (line.startsWith(u'[')) {
            if (!line.endsWith(u']') || line.size() < 3) {
                return std::nullopt;
            }
            const QString name = line.sliced(1, line.size() - 2).toString();
            // The main group comes first, and only once.
            if ((!group && name != kMainGroup) || (group && name == kMainGroup)) {
                return std::nullopt;
            }
            group = name;
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!group || equals < 0) {
            return std::nullopt;
        }
        const QStringView key = trimmedBlanks(line.first(equals));
        if (!isKey(key)) {
            return std::nullopt;
        }
        if (*group == kMainGroup) {
            keys.insert(key.toString(), trimmedBlanks(line.sliced(equals + 1)).toString());
        }
    }
    if (!group) {
        return std::nullopt;
    }
    return keys;
}

QString execValue(const QString& programPath) {
    // Characters the launcher would otherwise read as shell syntax or a word break.
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    const bool needsQuotes = std::any_of(programPath.begin(), programPath.end(),
                                         [](QChar c) { return reserved.contains(c); });

    QString argument;
    if (needsQuotes) {
        argument += u'"';
        for (QChar c : programPath) {
            if (c == u'"' || c == u'`' || c == u'$' || c == u'\\') {
                argument += u'\\';
            }
            argument += c;
        }
        argument += u'"';
    } else {
        argument = programPath;
    }
    argument.replace(u'%', QStringLiteral("%%"));  // "%" starts a field code

    // Exec= is a string value, read through the string escapes before it is split.
    QString value;
    for (QChar c : argument) {
        switch (c.unicode()) {
            case u'\\':
                value += QStringLiteral("\\\\");
                break;
            case u'\n':
                value += QStringLiteral("\\n");
                break;
            case u'\t':
                value += QStringLiteral("\\t");
                break;
            case u'\r':
                value += QStringLiteral("\\r");
                break;
            default:
                value += c;
        }
    }
    return value;
}

}  // namespace DesktopEntry
