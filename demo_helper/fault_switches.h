#pragma once

// Faults the demo helper injects for tests, read once from its own environment.
// The variables and what each does are listed in fault_switches.cpp.

#include <QString>
#include <chrono>
#include <cstdint>
#include <optional>

enum class TimestampFault : std::uint8_t {
    none,
    stale,   // sealed 50 ms in the past
    future,  // sealed 50 ms ahead
    repeat,  // the previous answer's timestamp again
};

struct FaultSwitches {
    std::chrono::milliseconds answerDelay{0};
    int httpStatus = 200;
    TimestampFault timestampFault = TimestampFault::none;
    bool garbageBody = false;
    QString badKeyBlockMarker;  // empty: always the good block
    std::optional<std::int64_t> exitAfterAnswers;
    bool silent = false;
    bool ignoreTermination = false;
    QString openerProgram;  // what opens folders and web pages
    // Say on standard output when the first pings have been answered.
    bool announceAnswers = false;
    // Requests the helper mistreats on the wire, in this order: the first heldRequests,
    // then the next oversizedAnswers, then the next trickledAnswers.
    std::int64_t heldRequests = 0;
    std::int64_t oversizedAnswers = 0;
    std::int64_t trickledAnswers = 0;

    static FaultSwitches fromEnvironment();
};
