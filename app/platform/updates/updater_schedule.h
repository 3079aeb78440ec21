#pragma once

// The application's own update schedule on systems that check daily.

#include <QObject>
#include <QTimer>

class Updater;

inline constexpr int kDailyUpdateCheckIntervalMs = 86'400 * 1000;

// Turns both preferences back on (downloads first, then checks), so every launch restores
// them whatever the user chose last time; checks once at once; and returns the repeating
// one-day timer, owned by parent, whose every tick is dailyUpdateCheck.
QTimer* StartScheduledUpdateChecks(Updater& updater, QObject* parent);

// Prints "Check for sparkle update", then checks silently unless a session is under way.
void dailyUpdateCheck(Updater& updater);
