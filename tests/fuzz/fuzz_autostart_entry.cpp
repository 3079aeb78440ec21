// The user's autostart entry, which anyone may have edited: read from any bytes, it never
// brings the program down, and the keys read from it read the same when written out plainly.
// The same bytes as a program path: the entry written for it reads back as enabled, with
// the Exec= that was written, and a launcher that follows the desktop-entry rules splits that
// Exec= back into exactly the path.

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "app/platform/launch_at_login.h"
#include "desktop_entry.h"
#include "fuzz_check.h"

namespace {

void writeEntry(const QByteArray& text) {
    QFile file(LaunchAtLogin::autostartEntryPath());
    FUZZ_CHECK(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    FUZZ_CHECK(file.write(text) == text.size());
}

// The string escapes of a desktop-entry value.
std::optional<QString> unescaped(const QString& value) {
    QString text;
    for (qsizetype at = 0; at < value.size(); ++at) {
        if (value[at] != u'\\') {
            text += value[at];
            continue;
        }
        if (++at == value.size()) {
            return std::nullopt;
        }
        switch (value[at].unicode()) {
            case u's':
                text += u' ';
                break;
            case u'n':
                text += u'\n';
                break;
            case u't':
                text += u'\t';
                break;
            case u'r':
                text += u'\r';
                break;
            case u'\\':
                text += u'\\';
                break;
            default:
                return std::nullopt;
        }
    }
    return text;
}

// An Exec= command line as a launcher splits it: "%%" is a literal "%" (the entry asks for no
// other field code), words break at blanks, a reserved character must be quoted, and inside
// double quotes a backslash escapes only '"', '`', '$' and '\'.
std::optional<QStringList> launcherWords(const QString& exec) {
    static const QString reserved = QStringLiteral("\"'\\><~|&;$*?#()`");
    QString text;
    for (qsizetype at = 0; at < exec.size(); ++at) {
        if (exec[at] == u'%') {
            if (at + 1 == exec.size() || exec[at + 1] != u'%') {
                return std::nullopt;
            }
            ++at;
        }
        text += exec[at];
    }
    QStringList words;
    std::optional<QString> word;
    for (qsizetype at = 0; at < text.size(); ++at) {
        const QChar c = text[at];
        if (c == u' ' || c == u'\t' || c == u'\n') {
            if (word) {
                words.append(*word);
                word.reset();
            }
        } else if (c == u'"') {
            QString quoted;
            for (++at; at < text.size() && text[at] != u'"'; ++at) {
                if (text[at] == u'\\') {
                    if (at + 1 == text.size() || !QStringLiteral("\"`$\\").contains(text[at + 1])) {
                        return std::nullopt;
                    }
                    ++at;
                }
                quoted += text[at];
            }
            if (at == text.size()) {
                return std::nullopt;
            }
            word = word.value_or(QString()) + quoted;
        } else if (reserved.contains(c)) {
            return std::nullopt;
        } else {
            word = word.value_or(QString()) + c;
        }
    }
    if (word) {
        words.append(*word);
    }
    return words;
}

void checkKeysRoundTrip(const QByteArray& text) {
    const std::optional<QHash<QString, QString>> keys = DesktopEntry::mainGroup(text);
    if (!keys) {
        return;
    }
    QByteArray plain = "[Desktop Entry]\n";
    for (auto it = keys->cbegin(); it != keys->cend(); ++it) {
        plain += (it.key() + u'=' + it.value() + u'\n').toUtf8();
    }
    FUZZ_CHECK(DesktopEntry::mainGroup(plain) == keys);
}

void checkWrittenEntry(const QString& programPath) {
    const QByteArray text = LaunchAtLogin::entryText(programPath);
    writeEntry(text);
    FUZZ_CHECK(LaunchAtLogin::isEnabled());
    const std::optional<QHash<QString, QString>> keys = DesktopEntry::mainGroup(text);
    FUZZ_CHECK(keys.has_value());
    const QString exec = keys->value(QStringLiteral("Exec"));
    FUZZ_CHECK(exec == DesktopEntry::execValue(programPath));
    const std::optional<QString> commandLine = unescaped(exec);
    FUZZ_CHECK(commandLine.has_value());
    FUZZ_CHECK(launcherWords(*commandLine) == QStringList{programPath});
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static QCoreApplication application(*argc, *argv);
    static QTemporaryDir configHome;
    FUZZ_CHECK(configHome.isValid());
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(configHome.path()));
    FUZZ_CHECK(QDir().mkpath(QFileInfo(LaunchAtLogin::autostartEntryPath()).path()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    writeEntry(bytes);
    (void)LaunchAtLogin::isEnabled();
    checkKeysRoundTrip(bytes);

    // A path names a file: it is never empty and never holds a NUL.
    const QString programPath = QString::fromUtf8(bytes);
    if (!programPath.isEmpty() && !programPath.contains(QChar(0))) {
        checkWrittenEntry(programPath);
    }
    return 0;
}
