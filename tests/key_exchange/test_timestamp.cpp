#include <gtest/gtest.h>

#include <QDateTime>
#include <cmath>
#include <limits>

#include "key_exchange/key_exchange.h"
#include "key_exchange/timestamp.h"

namespace {

std::optional<std::int64_t> TimestampOf(const char* text) {
    return KeyExchangeTimestamp(QString::fromLatin1(QByteArray(text).toBase64()));
}

TEST(Timestamp, ReadsOnlyAStrictDecimalInteger) {
    EXPECT_EQ(TimestampOf("42"), 42);
    EXPECT_EQ(TimestampOf("-42"), -42);
    EXPECT_EQ(TimestampOf("0042"), 42);
    EXPECT_EQ(TimestampOf("1700000000123"), 1700000000123);
    EXPECT_EQ(TimestampOf("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(TimestampOf("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
    for (const char* text : {"", "-", "+42", " 42", "42 ", "42\n", "4.2", "42e0", "0x2a", "４２",
                             "9223372036854775808", "-9223372036854775809"}) {
        EXPECT_EQ(TimestampOf(text), std::nullopt) << text;
    }
    EXPECT_EQ(KeyExchangeTimestamp(QStringLiteral("AA==")), std::nullopt);  // a NUL byte
}

TEST(Timestamp, RefusesTextThatIsNotStrictBase64) {
    // The base64 of "42", then with a line feed after it, which the decoder refuses.
    EXPECT_EQ(KeyExchangeTimestamp(QStringLiteral("NDI=")), 42);
    EXPECT_EQ(KeyExchangeTimestamp(QStringLiteral("NDI=\n")), std::nullopt);
    EXPECT_EQ(KeyExchangeTimestamp(QStringLiteral("NDI")), std::nullopt);
    EXPECT_EQ(KeyExchangeTimestamp(QStringLiteral("42")), std::nullopt);
}

TEST(Timestamp, CurrentTimeInItsThreeForms) {
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    const std::int64_t now = KeyExchangeCurrentTimestamp();
    const qint64 after = QDateTime::currentMSecsSinceEpoch();
    EXPECT_GE(now, before - 1);
    EXPECT_LE(now, after + 1);
    const QByteArray data = KeyExchangeCurrentTimestampData();
    const std::optional<std::int64_t> read =
        KeyExchangeTimestamp(QString::fromLatin1(data.toBase64()));
    ASSERT_TRUE(read.has_value());
    EXPECT_GE(*read, now);
    EXPECT_LE(*read - now, 1000);
    EXPECT_EQ(QString::number(*read), QString::fromLatin1(data));
    EXPECT_FALSE(KeyExchangeCurrentTimestampString().startsWith(u'0'));
}

TEST(Timestamp, MillisecondsRoundHalvesAwayFromZero) {
    // 1/16 s is exact in binary: 62.5 ms.
    EXPECT_EQ(KeyExchangeTimestampFromSeconds(0.0625), 63);
    EXPECT_EQ(KeyExchangeTimestampFromSeconds(-0.0625), -63);
    EXPECT_EQ(KeyExchangeTimestampFromSeconds(1700000000.123), 1700000000123);
    EXPECT_EQ(KeyExchangeTimestampFromSeconds(0.0), 0);
}

TEST(TimestampDeathTest, TimesOutsideTheRangeStopTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(KeyExchangeTimestampFromSeconds(std::nan("")), "timestamp");
    EXPECT_DEATH(KeyExchangeTimestampFromSeconds(std::numeric_limits<double>::infinity()),
                 "timestamp");
    EXPECT_DEATH(KeyExchangeTimestampFromSeconds(9.3e15), "timestamp");
    EXPECT_DEATH(KeyExchangeTimestampFromSeconds(-9.3e15), "timestamp");
}

}  // namespace
