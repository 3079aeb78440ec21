// What goes over the wire when the application posts to its helper, and the HTTP/1.1
// exchange as the wire can make it: kept and dropped connections, both framings, and answers
// that are held, too large, dripped out or no HTTP.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "poll_manager/poll_manager.h"
#include "records/records.h"
#include "scripted_server.h"
#include "support/wait.h"

using namespace std::chrono_literals;
using testing_support::errorOf;
using testing_support::ScriptedReply;
using testing_support::ScriptedServer;
using testing_support::waitFor;

namespace {

const TypeIDAndData kPing{QStringLiteral("ping"), QString(), QStringLiteral("[]")};

QFuture<QByteArray> post(PollManager& pm, const ScriptedServer& server) {
    return pm.publishLocal(kPing, server.port(), QStringLiteral("/request"), pm.bearerToken());
}

QByteArray bodyOf(QFuture<QByteArray> future) {
    EXPECT_TRUE(waitFor(future));
    return future.isValid() && future.resultCount() > 0 ? future.result() : QByteArray();
}

ScriptedReply ok(const std::string& body, const std::string& headers = {}) {
    return {ScriptedServer::answer(200, body, headers)};
}

}  // namespace

TEST(Publish, PostsJsonWithBearerTokenAndReturnsBodyOf200) {
    ScriptedServer server([](int) { return ok(R"({"Type":"ping"})"); });
    PollManager pm;
    EXPECT_EQ(bodyOf(post(pm, server)), R"({"Type":"ping"})");
    const std::string request = server.lastRequest();
    EXPECT_EQ(request.substr(0, request.find("\r\n")), "POST /request HTTP/1.1");
    EXPECT_NE(request.find("\r\nContent-Type: application/json\r\n"), std::string::npos);
    EXPECT_NE(request.find("\r\nAuthorization: Bearer " + pm.bearerToken().toStdString() + "\r\n"),
              std::string::npos);
    EXPECT_TRUE(request.ends_with("\r\n\r\n{\"Type\":\"ping\",\"ID\":\"\",\"Data\":\"[]\"}"));

    // An empty token sends no Authorization header at all.
    (void)bodyOf(pm.publishLocal(kPing, server.port(), QStringLiteral("/request"), QString()));
    EXPECT_EQ(server.lastRequest().find("Authorization"), std::string::npos);
}

TEST(Publish, AnyStatusButExactly200IsAPublishFailure) {
    ScriptedServer server([](int request) {
        const int statuses[] = {201, 204, 401, 500};
        return ScriptedReply{ScriptedServer::answer(statuses[(request - 1) % 4], "{}")};
    });
    PollManager pm;
    for (int status : {201, 204, 401, 500}) {
        EXPECT_EQ(errorOf(post(pm, server)), PollManagerError::publishFailure) << status;
    }
}

TEST(Publish, UnformableURLAndRefusedConnectionFailWithoutAnswer) {
    PollManager pm;
    EXPECT_EQ(errorOf(pm.publishLocal(kPing, 70000, QStringLiteral("/request"), QString())),
              PollManagerError::urlError);
    EXPECT_EQ(errorOf(pm.publishWithURL(kPing, QUrl(QStringLiteral("https://127.0.0.1:8001/")),
                                        QString())),
              PollManagerError::urlError);
    int closedPort = 0;
    {
        ScriptedServer server([](int) { return ok("{}"); });
        closedPort = server.port();
    }
    EXPECT_EQ(errorOf(pm.publishLocal(kPing, closedPort, QStringLiteral("/request"), QString())),
              TransportError::connectionFailed);
}

TEST(HttpExchange, OneKeptConnectionCarriesEveryRequestUntilTheHelperSaysClose) {
    ScriptedServer server([](int request) {
        if (request == 3) {
            // Chunked, with an extension and a trailer, and the connection to be closed.
            return ScriptedReply{
                "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n"
                "5;note=x\r\nhello\r\n6\r\n world\r\n0\r\nX-Trailer: 1\r\n\r\n"};
        }
        return ok("answer " + std::to_string(request));
    });
    PollManager pm;
    EXPECT_EQ(bodyOf(post(pm, server)), "answer 1");
    EXPECT_EQ(bodyOf(post(pm, server)), "answer 2");
    EXPECT_EQ(server.connectionsAccepted(), 1);
    EXPECT_EQ(bodyOf(post(pm, server)), "hello world");
    EXPECT_EQ(bodyOf(post(pm, server)), "answer 4");
    EXPECT_EQ(server.connectionsAccepted(), 2);
}

TEST(HttpExchange, AKeptConnectionTheHelperDroppedIsReplacedWithoutFailingTheRequest) {
    ScriptedServer server([](int request) {
        ScriptedReply reply = ok("answer " + std::to_string(request));
        reply.closeAfter = request == 1;  // without saying so first
        return reply;
    });
    PollManager pm;
    EXPECT_EQ(bodyOf(post(pm, server)), "answer 1");
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(bodyOf(post(pm, server)), "answer 2");
    EXPECT_EQ(server.connectionsAccepted(), 2);
}

TEST(HttpExchange, EveryExchangeIsBoundedInTimeAndSizeAndTheNextOneStartsAfresh) {
    const std::string large(2000, 'x');
    ScriptedServer server([&](int request) -> ScriptedReply {
        switch (request) {
            case 1:
                return {.hold = true};
            case 2:
                return {.bytes = ScriptedServer::answer(200, "slow"), .msPerByte = 20};
            case 3:
                return ok(large);  // announced larger than allowed
            case 4:
                return {.bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"};
            default:
                return ok("fine");
        }
    });
    PollManager pm;
    pm.setRequestLimits({200ms, 1000});
    EXPECT_EQ(errorOf(post(pm, server)), TransportError::timedOut);
    EXPECT_EQ(errorOf(post(pm, server)), TransportError::timedOut);
    EXPECT_EQ(errorOf(post(pm, server)), TransportError::answerTooLarge);
    // A chunked head and then nothing: the time runs out.
    EXPECT_EQ(errorOf(post(pm, server)), TransportError::timedOut);
    EXPECT_EQ(bodyOf(post(pm, server)), "fine");
    EXPECT_EQ(server.connectionsAccepted(), 5);
}

TEST(HttpExchange, AnEndlessChunkedAnswerIsRefusedOnceItPassesTheLimit) {
    ScriptedServer endless([](int) -> ScriptedReply {
        return {.bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n",
                .repeated = "4000\r\n" + std::string(0x4000, 'y') + "\r\n"};
    });
    PollManager pm;
    pm.setRequestLimits({10s, 1024 * 1024});
    EXPECT_EQ(errorOf(post(pm, endless)), TransportError::answerTooLarge);
}

TEST(HttpExchange, WhatIsNotAWholeHTTPAnswerFailsTheRequestAlone) {
    ScriptedServer server([](int request) -> ScriptedReply {
        switch (request) {
            case 1:
                return {.bytes = "SSH-2.0-nothing like HTTP\r\n\r\n"};
            case 2:
                return {.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf",
                        .closeAfter = true};
            case 3:
                return {.bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip\r\n\r\nxx"};
            case 4:
                return {.bytes = "HTTP/1.1 100 Continue\r\n\r\n" +
                                 ScriptedServer::answer(200, "after interim")};
            default:
                return ok("fine");
        }
    });
    PollManager pm;
    EXPECT_EQ(errorOf(post(pm, server)), TransportError::malformedAnswer);
    EXPECT_EQ(errorOf(post(pm, server)), TransportError::connectionLost);
    EXPECT_EQ(errorOf(post(pm, server)), TransportError::malformedAnswer);
    EXPECT_EQ(bodyOf(post(pm, server)), "after interim");
    EXPECT_EQ(bodyOf(post(pm, server)), "fine");
}

// The request loop on the transport thread: each exchange `interval` after the last one ended,
// whatever became of it, the message asked for anew each time, requests from elsewhere in
// between, and nothing more once it is stopped or the transport ends under a held request.
TEST(RequestLoop, RepeatsAtItsIntervalThroughFailuresLetsRequestsInAndEndsWhenStopped) {
    std::atomic<bool> holdFromNowOn = false;
    ScriptedServer server([&](int) -> ScriptedReply {
        if (holdFromNowOn) {
            return {.hold = true};
        }
        return {ScriptedServer::answer(500, "no")};
    });
    // Sealing needs the helper's key; the helper is the scripted server, which opens nothing.
    const QString helperKey = KeyExchange_Curve25519_SHA256_HKDF_AESGCM()->LocalPublicKey();
    PollManager pm([&helperKey] {
        auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM();
        store->setExternalPublicKey(helperKey);
        return store;
    });
    std::mutex lock;
    std::vector<std::chrono::steady_clock::time_point> asked, answered;
    int answersWithText = 0;
    constexpr auto interval = 30ms;
    pm.startRequestLoop(server.port(), QStringLiteral("/request"),
                        {.interval = interval,
                         .message =
                             [&] {
                                 std::lock_guard guard(lock);
                                 asked.push_back(std::chrono::steady_clock::now());
                                 return JSONEncode(kPing);
                             },
                         .answered =
                             [&](std::optional<QByteArray> text) {
                                 std::lock_guard guard(lock);
                                 answered.push_back(std::chrono::steady_clock::now());
                                 answersWithText += text ? 1 : 0;
                             }});
    const auto count = [&] {
        std::lock_guard guard(lock);
        return answered.size();
    };
    ASSERT_TRUE(testing_support::waitUntil([&] { return count() >= 4; }, 2000));
    EXPECT_NE(server.lastRequest().find("POST /request "), std::string::npos);
    EXPECT_EQ(errorOf(post(pm, server)), PollManagerError::publishFailure);

    pm.stopRequestLoop();
    const std::size_t atStop = count();
    std::this_thread::sleep_for(interval * 4);
    {
        std::lock_guard guard(lock);
        EXPECT_LE(answered.size(), atStop + 1);  // one may have been under way
        EXPECT_EQ(answersWithText, 0);
        for (std::size_t index = 1; index < asked.size(); ++index) {
            EXPECT_GE(asked[index] - answered[index - 1], interval) << index;
        }
    }

    // Stopping the transport ends a held exchange at once, and no callback follows.
    holdFromNowOn = true;
    pm.startRequestLoop(server.port(), QStringLiteral("/request"),
                        {.interval = 1ms,
                         .message = [] { return JSONEncode(kPing); },
                         .answered = [&](std::optional<QByteArray>) { ADD_FAILURE(); }});
    ASSERT_TRUE(testing_support::waitUntil(
        [&] { return server.connectionsAccepted() >= 1 && !server.lastRequest().empty(); }, 2000));
    std::this_thread::sleep_for(50ms);
    const auto stopping = std::chrono::steady_clock::now();
    pm.stopTransport();
    EXPECT_LT(std::chrono::steady_clock::now() - stopping, 1s);
    EXPECT_EQ(errorOf(post(pm, server)), TransportError::cancelled);
}
