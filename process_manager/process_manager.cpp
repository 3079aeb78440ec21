#include "process_manager.h"

#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <cerrno>
#include <csignal>
#include <string>

#include "child_process.h"
#include "diagnostics/diagnostics.h"
#include "output_reader.h"
#include "unique_fd.h"

namespace {

class ProcessManagerErrorCategoryImpl final : public std::error_category {
public:
    const char* name() const noexcept override { return "ProcessManagerError"; }
    std::string message(int value) const override {
        switch (static_cast<ProcessManagerError>(value)) {
            case ProcessManagerError::executableNotFound:
                return "executable not found";
        }
        return "unknown process manager error";
    }
};

std::error_code lastError() {
    return {errno, std::system_category()};
}

// Closes the pipe's read end, reporting a failure on the console; the run goes on.
void closeReadEnd(int fd) {
    if (::close(fd) == -1) {
        Diagnostics::printLine("task pipe exit error: " + lastError().message());
    }
}

}  // namespace

const std::error_category& ProcessManagerErrorCategory() {
    static const ProcessManagerErrorCategoryImpl category;
    return category;
}

std::error_code make_error_code(ProcessManagerError error) {
    return {static_cast<int>(error), ProcessManagerErrorCategory()};
}

ProcessManager::ProcessManager(QString resourceDir, QObject* parent)
    : QObject(parent), resourceDir_(std::move(resourceDir)) {}

ProcessManager::~ProcessManager() {
    stopWithin(defaultStopGrace);
}

QString ProcessManager::defaultResourceDir() {
    return QDir::cleanPath(QCoreApplication::applicationDirPath() +
                           QStringLiteral("/../libexec/brisvane"));
}

ProcessTask ProcessManager::task() const {
    std::lock_guard lock(taskLock_);
    return task_;
}

QStringList ProcessManager::arguments() const {
    return arguments_;
}

void ProcessManager::cancel() {
    isCancelled_ = true;
    terminateCurrentTask();
}

void ProcessManager::cancelNow() {
    isCancelled_ = true;
    terminateIfRunning();
}

void ProcessManager::stopWithin(std::chrono::milliseconds grace) {
    cancelNow();
    std::unique_lock lock(taskLock_);
    const auto loopsEnded = [this] { return activeLoops_ == 0; };
    if (loopEnded_.wait_for(lock, grace, loopsEnded)) {
        return;
    }
    if (task_.running) {
        ::kill(task_.pid, SIGKILL);
    }
    // Nothing outlives SIGKILL, and a cancelled loop starts no new child.
    loopEnded_.wait(lock, loopsEnded);
}

void ProcessManager::terminateCurrentTask() {
    QMetaObject::invokeMethod(
        this, [this] { terminateIfRunning(); }, Qt::QueuedConnection);
}

void ProcessManager::addArgument(const QString& value) {
    arguments_.append(value);
}

void ProcessManager::addArgument(const QString& name, const QString& value) {
    arguments_.append(QLatin1Char('-') + name + QLatin1Char('=') + value);
}

void ProcessManager::addPIDAsArgument(const QString& name) {
    addArgument(name, static_cast<std::int32_t>(::getpid()));
}

void ProcessManager::RunProces(const QString& binName, bool withRetry,
                               StandardOutput standardOutput,
                               TaskExitNotification taskExitNotification) {
    std::optional<QString> binURL;
    const QFileInfo resource(QDir(resourceDir_), binName);
    if (!binName.isEmpty() && resource.isFile()) {
        binURL = resource.absoluteFilePath();
    }
    RunProces(binURL, withRetry, std::move(standardOutput), std::move(taskExitNotification));
}

void ProcessManager::RunProces(const std::optional<QString>& binURL, bool withRetry,
                               StandardOutput standardOutput,
                               TaskExitNotification taskExitNotification) {
    {
        std::lock_guard lock(taskLock_);
        ++activeLoops_;
    }
    bool finished = false;
    while (!finished) {
        if (isCancelled_) {
            break;
        }
        if (!withRetry) {
            finished = true;
        }
        runTask(binURL, standardOutput, taskExitNotification);
    }
    // Notified under the lock: once the destructor sees zero it may free the
    // condition variable, so nothing of this object may be touched after unlocking.
    std::lock_guard lock(taskLock_);
    --activeLoops_;
    loopEnded_.notify_all();
}

void ProcessManager::runTask(const std::optional<QString>& binURL,
                             const StandardOutput& standardOutput,
                             const TaskExitNotification& taskExitNotification) {
    replaceTask();
    if (!binURL) {
        taskExitNotification(make_error_code(ProcessManagerError::executableNotFound));
        return;
    }

    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) == -1) {
        taskExitNotification(lastError());
        return;
    }
    const int readEnd = ends[0];
    UniqueFd writeEnd(ends[1]);
    // Non-blocking on the reader's side only, so that draining after the child has
    // gone stops at an empty pipe.
    ::fcntl(readEnd, F_SETFL, ::fcntl(readEnd, F_GETFL) | O_NONBLOCK);

    std::error_code launchError;
    try {
        OutputReader reader(readEnd, standardOutput);
        pid_t pid = 0;
        launchError = SpawnChild(*binURL, arguments_, writeEnd.get(), pid);
        writeEnd.reset();  // the child holds the only write end now
        if (!launchError) {
            markLaunched(pid);
            const bool waitable = WaitForExit(pid);
            markExited();
            if (waitable) {
                ReapChild(pid);
            }
            reader.finish();
        }
    } catch (const std::system_error& error) {
        launchError = error.code();
    }
    closeReadEnd(readEnd);

    if (launchError) {
        taskExitNotification(launchError);
        return;
    }
    QMetaObject::invokeMethod(
        this, [taskExitNotification] { taskExitNotification(std::nullopt); }, Qt::QueuedConnection);
}

void ProcessManager::replaceTask() {
    {
        std::lock_guard lock(taskLock_);
        task_ = ProcessTask{};
    }
    emit taskChanged();
}

void ProcessManager::markLaunched(pid_t pid) {
    std::lock_guard lock(taskLock_);
    task_ = ProcessTask{.pid = pid, .running = true};
    // A cancel whose terminate step ran just before this launch found nothing to
    // stop; end the new child here so that a cancelled manager runs nothing. It has
    // done nothing yet, and may be one that would ignore SIGTERM.
    if (isCancelled_) {
        ::kill(pid, SIGKILL);
    }
}

void ProcessManager::markExited() {
    std::lock_guard lock(taskLock_);
    task_.running = false;
}

void ProcessManager::terminateIfRunning() {
    std::lock_guard lock(taskLock_);
    if (task_.running) {
        ::kill(task_.pid, SIGTERM);
    }
}
