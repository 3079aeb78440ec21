#include "timestamp.h"

#include <charconv>
#include <chrono>
#include <cmath>

#include "diagnostics/diagnostics.h"
#include "key_exchange.h"
#include "records/base64.h"
#include "stops.h"

std::int64_t KeyExchangeTimestampFromSeconds(double seconds) {
    const double milliseconds = std::round(seconds * 1000.0);
    // 2^63 is exact as a double; every double below it and at or above -2^63 fits.
    constexpr double kLimit = 9223372036854775808.0;
    if (!std::isfinite(milliseconds) || milliseconds >= kLimit || milliseconds < -kLimit) {
        Diagnostics::stop(kKeyExchangeStopHeading,
                          "the current time does not fit a millisecond timestamp");
    }
    return static_cast<std::int64_t>(milliseconds);
}

std::optional<std::int64_t> KeyExchangeParseDecimal(QByteArrayView text) {
    // from_chars takes exactly an optional minus and digits, and reports overflow; no blanks,
    // no plus sign, no fraction.
    std::int64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return value;
}

std::int64_t KeyExchangeCurrentTimestamp() {
    const std::chrono::duration<double> sinceEpoch =
        std::chrono::system_clock::now().time_since_epoch();
    return KeyExchangeTimestampFromSeconds(sinceEpoch.count());
}

QString KeyExchangeCurrentTimestampString() {
    return QString::number(static_cast<qlonglong>(KeyExchangeCurrentTimestamp()));
}

QByteArray KeyExchangeCurrentTimestampData() {
    return QByteArray::number(static_cast<qlonglong>(KeyExchangeCurrentTimestamp()));
}

std::optional<std::int64_t> KeyExchangeTimestamp(const QString& additionalData) {
    const std::optional<QByteArray> bytes = Base64Decode(additionalData);
    if (!bytes) {
        return std::nullopt;
    }
    // Bytes that are not UTF-8 are not digits either, so the decimal check refuses them too.
    return KeyExchangeParseDecimal(*bytes);
}
