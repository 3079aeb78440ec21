#pragma once

// Decides when the helper's life ends: on SIGTERM, SIGINT or SIGHUP, when the
// application that started it is gone, or when the helper itself asks to stop.

#include <sys/types.h>

#include <optional>

class LifeSupervisor {
public:
    // Blocks the termination signals for the calling thread and every thread started
    // from it afterwards, so construct it before any other thread. Asks the kernel for
    // SIGTERM when the parent dies, and remembers `parentPid` to compare with the
    // parent process from time to time. A stubborn supervisor (a test's fault) ignores
    // SIGTERM and the parent's end, and ends only on SIGINT, SIGHUP or SIGKILL.
    explicit LifeSupervisor(std::optional<pid_t> parentPid, bool stubborn = false);
    ~LifeSupervisor();

    LifeSupervisor(const LifeSupervisor&) = delete;
    LifeSupervisor& operator=(const LifeSupervisor&) = delete;

    // From any thread; waitForEnd returns soon after.
    void requestEnd();

    // Blocks until a termination signal, the parent's death or requestEnd.
    void waitForEnd();

private:
    bool parentIsGone() const;

    std::optional<pid_t> parentPid_;
    int signalFd_ = -1;
    int wakeFd_ = -1;
};
