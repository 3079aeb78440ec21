#pragma once

#include <QByteArrayView>
#include <cstdint>
#include <optional>

// Milliseconds from seconds since 1970, halves rounded away from zero. A value that is not
// finite or does not fit in 64 bits stops the program.
std::int64_t KeyExchangeTimestampFromSeconds(double seconds);

// A decimal signed 64-bit integer: an optional "-" then digits, nothing else.
std::optional<std::int64_t> KeyExchangeParseDecimal(QByteArrayView text);
