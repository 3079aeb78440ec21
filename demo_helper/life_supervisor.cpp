#include "life_supervisor.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

namespace {

// How often the parent is compared with -pid. The kernel's death signal covers the
// usual case at once; this catches a parent that was replaced before we could ask.
constexpr int kParentCheckMilliseconds = 200;

sigset_t terminationSignals(bool stubborn) {
    sigset_t signals;
    sigemptyset(&signals);
    if (!stubborn) {
        sigaddset(&signals, SIGTERM);
    }
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    return signals;
}

}  // namespace

LifeSupervisor::LifeSupervisor(std::optional<pid_t> parentPid, bool stubborn)
    : parentPid_(stubborn ? std::nullopt : parentPid) {
    const sigset_t signals = terminationSignals(stubborn);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signalFd_ = signalfd(-1, &signals, SFD_CLOEXEC);
    wakeFd_ = eventfd(0, EFD_CLOEXEC);
    if (stubborn) {
        std::signal(SIGTERM, SIG_IGN);
    } else {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
    }
}

LifeSupervisor::~LifeSupervisor() {
    close(wakeFd_);
    close(signalFd_);
}

void LifeSupervisor::requestEnd() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(wakeFd_, &one, sizeof one);
}

bool LifeSupervisor::parentIsGone() const {
    return parentPid_ && getppid() != *parentPid_;
}

void LifeSupervisor::waitForEnd() {
    pollfd watched[] = {{signalFd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    // The parent may have died before the death signal was asked for.
    while (!parentIsGone()) {
        const int ready = poll(watched, 2, kParentCheckMilliseconds);
        if (ready > 0 || (ready < 0 && errno != EINTR)) {
            return;
        }
    }
}
