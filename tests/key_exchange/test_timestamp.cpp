#include <gtest/gtest.h>

#include <QDateTime>
#include <limits>

#include "key_exchange/key_exchange.h"

static std::optional<std::int64_t> timestampOf(const char* text) {
    return KeyExchangeTimestamp(QString::fromLatin1(QByteArray(text).toBase64()));
}

TEST(Timestamp, ReadsOnlyStrictBase64OfAStrictDecimalInteger) {
    EXPECT_EQ(timestampOf("42"), 42);
    EXPECT_EQ(timestampOf("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
    for (const char* text : {"", "-", "+42", " 42", "42\n", "4.2", "42e0", "9223372036854775808"}) {
        EXPECT_EQ(timestampOf(text), std::nullopt) << text;
    }
    EXPECT_EQ(KeyExchangeTimestamp(QStringLiteral("NDI=\n")), std::nullopt);  // "42", line feed
}

TEST(Timestamp, CurrentTimestampIsTheSystemTimeInMilliseconds) {
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    const std::int64_t now = KeyExchangeCurrentTimestamp();
    // Read from another clock and rounded to the nearest millisecond.
    EXPECT_LE(before - 1, now);
    EXPECT_LE(now, QDateTime::currentMSecsSinceEpoch() + 1);
    const auto read = timestampOf(KeyExchangeCurrentTimestampData().constData());
    ASSERT_TRUE(read.has_value());
    EXPECT_GE(*read, now);
    EXPECT_LE(*read - now, 1000);
}
