#pragma once

// What one exchange with the helper's HTTP endpoint may take, and why it may end without an
// answer.

#include <QtGlobal>
#include <chrono>
#include <cstdint>
#include <system_error>
#include <type_traits>

enum class TransportError : std::uint8_t {
    // Zero means no error to std::error_code, so the cases start at one.
    connectionFailed = 1,  // no connection could be made (refused, no such host, ...)
    connectionLost,        // the helper closed or reset the connection before its answer was whole
    timedOut,              // no whole answer within the exchange's time limit
    answerTooLarge,        // the answer announced or delivered more than the size limit
    malformedAnswer,       // what came back is not an HTTP/1.1 answer this client can read
    cancelled,             // the transport was shut down while the exchange was under way
};

const std::error_category& TransportErrorCategory();
std::error_code make_error_code(TransportError error);

template <>
struct std::is_error_code_enum<TransportError> : std::true_type {};

struct HttpLimits {
    // From the first byte sent to the last byte of the answer, connecting included.
    std::chrono::milliseconds timeLimit;
    // Of the answer's body; a larger one is refused as soon as it is announced or exceeded.
    qsizetype maxBodyBytes;
};
