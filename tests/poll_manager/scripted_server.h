#pragma once

// A loopback HTTP server that answers each request with exactly the bytes a test scripts, so
// the client meets framings, faults and hang-ups a well-behaved library server never sends.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace testing_support {

struct ScriptedReply {
    std::string bytes{};      // written as they are
    bool closeAfter = false;  // hang up once written
    bool hold = false;        // write nothing and keep the connection until the server ends
    int msPerByte = 0;        // write the bytes one at a time, this far apart
    std::string repeated{};   // then written again and again until the client hangs up
};

class ScriptedServer {
public:
    // The script gets the request's number, from 1, across all connections.
    explicit ScriptedServer(std::function<ScriptedReply(int)> script);
    ~ScriptedServer();

    int port() const { return port_; }
    int connectionsAccepted() const { return accepted_; }
    // The last request as it came over the wire: head and body.
    std::string lastRequest() const;

    static std::string answer(int status, const std::string& body,
                              const std::string& extraHeaders = {});

private:
    void serve(int connection);
    bool readRequest(int connection);
    bool write(int connection, const std::string& bytes, const ScriptedReply& reply);

    std::function<ScriptedReply(int)> script_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_ = false;
    std::atomic<int> accepted_ = 0;
    std::atomic<int> requests_ = 0;
    mutable std::mutex lock_;
    std::string lastRequest_;
    std::thread acceptor_;
    std::vector<std::thread> connections_;
};

}  // namespace testing_support
