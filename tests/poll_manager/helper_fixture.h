#pragma once

// Runs the demo helper as a real child of a PollManager, the way the application
// does: a random loopback port, the application's key as token, supervision on a
// background thread, the helper's key learned from its output.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "poll_manager/poll_manager.h"
#include "support/scoped_environment.h"
#include "support/wait.h"

namespace testing_support {

inline QString demoHelperPath() {
    return QStringLiteral(BRISVANE_DEMO_HELPER);
}

struct HelperOptions {
    bool withRetry = true;
    double pingTimeLimit = 0;
    // Fault switches for the helper, set in its environment only.
    std::map<QByteArray, QByteArray> environment;
};

class RunningHelper {
public:
    explicit RunningHelper(HelperOptions options = {}) : options_(std::move(options)) {
        pm.processManager().addPIDAsArgument(QStringLiteral("pid"));
        pm.processManager().addArgument(QStringLiteral("token"), pm.kes().LocalPublicKey());
        port = pm.randomOpenPort(20000, 60000);
        pm.processManager().addArgument(QStringLiteral("port"), port);

        // Every run inherits the environment at spawn time, so the switches stay
        // in place for the fixture's whole life.
        environment_.set("XDG_STATE_HOME", stateHome_.path().toUtf8());
        for (const auto& [name, value] : options_.environment) {
            environment_.set(name, value);
        }

        supervision_ = std::thread([this] {
            pm.subscribeWithBinary(
                demoHelperPath(), options_.withRetry, true, options_.pingTimeLimit,
                [this] { ++pingTimeouts; },
                [this](const QString& chunk) {
                    std::lock_guard lock(outputLock_);
                    output_ += chunk;
                },
                [this](std::optional<std::error_code>) { ++exits; });
        });
    }

    ~RunningHelper() {
        pm.processManager().cancelNow();
        supervision_.join();
    }

    bool waitForKey(int timeoutMs = 10000) {
        return waitUntil([this] { return hasKey(); }, timeoutMs);
    }

    bool hasKey() const {
        try {
            return !pm.kes().ExternalPublicKey().isEmpty();
        } catch (const std::system_error&) {
            return false;
        }
    }

    QString output() const {
        std::lock_guard lock(outputLock_);
        return output_;
    }

    QFuture<QJsonValue> ping() {
        return pm.request({QStringLiteral("ping"), QString(), QString()}, port,
                          QStringLiteral("/request"));
    }

    PollManager pm;
    std::int64_t port = 0;
    std::atomic<int> pingTimeouts = 0;
    std::atomic<int> exits = 0;

private:
    HelperOptions options_;
    QTemporaryDir stateHome_;
    ScopedEnvironment environment_;
    std::thread supervision_;
    mutable std::mutex outputLock_;
    QString output_;
};

}  // namespace testing_support
