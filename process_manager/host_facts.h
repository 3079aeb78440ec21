#pragma once

// Facts about the host the application needs before it starts the helper.

#include <QString>
#include <cstdint>

struct UtsName {
    // The machine name the kernel reports ("x86_64", "arm64", ...).
    static QString sMachine();
    static bool isAppleSilicon();
};

QString SystemArchitecture();

// True when a listening TCP socket could be set up on the port on all IPv4
// interfaces. A port outside 0..65535 stops the program. A failed bind leaves
// its socket open, deliberately: each busy port probed costs one descriptor.
bool IsOpenPort(std::int64_t port);

// A port from [lower, upper) for which IsOpenPort was true; draws until one is.
std::int64_t RandomOpenPort(std::int64_t lower, std::int64_t upper);

// Ends this process (status 0) after printing "Application already opened.  Exiting ..."
// when another copy holds the instance lock; otherwise takes the lock for life.
void ExitAppIfAlreadyOpen();

// The same check against a given lock file; false when another process holds it.
bool AcquireInstanceLock(const QString& lockPath);
// In $XDG_RUNTIME_DIR, else in PrivateTempFolder of the temp folder; empty when neither
// is there.
QString InstanceLockPath();
// tempFolder/brisvane-<uid>, made with mode 0700 when missing; empty when it is not a
// folder this user owns (another user may have made it first, or put a link there).
QString PrivateTempFolder(const QString& tempFolder);
