// The fault switches, each doing what it says.

#include <QFile>
#include <QJsonDocument>
#include <QTcpSocket>

#include "demo_helper_fixture.h"

namespace {

class DemoHelperFaults : public DemoHelperTest {
protected:
    void startWith(const QString& name, const QString& value) {
        helper_->setEnvironment(name, value);
        startAndPair();
    }
};

TEST_F(DemoHelperFaults, DelaysAnswersButSealsThemFresh) {
    startWith("BRISVANE_DEMO_DELAY_MS", "300");
    const auto start = std::chrono::steady_clock::now();
    const std::int64_t sent = KeyExchangeCurrentTimestamp();
    const OpenedAnswer answer = helper_->ask("ping");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
    EXPECT_GE(answer.timestamp, sent + 300);
}

TEST_F(DemoHelperFaults, AnswersWithTheStatusItIsGiven) {
    startWith("BRISVANE_DEMO_STATUS", "503");
    const PostResult result = helper_->post({"ping", "", ""});
    EXPECT_EQ(result.status, 503);
    EXPECT_EQ(helper_->open(result).kind(), u"auth request");
}

TEST_F(DemoHelperFaults, AnswersGarbage) {
    startWith("BRISVANE_DEMO_GARBAGE", "1");
    const PostResult result = helper_->post({"ping", "", ""});
    EXPECT_EQ(result.status, 200);
    QJsonParseError error;
    QJsonDocument::fromJson(result.body, &error);
    EXPECT_NE(error.error, QJsonParseError::NoError);
}

TEST_F(DemoHelperFaults, SealsStaleTimestamps) {
    startWith("BRISVANE_DEMO_TIMESTAMP", "stale");
    const std::int64_t sent = KeyExchangeCurrentTimestamp();
    const std::int64_t stamped = helper_->ask("ping").timestamp;
    const std::int64_t received = KeyExchangeCurrentTimestamp();
    EXPECT_GE(stamped, sent - 50);
    EXPECT_LE(stamped, received - 50);
}

TEST_F(DemoHelperFaults, SealsFutureTimestamps) {
    startWith("BRISVANE_DEMO_TIMESTAMP", "future");
    const std::int64_t sent = KeyExchangeCurrentTimestamp();
    const std::int64_t stamped = helper_->ask("ping").timestamp;
    const std::int64_t received = KeyExchangeCurrentTimestamp();
    EXPECT_GE(stamped, sent + 50);
    EXPECT_LE(stamped, received + 50);
}

TEST_F(DemoHelperFaults, RepeatsTheFirstTimestamp) {
    startWith("BRISVANE_DEMO_TIMESTAMP", "repeat");
    const std::int64_t first = helper_->ask("ping").timestamp;
    QThread::msleep(20);
    EXPECT_EQ(helper_->ask("ping").timestamp, first);
    EXPECT_EQ(helper_->ask("getGroups").timestamp, first);
}

TEST_F(DemoHelperFaults, PrintsAMalformedKeyBlockOnlyOnce) {
    const QString marker = stateHome_.path() + "/bad-key-block-shown";
    helper_->setEnvironment("BRISVANE_DEMO_BAD_KEY_BLOCK", marker);
    ASSERT_TRUE(helper_->start());
    EXPECT_TRUE(QFile::exists(marker));
    const QString body = PEMFromString(helper_->output());
    EXPECT_THROW(Curve25519PublicStore(body), std::system_error);
    EXPECT_EQ(helper_->process().state(), QProcess::Running);

    ASSERT_TRUE(helper_->terminate());
    helper_ = std::make_unique<HelperSession>(stateHome_.path());
    helper_->setEnvironment("BRISVANE_DEMO_BAD_KEY_BLOCK", marker);
    startAndPair();
    EXPECT_EQ(helper_->ask("ping").kind(), u"auth request");
}

TEST_F(DemoHelperFaults, EndsAfterGivingNAnswers) {
    startWith("BRISVANE_DEMO_EXIT_AFTER", "3");
    // A refusal is not an answer.
    EXPECT_EQ(helper_->postRaw("", "Bearer nobody").status, 401);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(helper_->ask("ping").kind(), u"auth request") << i;
    }
    ASSERT_TRUE(helper_->waitForExit(5s));
    EXPECT_EQ(helper_->process().exitCode(), 0);
    EXPECT_FALSE(helper_->post({"ping", "", ""}).delivered);
}

TEST_F(DemoHelperFaults, StaysSilentButListens) {
    helper_->setEnvironment("BRISVANE_DEMO_SILENT", "1");
    ASSERT_TRUE(helper_->start());
    QTcpSocket socket;
    // Connected means the helper's port is bound; give its start time to bind first.
    ASSERT_TRUE(WaitFor(
        [&] {
            socket.abort();
            socket.connectToHost("127.0.0.1", static_cast<quint16>(helper_->port()));
            return socket.waitForConnected(1000);
        },
        20s));
    socket.write("POST /request HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 0\r\n\r\n");
    EXPECT_FALSE(socket.waitForReadyRead(500));
    EXPECT_EQ(helper_->process().state(), QProcess::Running);
    helper_->collectOutput();
    EXPECT_TRUE(helper_->output().isEmpty());
}

}  // namespace
