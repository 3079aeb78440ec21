#include "message_timestamps.h"

#include <QByteArray>
#include <algorithm>
#include <chrono>
#include <thread>

namespace {

constexpr std::int64_t kFaultOffsetMilliseconds = 50;

}  // namespace

RequestFreshness::RequestFreshness(std::int64_t windowMilliseconds) : window_(windowMilliseconds) {}

bool RequestFreshness::admit(std::int64_t timestamp, const QString& ciphertext, std::int64_t now) {
    if (timestamp < now - window_ || timestamp > now + window_) {
        return false;
    }
    std::lock_guard guard(lock_);
    // Forget what has left the window: a replay of it would now be refused as stale.
    std::erase_if(seen_, [&](const Seen& seen) { return seen.timestamp < now - window_; });
    const bool replayed = std::any_of(seen_.begin(), seen_.end(), [&](const Seen& seen) {
        return seen.ciphertext == ciphertext;
    });
    if (replayed) {
        return false;
    }
    seen_.push_back({timestamp, ciphertext});
    return true;
}

AnswerClock::AnswerClock(TimestampFault fault, TimestampSource now)
    : fault_(fault), now_(std::move(now)) {}

std::int64_t AnswerClock::next() {
    std::lock_guard guard(lock_);
    std::int64_t timestamp = now_();
    switch (fault_) {
        case TimestampFault::stale:
            timestamp -= kFaultOffsetMilliseconds;
            break;
        case TimestampFault::future:
            timestamp += kFaultOffsetMilliseconds;
            break;
        case TimestampFault::repeat:
            timestamp = last_.value_or(timestamp);
            break;
        case TimestampFault::none:
            while (last_ && timestamp <= *last_) {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
                timestamp = now_();
            }
            break;
    }
    last_ = timestamp;
    return timestamp;
}

QByteArray TimestampData(std::int64_t timestamp) {
    return QByteArray::number(timestamp);
}
