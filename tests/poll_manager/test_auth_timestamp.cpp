// The freshness check every answer passes: strictly newer than the last one
// accepted, and sealed no more than 10 ms before it is checked.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "poll_manager/poll_manager.h"

namespace {

QString sealedAt(std::int64_t milliseconds) {
    return QString::fromLatin1(QByteArray::number(static_cast<qlonglong>(milliseconds)).toBase64());
}

class AuthTimestamp : public ::testing::Test {
protected:
    AuthTimestamp() {
        pm.setClock([this] { return now.load(); });
    }

    PollManager pm;
    // Well after the construction-time timestamp the manager starts from.
    std::atomic<std::int64_t> now = KeyExchangeCurrentTimestamp() + 60'000;
};

}  // namespace

TEST_F(AuthTimestamp, WindowIsZeroToTenMillisecondsInclusive) {
    EXPECT_TRUE(pm.authTimestamp(sealedAt(now - 10)));
    EXPECT_EQ(pm.timestamp(), now - 10);
    EXPECT_TRUE(pm.authTimestamp(sealedAt(now)));
    EXPECT_EQ(pm.timestamp(), now);

    now += 100;
    const std::int64_t accepted = pm.timestamp();
    EXPECT_FALSE(pm.authTimestamp(sealedAt(now - 11)));
    EXPECT_FALSE(pm.authTimestamp(sealedAt(now + 1)));
    EXPECT_EQ(pm.timestamp(), accepted);
}

TEST_F(AuthTimestamp, RepeatedOrOlderThanAcceptedIsRefused) {
    ASSERT_TRUE(pm.authTimestamp(sealedAt(now - 5)));
    EXPECT_FALSE(pm.authTimestamp(sealedAt(now - 5)));
    EXPECT_FALSE(pm.authTimestamp(sealedAt(now - 6)));
    EXPECT_TRUE(pm.authTimestamp(sealedAt(now - 4)));
}

TEST_F(AuthTimestamp, TextThatIsNoTimestampIsRefused) {
    const std::int64_t before = pm.timestamp();
    for (const QString& text :
         {QString(), QStringLiteral("not base64!"),
          QString::fromLatin1(QByteArray("4.2").toBase64()),
          QString::fromLatin1(QByteArray::number(static_cast<qlonglong>(now.load())).toBase64()) +
              u'\n'}) {
        EXPECT_FALSE(pm.authTimestamp(text)) << text.toStdString();
    }
    EXPECT_EQ(pm.timestamp(), before);
}

TEST_F(AuthTimestamp, ConcurrentChecksOfOneTimestampAcceptItOnce) {
    const QString text = sealedAt(now - 1);
    std::atomic<int> accepted = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                accepted += pm.authTimestamp(text) ? 1 : 0;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(accepted, 1);
}
