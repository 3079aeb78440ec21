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
#include <optional>

#include "helper_answer.h"

class RequestLoopLink {
public:
    using Clock = std::chrono::steady_clock;

    // From the GUI thread.
    // Each folder's JSON, in the model's order, for the pings from now on.
    void setFolders(const QList<QByteArray>& folderJSON);
    // Something the model publishes changed: the next answer is passed on even if it repeats.
    void modelChanged() { revision_.fetch_add(1, std::memory_order_relaxed); }
    // Counts those changes.
    std::uint64_t revision() const { return revision_.load(std::memory_order_relaxed); }
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
    // The answer the model must see, as `read` reads it from the text, or nothing. Nothing
    // only for the very text passed on last time, with nothing changed since and nothing to
    // log, and such a text is not read again: an answer of no known shape or type is passed
    // on every time.
    template <typename Read>
    std::optional<HelperAnswer> answerToPassOn(const QByteArray& text, Read read) {
        const std::uint64_t now = revision();
        if (!lastPassedOnLogs_ && !silenceShown_.load(std::memory_order_relaxed) &&
            now == revisionPassedOn_ && text == lastPassedOn_) {
            return std::nullopt;
        }
        HelperAnswer answer = read(text);
        lastPassedOnLogs_ = isLogged(answer);
        lastPassedOn_ = text;
        revisionPassedOn_ = now;
        return answer;
    }

private:
    static bool isLogged(const HelperAnswer& answer);

    std::mutex lock_;
    QList<QByteArray> folderJSON_;  // guarded by lock_

    // The transport thread's own.
    QList<QByteArray> pingFolders_;
    QByteArray ping_;
    QByteArray lastPassedOn_;
    bool lastPassedOnLogs_ = false;
    std::uint64_t revisionPassedOn_ = 0;

    std::atomic<std::uint64_t> revision_ = 1;
    std::atomic<bool> silenceShown_ = false;
    std::atomic<Clock::rep> lastHeard_ = Clock::now().time_since_epoch().count();
};
