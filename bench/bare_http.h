#pragma once

// Keep-alive HTTP/1.1 over plain POSIX sockets on loopback, and nothing else: the
// floor a round trip of the application is compared with, and a server whose
// moment of writing an answer is known exactly. Only what the benchmarks send is
// understood: requests and answers with a Content-Length, no chunks, no pipelining
// guarantees beyond order.

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace bare {

using Clock = std::chrono::steady_clock;

// Bytes read from a socket and not yet taken. Kept in one buffer that only ever grows,
// so a steady stream of small messages costs no allocation.
class Inbox {
public:
    // Blocks until the socket gives something; false once the peer has closed.
    bool receive(int socket);
    std::string_view view() const { return {data_.data(), used_}; }
    // Drops the first count bytes.
    void consume(std::size_t count);

private:
    std::vector<char> data_ = std::vector<char>(64 * 1024);
    std::size_t used_ = 0;
};

// Serves POSTs on 127.0.0.1, every connection from one thread, answering each with
// 200 and the body that answer() gives for the request's body.
class Server {
public:
    using Answer = std::function<std::string(std::string_view requestBody)>;

    // Listens on a port the kernel chooses; throws std::system_error.
    explicit Server(Answer answer);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int port() const { return port_; }
    // Runs until stop(); call it on the thread that is to serve.
    void serve();
    // Safe from any thread, also before serve().
    void stop();
    // When the newest answer's first byte was handed to its socket.
    Clock::time_point lastWriteStarted() const { return lastWriteStarted_.load(); }

private:
    Answer answer_;
    int listener_ = -1;
    int wake_ = -1;  // an eventfd that stop() writes to
    int port_ = 0;
    std::atomic<Clock::time_point> lastWriteStarted_{};
};

// One keep-alive connection that POSTs to one path, with the headers the
// application's own requests carry.
class Client {
public:
    // Connects at once; throws std::system_error.
    Client(int port, std::string_view path, std::string_view bearerToken);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Header and body in one write, then reads until the answer's Content-Length is
    // in; the answer's body. Throws std::runtime_error for anything but a 200.
    std::string_view post(std::string_view body);

private:
    int socket_ = -1;
    std::string headerStart_;  // everything up to the Content-Length value
    std::string header_;
    Inbox received_;
    std::size_t answered_ = 0;  // bytes of the last answer, taken at the next post
};

}  // namespace bare
