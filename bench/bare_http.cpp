#include "bare_http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace bare {

namespace {

[[noreturn]] void throwErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

struct Framing {
    std::size_t bodyOffset;
    std::size_t end;
};

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == b;
           });
}

// The Content-Length of a header block; 0 when it has none.
std::size_t contentLength(std::string_view header) {
    constexpr std::string_view kName = "\r\ncontent-length:";
    for (std::size_t at = header.find("\r\n"); at != std::string_view::npos;
         at = header.find("\r\n", at + 2)) {
        std::string_view rest = header.substr(at);
        if (!startsWithIgnoringCase(rest, kName)) {
            continue;
        }
        rest.remove_prefix(kName.size());
        while (!rest.empty() && rest.front() == ' ') {
            rest.remove_prefix(1);
        }
        std::size_t length = 0;
        std::from_chars(rest.data(), rest.data() + rest.size(), length);
        return length;
    }
    return 0;
}

// Where the first message in the buffer ends, once all of it is there.
std::optional<Framing> completeMessage(std::string_view buffer) {
    const std::size_t headerEnd = buffer.find("\r\n\r\n");
    if (headerEnd == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t bodyOffset = headerEnd + 4;
    const std::size_t end = bodyOffset + contentLength(buffer.substr(0, headerEnd));
    if (buffer.size() < end) {
        return std::nullopt;
    }
    return Framing{bodyOffset, end};
}

// Header and body in one system call while the socket takes them whole; false when
// the peer has gone.
bool sendAll(int socket, std::string_view header, std::string_view body) {
    iovec parts[2] = {{const_cast<char*>(header.data()), header.size()},
                      {const_cast<char*>(body.data()), body.size()}};
    iovec* next = parts;
    std::size_t left = 2;
    while (left > 0) {
        msghdr message{};
        message.msg_iov = next;
        message.msg_iovlen = left;
        const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
        if (sent < 0) {
            return false;
        }
        auto count = static_cast<std::size_t>(sent);
        while (left > 0 && count >= next->iov_len) {
            count -= next->iov_len;
            ++next;
            --left;
        }
        if (left > 0) {
            next->iov_base = static_cast<char*>(next->iov_base) + count;
            next->iov_len -= count;
        }
    }
    return true;
}

// Without it a small answer waits for the peer's delayed acknowledgement.
void setNoDelay(int socket) {
    const int yes = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

struct Connection {
    int socket;
    Inbox inbox;
};

}  // namespace

bool Inbox::receive(int socket) {
    if (used_ == data_.size()) {
        data_.resize(data_.size() * 2);
    }
    ssize_t count = 0;
    do {
        count = recv(socket, data_.data() + used_, data_.size() - used_, 0);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        throwErrno("recv");
    }
    used_ += static_cast<std::size_t>(count);
    return count > 0;
}

void Inbox::consume(std::size_t count) {
    std::memmove(data_.data(), data_.data() + count, used_ - count);
    used_ -= count;
}

Server::Server(Answer answer) : answer_(std::move(answer)) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    wake_ = eventfd(0, EFD_CLOEXEC);
    if (listener_ < 0 || wake_ < 0) {
        throwErrno("socket");
    }
    const int yes = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(listener_, 16) != 0 ||
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throwErrno("listen");
    }
    port_ = ntohs(address.sin_port);
}

Server::~Server() {
    close(listener_);
    close(wake_);
}

void Server::stop() {
    const std::uint64_t one = 1;
    (void)!write(wake_, &one, sizeof one);
}

void Server::serve() {
    std::vector<std::unique_ptr<Connection>> connections;
    std::vector<pollfd> watched;
    const std::string headerStart =
        "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: ";
    std::string header;
    for (;;) {
        watched.assign({{wake_, POLLIN, 0}, {listener_, POLLIN, 0}});
        for (const auto& connection : connections) {
            watched.push_back({connection->socket, POLLIN, 0});
        }
        if (poll(watched.data(), watched.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            throwErrno("poll");
        }
        if (watched[0].revents != 0) {
            break;
        }
        for (std::size_t index = 0; index < connections.size(); ++index) {
            if (watched[index + 2].revents == 0) {
                continue;
            }
            Connection& connection = *connections[index];
            bool open = false;
            try {
                open = connection.inbox.receive(connection.socket);
            } catch (const std::system_error&) {
                // A reset by the peer ends only its own connection.
            }
            while (open) {
                const std::string_view buffer = connection.inbox.view();
                const std::optional<Framing> request = completeMessage(buffer);
                if (!request) {
                    break;
                }
                const std::string body =
                    answer_(buffer.substr(request->bodyOffset, request->end - request->bodyOffset));
                header = headerStart + std::to_string(body.size()) + "\r\n\r\n";
                lastWriteStarted_.store(Clock::now());
                open = sendAll(connection.socket, header, body);
                connection.inbox.consume(request->end);
            }
            if (!open) {
                close(connection.socket);
                connection.socket = -1;
            }
        }
        std::erase_if(connections, [](const auto& connection) { return connection->socket < 0; });
        if (watched[1].revents != 0) {
            const int accepted = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (accepted >= 0) {
                setNoDelay(accepted);
                connections.push_back(std::make_unique<Connection>(Connection{accepted, {}}));
            }
        }
    }
    for (const auto& connection : connections) {
        close(connection->socket);
    }
}

Client::Client(int port, std::string_view path, std::string_view bearerToken) {
    socket_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket_ < 0) {
        throwErrno("socket");
    }
    setNoDelay(socket_);
    const sockaddr_in address = loopback(port);
    if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close(socket_);
        throw std::system_error(error, std::generic_category(), "connect");
    }
    headerStart_ =
        "POST " + std::string(path) + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
        "\r\nAuthorization: Bearer " + std::string(bearerToken) +
        "\r\nContent-Type: application/json\r\nAccept-Encoding: identity\r\n" + "Content-Length: ";
}

Client::~Client() {
    close(socket_);
}

std::string_view Client::post(std::string_view body) {
    received_.consume(answered_);
    answered_ = 0;
    header_.assign(headerStart_).append(std::to_string(body.size())).append("\r\n\r\n");
    if (!sendAll(socket_, header_, body)) {
        throwErrno("send");
    }
    std::optional<Framing> answer;
    while (!(answer = completeMessage(received_.view()))) {
        if (!received_.receive(socket_)) {
            throw std::runtime_error("the server closed the connection");
        }
    }
    const std::string_view message = received_.view();
    if (!message.starts_with("HTTP/1.1 200 ")) {
        throw std::runtime_error("the server answered: " +
                                 std::string(message.substr(0, message.find("\r\n"))));
    }
    answered_ = answer->end;
    return message.substr(answer->bodyOffset, answer->end - answer->bodyOffset);
}

}  // namespace bare
