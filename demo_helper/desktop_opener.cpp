#include "desktop_opener.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <QFile>
#include <cerrno>
#include <csignal>
#include <thread>

extern char** environ;

namespace {

// Undoes what the helper set up for itself: the blocked termination signals and an
// ignored SIGPIPE would otherwise be inherited by the opener and everything it runs.
struct CleanSpawnAttributes {
    CleanSpawnAttributes() {
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

        // The helper's standard output is the application's pipe; keep the opener's
        // chatter out of it.
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    }
    ~CleanSpawnAttributes() {
        posix_spawn_file_actions_destroy(&files);
        posix_spawnattr_destroy(&attributes);
    }
    CleanSpawnAttributes(const CleanSpawnAttributes&) = delete;
    CleanSpawnAttributes& operator=(const CleanSpawnAttributes&) = delete;

    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t files;
};

}  // namespace

void DesktopOpener::open(const QString& target) const {
    QByteArray program = QFile::encodeName(program_);
    QByteArray argument = QFile::encodeName(target);
    char* argv[] = {program.data(), argument.data(), nullptr};

    const CleanSpawnAttributes spawn;
    pid_t pid = 0;
    if (posix_spawnp(&pid, program.constData(), &spawn.files, &spawn.attributes, argv, environ) !=
        0) {
        return;
    }
    // Reap it whenever it ends, so no zombie stays behind; the opener may live long
    // (a browser started by it), and nobody needs its status.
    std::thread([pid] {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }).detach();
}
