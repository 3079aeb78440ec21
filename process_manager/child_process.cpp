#include "child_process.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QByteArray>
#include <QFile>
#include <cerrno>
#include <csignal>
#include <vector>

namespace {

// The child starts with no signal blocked and every signal at its default action,
// whatever the spawning thread had set up (a blocked or ignored SIGTERM would make
// the helper impossible to stop).
class SpawnAttributes {
public:
    SpawnAttributes() {
        error_ = posix_spawnattr_init(&attributes_);
        if (error_ != 0) {
            return;
        }
        initialised_ = true;
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        error_ = posix_spawnattr_setsigmask(&attributes_, &none);
        if (error_ == 0) {
            error_ = posix_spawnattr_setsigdefault(&attributes_, &all);
        }
        if (error_ == 0) {
            error_ = posix_spawnattr_setflags(&attributes_,
                                              POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        }
    }
    ~SpawnAttributes() {
        if (initialised_) {
            posix_spawnattr_destroy(&attributes_);
        }
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    int error() const { return error_; }
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
    bool initialised_ = false;
    int error_ = 0;
};

class StandardOutputRedirection {
public:
    explicit StandardOutputRedirection(int standardOutputFd) {
        error_ = posix_spawn_file_actions_init(&actions_);
        if (error_ != 0) {
            return;
        }
        initialised_ = true;
        // dup2 clears close-on-exec on the child's copy only; the pipe's own
        // descriptors stay close-on-exec and never reach the helper.
        error_ = posix_spawn_file_actions_adddup2(&actions_, standardOutputFd, STDOUT_FILENO);
    }
    ~StandardOutputRedirection() {
        if (initialised_) {
            posix_spawn_file_actions_destroy(&actions_);
        }
    }
    StandardOutputRedirection(const StandardOutputRedirection&) = delete;
    StandardOutputRedirection& operator=(const StandardOutputRedirection&) = delete;

    int error() const { return error_; }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
    bool initialised_ = false;
    int error_ = 0;
};

}  // namespace

std::error_code SpawnChild(const QString& path, const QStringList& arguments, int standardOutputFd,
                           pid_t& pid) {
    std::vector<QByteArray> texts;
    texts.reserve(static_cast<std::size_t>(arguments.size()) + 1);
    texts.push_back(QFile::encodeName(path));
    for (const QString& argument : arguments) {
        texts.push_back(argument.toUtf8());
    }
    std::vector<char*> argv;
    argv.reserve(texts.size() + 1);
    for (QByteArray& text : texts) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);

    const SpawnAttributes attributes;
    const StandardOutputRedirection redirection(standardOutputFd);
    int error = attributes.error() != 0 ? attributes.error() : redirection.error();
    if (error == 0) {
        error = posix_spawn(&pid, texts.front().constData(), redirection.get(), attributes.get(),
                            argv.data(), environ);
    }
    return error == 0 ? std::error_code() : std::error_code(error, std::system_category());
}

bool WaitForExit(pid_t pid) {
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) == -1) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

void ReapChild(pid_t pid) {
    while (waitpid(pid, nullptr, 0) == -1 && errno == EINTR) {
    }
}
