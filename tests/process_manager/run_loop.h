#pragma once

// Drives one RunProces from a background thread, as the application does, and
// records what reaches its callbacks.

#include <QtCore/qtestsupport_core.h>

#include <QCoreApplication>
#include <QStringList>
#include <atomic>
#include <functional>
#include <optional>
#include <ostream>
#include <thread>
#include <vector>

#include "process_manager/process_manager.h"

inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

// Serves GUI events until done(); false when the (generous) patience ran out.
constexpr int kPatienceMs = 120'000;
inline bool WaitFor(const std::function<bool()>& done) {
    return QTest::qWaitFor(done, kPatienceMs);
}

class RunLoop {
public:
    struct Exit {
        std::optional<std::error_code> error;
        std::thread::id thread;
    };

    RunLoop(ProcessManager& manager, std::optional<QString> bin, bool withRetry)
        : manager_(manager), thread_([this, bin, withRetry] {
              loopThread = std::this_thread::get_id();
              manager_.RunProces(
                  bin, withRetry,
                  [this](const QString& chunk) { record([this, chunk] { chunks.append(chunk); }); },
                  [this](std::optional<std::error_code> error) {
                      record([this, exit = Exit{error, std::this_thread::get_id()}] {
                          exits.push_back(exit);
                      });
                  });
              ended_ = true;
          }) {}
    ~RunLoop() {
        if (thread_.joinable()) {
            manager_.cancelNow();
            thread_.join();
        }
    }

    bool waitUntilEnded() {
        const bool ended = WaitFor([this] { return ended_.load(); });
        if (ended) {
            thread_.join();
            QCoreApplication::processEvents();  // what was queued before the loop returned
        }
        return ended;
    }

    // chunks and exits change only on the GUI thread; read loopThread once ended.
    QStringList chunks;
    std::vector<Exit> exits;
    std::thread::id loopThread;

private:
    void record(std::function<void()> change) { QMetaObject::invokeMethod(&recorder_, change); }

    ProcessManager& manager_;
    QObject recorder_;  // lives on the GUI thread; its queued changes die with it
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};
