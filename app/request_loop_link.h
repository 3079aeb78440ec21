#pragma once

// What the request loop, which runs on the transport thread, shares with the model on the GUI
// thread. The loop builds each ping from the folders the model last published, and passes an
// answer on only when the model can learn something from it: at rest the helper repeats itself
// ten times a second, and a repeat applied to a model that has not changed since changes
// nothing, so it need not wake the GUI thread.

#include <QByteArray>
#include <QList>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

#include "helper_answer.h"

class RequestLoopLink {
public:
    using Clock = std::chrono::steady_clock;

    // From the GUI thread.
    // Each folder's JSON, in the model's order, for the pings from now on.
    void setFolders(const QList<QByteArray>& folderJSON);
    // Something the model publishes changed: the next answer is passed on even if it repeats.
    void modelChanged() { revision_.fetch_add(1, std::memory_order_relaxed); }
    // While the user is told the helper is silent, every answer is passed on, so that the
    // first one clears the notice.
    void setSilenceShown(bool shown) { silenceShown_.store(shown, std::memory_order_relaxed); }

    // From any thread.
    // An answer was opened, found fresh and read.
    void heard() { lastHeard_.store(Clock::now().time_since_epoch().count()); }
    Clock::time_point lastHeard() const {
        return Clock::time_point(Clock::duration(lastHeard_.load()));
    }

    // From the transport thread.
    // The JSON of the ping to send now: its data is the folders' JSON array, as text.
    QByteArray pingMessage();
    // False only for the very answer passed on last time, with nothing changed since and
    // nothing to log: an answer of no known shape or type is passed on every time.
    bool mustPassOn(const QByteArray& text, const HelperAnswer& answer);

private:
    std::mutex lock_;
    QList<QByteArray> folderJSON_;  // guarded by lock_

    // The transport thread's own.
    QList<QByteArray> pingFolders_;
    QByteArray ping_;
    QByteArray lastPassedOn_;
    std::uint64_t revisionPassedOn_ = 0;

    std::atomic<std::uint64_t> revision_ = 1;
    std::atomic<bool> silenceShown_ = false;
    std::atomic<Clock::rep> lastHeard_ = Clock::now().time_since_epoch().count();
};
