#pragma once

// Waiting in tests without blocking the Qt event loop, which must keep running
// for queued calls to the GUI thread to arrive.

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFuture>
#include <QThread>
#include <functional>
#include <system_error>

namespace testing_support {

// Processes events until the condition holds or the time is up; false on time-out.
inline bool waitUntil(const std::function<bool()>& condition, int timeoutMs = 10000) {
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::usleep(200);
    }
    return true;
}

template <typename T>
bool waitFor(const QFuture<T>& future, int timeoutMs = 10000) {
    return waitUntil([&] { return future.isFinished(); }, timeoutMs);
}

// The error code a finished future failed with; an empty code when it holds a result.
template <typename T>
std::error_code errorOf(QFuture<T> future) {
    try {
        future.waitForFinished();
        (void)future.result();
    } catch (const std::system_error& error) {
        return error.code();
    }
    return {};
}

}  // namespace testing_support
