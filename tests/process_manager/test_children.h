#pragma once

// Shared by the process manager's tests: children to start, and a recorder that
// drives one run loop from a background thread, as the application does.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <ostream>
#include <system_error>
#include <thread>
#include <vector>

#include "process_manager/process_manager.h"

// Readable failure messages for Qt strings.
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

// Waits are generous and never asserted on: a loaded machine only makes tests slower.
constexpr int kPatienceMs = 120'000;

// Writes a /bin/sh script into dir and returns its path.
QString WriteScript(const QTemporaryDir& dir, const QString& name, const QByteArray& body,
                    bool executable = true);

// The number of entries in a folder such as /proc/self/fd.
int CountEntries(const char* folder);

class RunLoop {
public:
    struct Exit {
        std::optional<std::error_code> error;
        bool onLoopThread = false;
        bool onGuiThread = false;
    };

    explicit RunLoop(ProcessManager& manager) : manager_(manager) {}
    // Stops the manager's child at once if the loop still runs, and joins.
    ~RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    void start(std::optional<QString> binURL, bool withRetry);
    void startNamed(QString binName, bool withRetry);
    // Runs on the thread that reports the exit, after the exit is recorded.
    void setOnExit(std::function<void(std::size_t exitCount)> onExit) {
        onExit_ = std::move(onExit);
    }

    // Each processes GUI events while it waits; false when patience ran out.
    bool waitUntilEnded();
    bool waitForChunks(int count);
    bool waitForExits(std::size_t count);

    QStringList chunks() const;
    std::vector<Exit> exits() const;

private:
    void launch(std::function<void()> body);
    ProcessManager::StandardOutput recordOutput();
    ProcessManager::TaskExitNotification recordExit();

    ProcessManager& manager_;
    std::thread thread_;
    std::thread::id loopThreadId_;
    std::atomic<bool> ended_ = false;
    std::function<void(std::size_t)> onExit_;
    mutable std::mutex lock_;
    QStringList chunks_;
    std::vector<Exit> exits_;
};
