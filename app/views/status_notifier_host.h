#pragma once

// Whether a status-notifier host (the tray of most Wayland desktops) is there to show
// the tray icon. Qt settles once per process, at the first tray icon it makes,
// whether to speak that protocol, and never asks again; so on Wayland, where it is
// the only tray there is, the first icon waits until a host has registered.

#include <QDBusServiceWatcher>
#include <QObject>

class StatusNotifierHostWatch : public QObject {
    Q_OBJECT

public:
    explicit StatusNotifierHostWatch(QObject* parent = nullptr);

public slots:
    // Asks the session's status-notifier watcher; the answer comes as answered(). It
    // is asked again by itself whenever a watcher or a host appears.
    void ask();

signals:
    void answered(bool hostRegistered);

private:
    QDBusServiceWatcher watcherAppears_;
};

// True on a Wayland session, where the compositor places every top-level window and
// no client may raise its own.
bool IsWaylandSession();
