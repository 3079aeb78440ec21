// The sealed conversation with a real helper child over loopback HTTP, including
// the helper's misbehaviours that the transport must refuse or recover from.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "helper_fixture.h"
#include "records/records.h"

using testing_support::errorOf;
using testing_support::HelperOptions;
using testing_support::RunningHelper;
using testing_support::waitFor;
using testing_support::waitUntil;

namespace {

QString typeOf(const QJsonValue& answer) {
    return TypeIDAndData::readJSON(answer).type;
}

HelperOptions withFault(const char* name, const QByteArray& value) {
    HelperOptions options;
    options.environment[name] = value;
    return options;
}

}  // namespace

TEST(HelperTransport, LearnsTheKeyFromOutputAndRoundTripsSealedRequests) {
    RunningHelper helper;
    ASSERT_TRUE(helper.waitForKey()) << helper.output().toStdString();
    EXPECT_TRUE(helper.output().contains(QStringLiteral("-----BEGIN PUBLIC KEY-----\n")));

    const std::int64_t before = helper.pm.timestamp();
    for (int i = 0; i < 20; ++i) {
        auto answer = helper.ping();
        ASSERT_TRUE(waitFor(answer));
        ASSERT_EQ(errorOf(answer), std::error_code());
        // A fresh state: the helper wants the user to log in first.
        EXPECT_EQ(typeOf(answer.result()), QStringLiteral("auth request"));
    }
    EXPECT_GT(helper.pm.timestamp(), before);
}

TEST(HelperTransport, StaleFutureAndRepeatedTimestampsAreRefused) {
    for (const char* fault : {"stale", "future"}) {
        SCOPED_TRACE(fault);
        RunningHelper helper(withFault("BRISVANE_DEMO_TIMESTAMP", fault));
        ASSERT_TRUE(helper.waitForKey());
        const std::int64_t before = helper.pm.timestamp();
        auto answer = helper.ping();
        ASSERT_TRUE(waitFor(answer));
        EXPECT_EQ(errorOf(answer), KeyExchangeError::invalidAdditionalData);
        EXPECT_EQ(helper.pm.timestamp(), before);
    }

    RunningHelper helper(withFault("BRISVANE_DEMO_TIMESTAMP", "repeat"));
    ASSERT_TRUE(helper.waitForKey());
    auto first = helper.ping();
    ASSERT_TRUE(waitFor(first));
    ASSERT_EQ(errorOf(first), std::error_code());
    const std::int64_t accepted = helper.pm.timestamp();
    auto second = helper.ping();
    ASSERT_TRUE(waitFor(second));
    EXPECT_EQ(errorOf(second), KeyExchangeError::invalidAdditionalData);
    EXPECT_EQ(helper.pm.timestamp(), accepted);
}

TEST(HelperTransport, StatusOtherThan200IsAPublishFailure) {
    for (const char* status : {"201", "500"}) {
        SCOPED_TRACE(status);
        RunningHelper helper(withFault("BRISVANE_DEMO_STATUS", status));
        ASSERT_TRUE(helper.waitForKey());
        auto answer = helper.ping();
        ASSERT_TRUE(waitFor(answer));
        EXPECT_EQ(errorOf(answer), PollManagerError::publishFailure);
    }
}

TEST(HelperTransport, GarbageAnswerIsACodingErrorNotACrash) {
    RunningHelper helper(withFault("BRISVANE_DEMO_GARBAGE", "1"));
    ASSERT_TRUE(helper.waitForKey());
    auto answer = helper.ping();
    ASSERT_TRUE(waitFor(answer));
    EXPECT_EQ(errorOf(answer), JSONError::dataCorrupted);
}

TEST(HelperTransport, MalformedKeyBlockResetsTheHelperAndANewKeyTakesOver) {
    QTemporaryDir markers;
    const QString marker = QDir(markers.path()).filePath(QStringLiteral("bad-block-shown"));
    RunningHelper helper(withFault("BRISVANE_DEMO_BAD_KEY_BLOCK", marker.toUtf8()));

    ASSERT_TRUE(waitUntil([&] { return helper.exits >= 1; }))
        << "the helper with the bad block was not ended";
    EXPECT_TRUE(QFileInfo::exists(marker));
    ASSERT_TRUE(helper.waitForKey());

    // The replacement's key pairs with ours: sealed requests work again.
    std::error_code last = make_error_code(KeyExchangeError::publicKeyNotSet);
    waitUntil([&] {
        auto answer = helper.ping();
        waitFor(answer);
        last = errorOf(answer);
        return !last;
    });
    EXPECT_EQ(last, std::error_code());
}

TEST(HelperTransport, SilentHelperTimesOutRepeatedly) {
    HelperOptions options = withFault("BRISVANE_DEMO_SILENT", "1");
    options.pingTimeLimit = 0.25;
    RunningHelper helper(options);
    EXPECT_TRUE(waitUntil([&] { return helper.pingTimeouts >= 3; }));
    EXPECT_TRUE(helper.output().isEmpty());
}

TEST(HelperTransport, OutputKeepsPingTimeoutAway) {
    // A child that speaks every 50 ms never stays silent for five 100 ms ticks.
    QTemporaryDir dir;
    const QString script = QDir(dir.path()).filePath(QStringLiteral("chatty"));
    QFile file(script);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\nwhile true; do echo alive; sleep 0.05; done\n");
    file.close();
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner);

    PollManager pm;
    std::atomic<int> timeouts = 0;
    std::thread supervision(
        [&] { pm.subscribeWithBinary(script, false, false, 0.5, [&] { ++timeouts; }, {}, {}); });
    waitUntil([] { return false; }, 2000);
    EXPECT_EQ(timeouts, 0);
    pm.processManager().cancelNow();
    supervision.join();
}
