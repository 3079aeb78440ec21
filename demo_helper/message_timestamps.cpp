#include "message_timestamps.h"

#include <QByteArray>
#include <algorithm>
#include <chrono>
#include <thread>

namespace {

constexpr std::int64_t kFaultOffsetMilliseconds = 50;

}  // namespace

RequestFreshness::RequestFreshness(std::int64_t windowMilliseconds) : window_(windowMilliseconds) {}

bool RequestFreshness::admit(std::int64_t timestamp, const QByteArray& identity, std::int64_t now) {
    if (timestamp < now - window_ || timestamp > now + window_) {
        return false;
    }
    std::lock_guard guard(lock_);
    // Forget what has left the window: a replay of it would now be refused as stale. The
    // list is kept in timestamp order, so what has left is at the front.
    while (!seen_.empty() && seen_.front().timestamp < now - window_) {
        seenIdentities_.remove(seen_.front().identity);
        seen_.pop_front();
    }
    if (seenIdentities_.contains(identity)) {
        return false;
    }
    // Requests come in nearly in order: the place is found from the back.
    const auto later = std::find_if(seen_.rbegin(), seen_.rend(), [&](const Seen& seen) {
                           return seen.timestamp <= timestamp;
                       }).base();
    seen_.insert(later, {timestamp, identity});
    seenIdentities_.insert(identity);
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
