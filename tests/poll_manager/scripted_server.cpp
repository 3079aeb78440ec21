#include "scripted_server.h"

#include <arpa/inet.h>
#include <poll.h>

#include <cstring>

namespace testing_support {

namespace {

// Waits up to 50 ms for the descriptor; false when nothing came.
bool readable(int descriptor) {
    pollfd watched{descriptor, POLLIN, 0};
    return ::poll(&watched, 1, 50) > 0;
}

}  // namespace

ScriptedServer::ScriptedServer(std::function<ScriptedReply(int)> script)
    : script_(std::move(script)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
    ::listen(listener_, 16);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] {
        while (!stopping_) {
            if (!readable(listener_)) {
                continue;
            }
            const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection >= 0) {
                ++accepted_;
                connections_.emplace_back([this, connection] { serve(connection); });
            }
        }
    });
}

ScriptedServer::~ScriptedServer() {
    stopping_ = true;
    acceptor_.join();
    for (std::thread& connection : connections_) {
        connection.join();
    }
    ::close(listener_);
}

std::string ScriptedServer::answer(int status, const std::string& body,
                                   const std::string& extraHeaders) {
    return "HTTP/1.1 " + std::to_string(status) + " Whatever\r\n" + extraHeaders +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string ScriptedServer::lastRequest() const {
    std::lock_guard lock(lock_);
    return lastRequest_;
}

bool ScriptedServer::readRequest(int connection) {
    std::string received;
    char buffer[65536];
    std::size_t headEnd = std::string::npos;
    std::size_t length = 0;
    while (!stopping_) {
        if (headEnd != std::string::npos && received.size() >= headEnd + 4 + length) {
            std::lock_guard lock(lock_);
            lastRequest_ = received;
            return true;
        }
        if (!readable(connection)) {
            continue;
        }
        const ssize_t count = ::read(connection, buffer, sizeof buffer);
        if (count <= 0) {
            return false;
        }
        received.append(buffer, static_cast<std::size_t>(count));
        if (headEnd == std::string::npos &&
            (headEnd = received.find("\r\n\r\n")) != std::string::npos) {
            const std::size_t header = received.find("Content-Length: ");
            length = header < headEnd ? std::stoul(received.substr(header + 16)) : 0;
        }
    }
    return false;
}

bool ScriptedServer::write(int connection, const std::string& bytes, const ScriptedReply& reply) {
    const std::size_t step = reply.msPerByte > 0 ? 1 : bytes.size();
    for (std::size_t at = 0; at < bytes.size() && !stopping_; at += step) {
        if (::send(connection, bytes.data() + at, std::min(step, bytes.size() - at), MSG_NOSIGNAL) <
            0) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(reply.msPerByte));
    }
    return true;
}

void ScriptedServer::serve(int connection) {
    while (!stopping_ && readRequest(connection)) {
        const ScriptedReply reply = script_(++requests_);
        if (reply.hold) {
            while (!stopping_) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            break;
        }
        bool open = write(connection, reply.bytes, reply);
        while (open && !reply.repeated.empty() && !stopping_) {
            open = write(connection, reply.repeated, reply);
        }
        if (!open || reply.closeAfter) {
            break;
        }
    }
    ::close(connection);
}

}  // namespace testing_support
