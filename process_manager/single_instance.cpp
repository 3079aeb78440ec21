#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "diagnostics/diagnostics.h"
#include "host_facts.h"
#include "instance_activation.h"

namespace {

// Long enough for a copy in the middle of its start to put its panel on the bus,
// short enough that a copy that never answers does not keep this one waiting.
constexpr std::chrono::seconds kActivationPatience{2};

}  // namespace

QString PrivateTempFolder(const QString& tempFolder) {
    const QString folder = QDir(tempFolder).filePath(QStringLiteral("brisvane-%1").arg(::getuid()));
    const QByteArray name = QFile::encodeName(folder);
    if (::mkdir(name.constData(), 0700) == -1 && errno != EEXIST) {
        return {};
    }
    // Anyone may have made it first, as a folder of their own or a link to one.
    struct stat status = {};
    if (::lstat(name.constData(), &status) == -1 || !S_ISDIR(status.st_mode) ||
        status.st_uid != ::getuid()) {
        return {};
    }
    if ((status.st_mode & 077) != 0 && ::chmod(name.constData(), 0700) == -1) {
        return {};
    }
    return folder;
}

QString InstanceLockPath() {
    QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (folder.isEmpty()) {
        folder = PrivateTempFolder(QDir::tempPath());
        if (folder.isEmpty()) {
            return {};
        }
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
        Diagnostics::printLine(QStringLiteral("instance lock error: ") + std::strerror(errno));
        return true;
    }
    while (::flock(fd, LOCK_EX | LOCK_NB) == -1) {
        if (errno == EINTR) {
            continue;
        }
        const bool heldElsewhere = errno == EWOULDBLOCK;
        if (!heldElsewhere) {
            Diagnostics::printLine(QStringLiteral("instance lock error: ") + std::strerror(errno));
        }
        ::close(fd);
        return !heldElsewhere;
    }
    return true;
}

void ExitAppIfAlreadyOpen() {
    const QString lockPath = InstanceLockPath();
    if (lockPath.isEmpty()) {
        // A lock where another user could hold it would let them keep brisvane from
        // starting; running unguarded is the lesser harm.
        Diagnostics::printLine("instance lock error: no folder of this user's own for the lock");
        return;
    }
    if (AcquireInstanceLock(lockPath)) {
        // Taken together with the lock, so that a second start finds the name from the
        // first moment on.
        ClaimApplicationBusName();
        return;
    }
    Diagnostics::printLine("Application already opened.  Exiting ...");
    ActivateRunningInstance(kActivationPatience);
    // Threads such as the transport's are already running at this point of the
    // start-up; leave without running destructors under their feet.
    std::_Exit(0);
}
