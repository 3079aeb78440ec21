#include "http_connection.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <QtGlobal>
#include <array>
#include <cerrno>

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

HttpConnection::HttpConnection(int wakeDescriptor) : wakeDescriptor_(wakeDescriptor) {}

HttpConnection::~HttpConnection() {
    close();
}

void HttpConnection::close() {
    if (socket_ >= 0) {
        ::close(socket_);
        socket_ = -1;
    }
}

std::variant<HttpAnswer, std::error_code> HttpConnection::post(const QString& host, int port,
                                                               QByteArrayView target,
                                                               QByteArrayView extraHeaders,
                                                               QByteArrayView body,
                                                               const HttpLimits& limits) {
    const Deadline deadline = Clock::now() + limits.timeLimit;
    if (isOpen() && (host != host_ || port != port_)) {
        close();
    }
    const QByteArray hostText = host.contains(u':') ? '[' + host.toUtf8() + ']' : host.toUtf8();
    QByteArray head;
    head.reserve(target.size() + hostText.size() + extraHeaders.size() + 96);
    head.append("POST ").append(target).append(" HTTP/1.1\r\nHost: ").append(hostText);
    head.append(':').append(QByteArray::number(port)).append("\r\n").append(extraHeaders);
    head.append("Content-Length: ").append(QByteArray::number(body.size())).append("\r\n\r\n");

    // A kept connection the helper closed while it sat idle fails before any answer comes;
    // the request never reached the helper, so it goes once more on a fresh connection.
    for (bool reused = isOpen();; reused = false) {
        if (!isOpen()) {
            if (const std::error_code error = connectTo(host, port, deadline)) {
                return error;
            }
        }
        bool receivedAny = false;
        std::variant<HttpAnswer, std::error_code> result = [&]() -> decltype(result) {
            if (const std::error_code error = send(head, body, deadline)) {
                return error;
            }
            return receive(limits, deadline, receivedAny);
        }();
        if (const auto* error = std::get_if<std::error_code>(&result)) {
            close();
            reader_.releaseLargeBuffer();
            if (reused && *error == TransportError::connectionLost && !receivedAny) {
                continue;
            }
        }
        return result;
    }
}

std::error_code HttpConnection::connectTo(const QString& host, int port, Deadline deadline) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* addresses = nullptr;
    if (getaddrinfo(host.toUtf8().constData(), QByteArray::number(port).constData(), &hints,
                    &addresses) != 0) {
        return TransportError::connectionFailed;
    }
    std::error_code outcome = TransportError::connectionFailed;
    for (const addrinfo* address = addresses; address != nullptr; address = address->ai_next) {
        const int candidate =
            ::socket(address->ai_family, address->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (candidate < 0) {
            continue;
        }
        // The request goes out in one write and the answer is awaited: nothing to coalesce.
        const int yes = 1;
        setsockopt(candidate, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        socket_ = candidate;
        outcome = {};
        if (::connect(candidate, address->ai_addr, address->ai_addrlen) != 0) {
            outcome = errno == EINPROGRESS ? waitFor(POLLOUT, deadline)
                                           : make_error_code(TransportError::connectionFailed);
            int problem = 0;
            socklen_t size = sizeof problem;
            if (!outcome &&
                (getsockopt(candidate, SOL_SOCKET, SO_ERROR, &problem, &size) != 0 || problem)) {
                outcome = TransportError::connectionFailed;
            }
        }
        if (!outcome) {
            break;
        }
        close();
        if (outcome != TransportError::connectionFailed) {
            break;  // out of time, or shut down: no other address either
        }
    }
    freeaddrinfo(addresses);
    if (!outcome) {
        host_ = host;
        port_ = port;
    }
    return outcome;
}

std::error_code HttpConnection::send(QByteArrayView head, QByteArrayView body, Deadline deadline) {
    std::array<iovec, 2> pieces{iovec{const_cast<char*>(head.data()), std::size_t(head.size())},
                                iovec{const_cast<char*>(body.data()), std::size_t(body.size())}};
    std::size_t first = 0;
    while (first < pieces.size()) {
        msghdr message{};
        message.msg_iov = pieces.data() + first;
        message.msg_iovlen = pieces.size() - first;
        const ssize_t written = ::sendmsg(socket_, &message, MSG_NOSIGNAL);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                return TransportError::connectionLost;
            }
            if (const std::error_code error = waitFor(POLLOUT, deadline)) {
                return error;
            }
            continue;
        }
        auto left = static_cast<std::size_t>(written);
        while (first < pieces.size() && left >= pieces[first].iov_len) {
            left -= pieces[first].iov_len;
            ++first;
        }
        if (first < pieces.size()) {
            pieces[first].iov_base = static_cast<char*>(pieces[first].iov_base) + left;
            pieces[first].iov_len -= left;
        }
    }
    return {};
}

std::error_code HttpConnection::waitFor(short events, Deadline deadline) const {
    while (true) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            return TransportError::timedOut;
        }
        std::array<pollfd, 2> watched{pollfd{socket_, events, 0},
                                      pollfd{wakeDescriptor_, POLLIN, 0}};
        const int ready = ::poll(watched.data(), wakeDescriptor_ >= 0 ? 2 : 1,
                                 static_cast<int>(std::min<long long>(left, 60'000)));
        if (ready < 0 && errno != EINTR) {
            return TransportError::connectionLost;
        }
        if (wakeDescriptor_ >= 0 && watched[1].revents != 0) {
            return TransportError::cancelled;
        }
        if (ready > 0 && watched[0].revents != 0) {
            return {};  // ready, or an error the next read or write reports
        }
    }
}

std::variant<HttpAnswer, std::error_code> HttpConnection::receive(const HttpLimits& limits,
                                                                  Deadline deadline,
                                                                  bool& receivedAny) {
    reader_.start(limits.maxBodyBytes);
    // Right after the request nothing has come yet: waiting first saves a read that only says
    // so.
    if (const std::error_code error = waitFor(POLLIN, deadline)) {
        return error;
    }
    while (true) {
        const std::span<char> room = reader_.room();
        const ssize_t count = ::recv(socket_, room.data(), room.size(), 0);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                return make_error_code(TransportError::connectionLost);
            }
            if (const std::error_code error = waitFor(POLLIN, deadline)) {
                return error;
            }
            continue;
        }
        receivedAny = receivedAny || count > 0;
        const HttpAnswerReader::Outcome outcome = reader_.received(count);
        if (const auto* error = std::get_if<std::error_code>(&outcome)) {
            return *error;
        }
        if (const auto* answer = std::get_if<HttpAnswer>(&outcome)) {
            // Bytes nobody asked for yet would be read as the next answer's start.
            if (!answer->keepAlive || reader_.receivedBeyondAnswer()) {
                close();
            }
            return *answer;
        }
    }
}
