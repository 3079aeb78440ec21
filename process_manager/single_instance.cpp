#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "process_manager/host_facts.h"
#include "process_manager/instance_activation.h"

namespace {

// Long enough for a copy in the middle of its start to put its panel on the bus,
// short enough that a copy that never answers does not keep this one waiting.
constexpr std::chrono::seconds kActivationPatience{2};

}  // namespace

QString InstanceLockPath() {
    QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (folder.isEmpty()) {
        folder = QDir::tempPath();
    }
    return QDir(folder).filePath(QStringLiteral("app.brisvane.Brisvane.lock"));
}

bool AcquireInstanceLock(const QString& lockPath) {
    // The descriptor is kept open for the life of the process: the kernel drops
    // the lock when the process ends, however it ends.
    const int fd =
        ::open(QFile::encodeName(lockPath).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd == -1) {
        // Without a lock file no other copy can be found; run rather than refuse.
        std::printf("instance lock error: %s\n", std::strerror(errno));
        std::fflush(stdout);
        return true;
    }
    while (::flock(fd, LOCK_EX | LOCK_NB) == -1) {
        if (errno == EINTR) {
            continue;
        }
        const bool heldElsewhere = errno == EWOULDBLOCK;
        if (!heldElsewhere) {
            std::printf("instance lock error: %s\n", std::strerror(errno));
            std::fflush(stdout);
        }
        ::close(fd);
        return !heldElsewhere;
    }
    return true;
}

void ExitAppIfAlreadyOpen() {
    if (AcquireInstanceLock(InstanceLockPath())) {
        // Taken together with the lock, so that a second start finds the name from the
        // first moment on.
        ClaimApplicationBusName();
        return;
    }
    std::printf("Application already opened.  Exiting ...\n");
    std::fflush(stdout);
    ActivateRunningInstance(kActivationPatience);
    // Threads such as the transport's are already running at this point of the
    // start-up; leave without running destructors under their feet.
    std::_Exit(0);
}
