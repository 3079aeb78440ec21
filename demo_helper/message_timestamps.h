#pragma once

// The timestamps that ride in every envelope as its additional data: checking those
// of requests, choosing those of answers.

#include <QByteArray>
#include <QSet>
#include <QString>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

#include "fault_switches.h"

using TimestampSource = std::function<std::int64_t()>;

// Admits a request sealed within `window` milliseconds of now, either way, that has
// not been seen before. Requests may arrive out of order (the application's views
// post while its ping loop runs), so it refuses replays rather than demanding that
// timestamps increase.
class RequestFreshness {
public:
    explicit RequestFreshness(std::int64_t windowMilliseconds = 5000);

    // `identity` tells the envelope from every other; it differs for every sealing.
    bool admit(std::int64_t timestamp, const QByteArray& identity, std::int64_t now);

private:
    struct Seen {
        std::int64_t timestamp;
        QByteArray identity;
    };

    const std::int64_t window_;
    std::mutex lock_;
    std::deque<Seen> seen_;            // only what is still inside the window, oldest first
    QSet<QByteArray> seenIdentities_;  // the same, to look up
};

// Timestamps for answers. The application accepts an answer only if its timestamp is
// larger than every one it accepted before and at most 10 ms old, so each one is
// taken right before sealing and, when two answers fall into the same millisecond,
// the second waits for the next one rather than repeat it. The timestamp fault
// switches bend this on purpose.
class AnswerClock {
public:
    explicit AnswerClock(TimestampFault fault, TimestampSource now);

    std::int64_t next();

private:
    const TimestampFault fault_;
    const TimestampSource now_;
    std::mutex lock_;
    std::optional<std::int64_t> last_;
};

// The additional data that carries a timestamp: its decimal text.
QByteArray TimestampData(std::int64_t timestamp);
