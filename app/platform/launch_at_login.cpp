#include "launch_at_login.h"

#include <syslog.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>

#include "desktop_entry.h"

namespace LaunchAtLogin {
namespace {

constexpr char kLogIdentifier[] = "app.brisvane.Brisvane.LaunchAtLogin";
constexpr char kLogCategory[] = "main";
constexpr char kEntryFileName[] = "app.brisvane.Brisvane.desktop";

LogSink& logSink() {
    static LogSink sink;
    return sink;
}

void logError(const QString& message) {
    const QString line = QStringLiteral("[%1] %2").arg(QLatin1String(kLogCategory), message);
    if (logSink()) {
        logSink()(LOG_ERR, line);
        return;
    }
    // Opened only around the write, so whoever else logs from this process keeps
    // their own identifier.
    openlog(kLogIdentifier, LOG_PID, LOG_USER);
    syslog(LOG_ERR, "%s", line.toUtf8().constData());
    closelog();
}

QString describe(const std::error_code& error) {
    return QString::fromStdString(error.message());
}

// Desktop-entry booleans as the session's key-file reader accepts them.
bool isTrue(const QString& value) {
    return value == u"true" || value == u"1";
}
bool isFalse(const QString& value) {
    return value == u"false" || value == u"0";
}

// Each returns a description of the failure, or nothing when it worked.
std::optional<QString> registerEntry() {
    const QString path = autostartEntryPath();
    const QString folder = QFileInfo(path).path();
    std::error_code error;
    std::filesystem::create_directories(QFile::encodeName(folder).toStdString(), error);
    if (error) {
        return QStringLiteral("cannot create %1: %2").arg(folder, describe(error));
    }
    // Written beside the entry and renamed over it, so the session never reads half an entry.
    const QByteArray text = entryText(QCoreApplication::applicationFilePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) < 0 || !file.commit()) {
        return QStringLiteral("cannot write %1: %2").arg(path, file.errorString());
    }
    return std::nullopt;
}

std::optional<QString> unregisterEntry() {
    const QString path = autostartEntryPath();
    if (::unlink(QFile::encodeName(path).constData()) == 0) {
        return std::nullopt;
    }
    const int cause = errno;
    // An entry that is not there (not even its folder) is already unregistered.
    if (cause == ENOENT || cause == ENOTDIR) {
        return std::nullopt;
    }
    return QStringLiteral("cannot remove %1: %2")
        .arg(path, describe(std::error_code(cause, std::generic_category())));
}

}  // namespace

QString autostartEntryPath() {
    QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    // A relative value is invalid and ignored.
    if (configHome.isEmpty() || QFileInfo(configHome).isRelative()) {
        configHome = QFile::decodeName(qgetenv("HOME")) + QStringLiteral("/.config");
    }
    return configHome + QStringLiteral("/autostart/") + QLatin1String(kEntryFileName);
}

QByteArray entryText(const QString& programPath) {
    return QStringLiteral(
               "[Desktop Entry]\n"
               "Type=Application\n"
               "Name=brisvane\n"
               "Exec=%1\n"
               "X-GNOME-Autostart-enabled=true\n")
        .arg(DesktopEntry::execValue(programPath))
        .toUtf8();
}

bool isEnabled() {
    const QString path = autostartEntryPath();
    // Anything but a regular file reads as off, and a pipe there never blocks the reader.
    if (!QFileInfo(path).isFile()) {
        return false;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const auto keys = DesktopEntry::mainGroup(file.readAll());
    return keys && keys->value(QStringLiteral("Type")) == u"Application" &&
           !keys->value(QStringLiteral("Exec")).isEmpty() &&
           !isTrue(keys->value(QStringLiteral("Hidden"))) &&
           !isFalse(keys->value(QStringLiteral("X-GNOME-Autostart-enabled")));
}

void setEnabled(bool enabled) {
    if (!enabled) {
        if (const auto failure = unregisterEntry()) {
            logError(QStringLiteral("Failed to disable launch at login: %1").arg(*failure));
        }
        return;
    }
    if (isEnabled()) {
        (void)unregisterEntry();  // a failure here is ignored: registering follows anyway
    }
    if (const auto failure = registerEntry()) {
        logError(QStringLiteral("Failed to enable launch at login: %1").arg(*failure));
    }
}

void setLogSinkForTesting(LogSink sink) {
    logSink() = std::move(sink);
}

bool Observable::isEnabled() const {
    return LaunchAtLogin::isEnabled();
}

void Observable::setEnabled(bool enabled) {
    LaunchAtLogin::setEnabled(enabled);
}

Observable& observable() {
    static Observable shared;
    return shared;
}

}  // namespace LaunchAtLogin
