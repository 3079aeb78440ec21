#pragma once

// The fault switches that bend the HTTP exchange itself rather than what it carries: requests
// taken and never answered, answers too large to accept, answers dripped out byte by byte.

#include <httplib.h>

#include <QByteArray>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "fault_switches.h"

class WireFaults {
public:
    enum class Treatment : std::uint8_t { normal, hold, oversize, trickle };

    explicit WireFaults(const FaultSwitches& faults);

    // Counts the request and says how to treat it.
    Treatment next();
    // Blocks until release(): a held request is never answered while the helper lives.
    void hold();
    // The answer that never ends, or the body sent one byte every 10 ms.
    void oversize(httplib::Response& response);
    void trickle(httplib::Response& response, QByteArray body);
    // Lets held requests and dripping answers go, so the server can stop.
    void release();

private:
    bool waitReleased(std::chrono::milliseconds time);

    const std::int64_t holdUntil_;
    const std::int64_t oversizeUntil_;
    const std::int64_t trickleUntil_;
    std::atomic<std::int64_t> requests_{0};
    std::mutex lock_;
    std::condition_variable releasedChanged_;
    bool released_ = false;
};
