#pragma once

// Whether the application starts when the user logs in, kept as the user's XDG
// autostart entry: the entry is the only state, nothing else is stored. The switch
// views (LaunchAtLogin::Toggle, in app/views/) bind to one shared observable object.

#include <QByteArray>
#include <QObject>
#include <QString>
#include <functional>

namespace LaunchAtLogin {

// True exactly when the user's autostart entry exists, is a desktop entry of type
// Application with an Exec= line, and is neither hidden nor switched off.
bool isEnabled();

// Writes or removes the autostart entry. Switching on always writes a fresh entry,
// removing an active one first. Never throws: a failure is one error entry in the
// system log, and the entry is left as the file system left it.
void setEnabled(bool enabled);

// $XDG_CONFIG_HOME/autostart/app.brisvane.Brisvane.desktop, ~/.config by default.
QString autostartEntryPath();

// The entry setEnabled(true) writes to start the program at that path.
QByteArray entryText(const QString& programPath);

// Receives each log entry (syslog priority, the line with its category); by default
// the entries go to syslog(3) under the identifier "app.brisvane.Brisvane.LaunchAtLogin".
using LogSink = std::function<void(int priority, const QString& message)>;
// An empty function restores syslog.
void setLogSinkForTesting(LogSink sink);

class Observable : public QObject {
    Q_OBJECT
    // No change signal, deliberately: the switch that sets the value already shows it.
    Q_PROPERTY(bool isEnabled READ isEnabled WRITE setEnabled)

public:
    using QObject::QObject;

    bool isEnabled() const;
    void setEnabled(bool enabled);
};

// The one observable every Toggle binds to.
Observable& observable();

}  // namespace LaunchAtLogin
