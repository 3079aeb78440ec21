// What goes over the wire when the application posts to its helper, seen by a
// real loopback server that records each request.

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "poll_manager/poll_manager.h"
#include "records/records.h"
#include "support/wait.h"

using testing_support::errorOf;
using testing_support::waitFor;

namespace {

struct SeenRequest {
    std::string method;
    std::string path;
    std::optional<std::string> authorization;
    std::string contentType;
    std::string body;
};

class RecordingServer {
public:
    explicit RecordingServer(int status, std::string answer = "{\"ok\":true}") {
        server_.Post(".*", [this, status, answer](const httplib::Request& request,
                                                  httplib::Response& response) {
            std::lock_guard lock(lock_);
            SeenRequest seen{request.method, request.path, std::nullopt,
                             request.get_header_value("Content-Type"), request.body};
            if (request.has_header("Authorization")) {
                seen.authorization = request.get_header_value("Authorization");
            }
            seen_ = seen;
            response.status = status;
            response.set_content(answer, "application/json");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        // stop() is ignored until the accept loop runs.
        while (!server_.is_running()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    ~RecordingServer() {
        server_.stop();
        thread_.join();
    }

    int port() const { return port_; }
    std::optional<SeenRequest> seen() const {
        std::lock_guard lock(lock_);
        return seen_;
    }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex lock_;
    std::optional<SeenRequest> seen_;
};

const TypeIDAndData kPing{QStringLiteral("ping"), QString(), QStringLiteral("[]")};

}  // namespace

TEST(Publish, PostsJsonWithBearerTokenAndReturnsBodyOf200) {
    RecordingServer server(200, "{\"Type\":\"ping\"}");
    PollManager pm;
    auto answer =
        pm.publishLocal(kPing, server.port(), QStringLiteral("/request"), pm.bearerToken());
    ASSERT_TRUE(waitFor(answer));
    EXPECT_EQ(answer.result(), QByteArrayLiteral("{\"Type\":\"ping\"}"));

    const auto seen = server.seen();
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->method, "POST");
    EXPECT_EQ(seen->path, "/request");
    EXPECT_EQ(seen->contentType, "application/json");
    EXPECT_EQ(seen->body, "{\"Type\":\"ping\",\"ID\":\"\",\"Data\":\"[]\"}");
    ASSERT_TRUE(seen->authorization);
    EXPECT_EQ(*seen->authorization, "Bearer " + pm.bearerToken().toStdString());
}

TEST(Publish, EmptyTokenSendsNoAuthorizationHeader) {
    RecordingServer server(200);
    PollManager pm;
    auto answer = pm.publishLocal(kPing, server.port(), QStringLiteral("/request"), QString());
    ASSERT_TRUE(waitFor(answer));
    const auto seen = server.seen();
    ASSERT_TRUE(seen);
    EXPECT_FALSE(seen->authorization);
}

TEST(Publish, AnyStatusButExactly200IsAPublishFailure) {
    for (int status : {201, 204, 401, 500}) {
        SCOPED_TRACE(status);
        RecordingServer server(status);
        PollManager pm;
        auto answer =
            pm.publishLocal(kPing, server.port(), QStringLiteral("/request"), pm.bearerToken());
        ASSERT_TRUE(waitFor(answer));
        EXPECT_EQ(errorOf(answer), PollManagerError::publishFailure);
    }
}

TEST(Publish, UnformableURLAndRefusedConnectionFailWithoutAnswer) {
    PollManager pm;
    EXPECT_EQ(errorOf(pm.publishLocal(kPing, 70000, QStringLiteral("/request"), QString())),
              PollManagerError::urlError);

    // A port nobody listens on: the client's own error reaches the caller.
    int closedPort = 0;
    {
        RecordingServer server(200);
        closedPort = server.port();
    }
    auto answer = pm.publishLocal(kPing, closedPort, QStringLiteral("/request"), QString());
    ASSERT_TRUE(waitFor(answer));
    const std::error_code error = errorOf(answer);
    EXPECT_EQ(error, TransportError::connectionFailed);
}
