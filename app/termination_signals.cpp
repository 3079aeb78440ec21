#include "termination_signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <cerrno>
#include <csignal>

namespace {

// A handler may do next to nothing; it only wakes the event loop through this pipe.
int wakeWriteEnd = -1;

void wakeEventLoop(int) {
    const int savedErrno = errno;
    const char signalled = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeWriteEnd, &signalled, 1);
    errno = savedErrno;
}

}  // namespace

void QuitOnTerminationSignals() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) == -1) {
        return;  // the default action, ending at once, is what remains
    }
    wakeWriteEnd = ends[1];
    auto* notifier =
        new QSocketNotifier(ends[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [readEnd = ends[0]] {
        char drained[16];
        while (::read(readEnd, drained, sizeof drained) > 0) {
        }
        QCoreApplication::quit();
    });

    struct sigaction action = {};
    action.sa_handler = wakeEventLoop;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(signal, &action, nullptr);
    }
}
