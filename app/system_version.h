#pragma once

// The one host fact that picks between the two behaviours of the application:
// newer systems restart the helper, switch on launch at login and check for
// updates daily; older ones run a short-lived session instead.

struct SystemVersion {
    int major = 0;
    int minor = 0;
    int patch = 0;

    bool isAtLeast(int atLeastMajor, int atLeastMinor, int atLeastPatch) const {
        if (major != atLeastMajor) {
            return major > atLeastMajor;
        }
        if (minor != atLeastMinor) {
            return minor > atLeastMinor;
        }
        return patch >= atLeastPatch;
    }

    // Every Linux desktop offers what the newer path needs (a tray, autostart,
    // a way to update), so the running system always counts as 13.0.0.
    static SystemVersion running() { return {13, 0, 0}; }
};
