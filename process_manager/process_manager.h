#pragma once

// Runs the helper executable as a child process, hands on its standard output
// chunk by chunk, and starts it again each time it ends when asked to.

#include <sys/types.h>

#include <QObject>
#include <QString>
#include <QStringList>
#include <atomic>
#include <chrono>
#include <concepts>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <system_error>
#include <type_traits>

enum class ProcessManagerError : std::uint8_t {
    executableNotFound,
};

const std::error_category& ProcessManagerErrorCategory();
std::error_code make_error_code(ProcessManagerError error);

template <>
struct std::is_error_code_enum<ProcessManagerError> : std::true_type {};

// The child of the current (or last) run.
struct ProcessTask {
    pid_t pid = 0;         // 0 until launched
    bool running = false;  // launched and not yet reaped
};

class ProcessManager : public QObject {
    Q_OBJECT

public:
    using StandardOutput = std::function<void(const QString& chunk)>;
    using TaskExitNotification = std::function<void(std::optional<std::error_code> error)>;

    // resourceDir: where RunProces(binName, ...) looks executables up by name.
    explicit ProcessManager(QString resourceDir = defaultResourceDir(), QObject* parent = nullptr);
    // Cancels, sends SIGTERM to a running child at once and waits until a run loop
    // still in progress has returned, so no child or reader thread outlives it.
    ~ProcessManager() override;

    // The application's resources folder, ../libexec/brisvane/ beside the executable.
    static QString defaultResourceDir();

    ProcessTask task() const;
    QStringList arguments() const;

    // Stops the retry loop before its next run and ends the current child.
    void cancel();
    // Sends SIGTERM to the current child, on the GUI thread, if it is running then.
    void terminateCurrentTask();
    // cancel(), but sends SIGTERM from the calling thread at once. For shutting down
    // from the GUI thread while it joins the thread blocked in RunProces: a queued
    // terminate would never run there.
    void cancelNow();
    // cancelNow(), then waits until the run loop has returned; a child that is still
    // there after grace gets SIGKILL. A helper that ignores SIGTERM must not keep the
    // application, and with it a desktop logout, waiting.
    void stopWithin(std::chrono::milliseconds grace);
    static constexpr std::chrono::seconds defaultStopGrace{2};

    void addArgument(const QString& value);
    template <typename T>
    requires std::integral<T>
    void addArgument(T value) { addArgument(QString::number(value)); }
    // Adds the one element -name=value.
    void addArgument(const QString& name, const QString& value);
    template <typename T>
    requires std::integral<T>
    void addArgument(const QString& name, T value) { addArgument(name, QString::number(value)); }
    void addPIDAsArgument(const QString& name);

    // Both forms block until the run loop ends; call them from a background thread.
    // standardOutput runs on the pipe reader's thread. taskExitNotification runs on
    // the GUI thread after a child exits, and synchronously on the calling thread
    // when the run cannot start.
    void RunProces(const QString& binName, bool withRetry, StandardOutput standardOutput,
                   TaskExitNotification taskExitNotification);
    void RunProces(const std::optional<QString>& binURL, bool withRetry,
                   StandardOutput standardOutput, TaskExitNotification taskExitNotification);

signals:
    // A new run replaced the task.
    void taskChanged();

private:
    void runTask(const std::optional<QString>& binURL, const StandardOutput& standardOutput,
                 const TaskExitNotification& taskExitNotification);
    void replaceTask();
    void markLaunched(pid_t pid);
    void markExited();
    void terminateIfRunning();

    const QString resourceDir_;
    QStringList arguments_;
    std::atomic<bool> isCancelled_ = false;
    // Guards task_ so that SIGTERM only ever reaches a pid that is still ours: the
    // run marks the task not running under it before reaping the child.
    mutable std::mutex taskLock_;
    ProcessTask task_;
    int activeLoops_ = 0;  // RunProces calls in progress, under taskLock_
    std::condition_variable loopEnded_;
};
