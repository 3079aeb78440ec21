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
#include <cstring>
#include <optional>

namespace {

using Clock = std::chrono::steady_clock;

// An answer's head is a status line and a few headers; anything longer is not our helper.
constexpr qsizetype kMaxHeadBytes = 64 * 1024;
constexpr qsizetype kMaxChunkLineBytes = 1024;
// Room made for each read when the size of what comes is not known.
constexpr qsizetype kReadStep = 64 * 1024;
constexpr qsizetype kReleasedBufferBytes = 4 * 1024 * 1024;

std::optional<qsizetype> parseNumber(QByteArrayView text, int base) {
    text = text.trimmed();
    if (text.isEmpty() || text.size() > 15) {
        return std::nullopt;
    }
    qsizetype value = 0;
    for (const char c : text) {
        int digit = -1;
        if (c >= '0' && c <= '9') {
            digit = c - '0';
        } else if (base == 16 && c >= 'a' && c <= 'f') {
            digit = c - 'a' + 10;
        } else if (base == 16 && c >= 'A' && c <= 'F') {
            digit = c - 'A' + 10;
        }
        if (digit < 0) {
            return std::nullopt;
        }
        value = value * base + digit;
    }
    return value;
}

bool sameToken(QByteArrayView a, QByteArrayView b) {
    return a.trimmed().compare(b, Qt::CaseInsensitive) == 0;
}

bool listHasToken(QByteArrayView list, QByteArrayView token) {
    while (!list.isEmpty()) {
        const qsizetype comma = list.indexOf(',');
        if (sameToken(comma < 0 ? list : list.first(comma), token)) {
            return true;
        }
        list = comma < 0 ? QByteArrayView() : list.sliced(comma + 1);
    }
    return false;
}

struct AnswerHead {
    int status = 0;
    std::optional<qsizetype> contentLength;
    bool chunked = false;
    bool keepAlive = true;
};

std::optional<AnswerHead> parseHead(QByteArrayView head) {
    qsizetype lineEnd = head.indexOf("\r\n");
    const QByteArrayView statusLine = head.first(lineEnd);
    // "HTTP/1.x SSS reason"
    if (statusLine.size() < 12 || !statusLine.startsWith("HTTP/1.") || statusLine[8] != ' ' ||
        (statusLine.size() > 12 && statusLine[12] != ' ')) {
        return std::nullopt;
    }
    AnswerHead parsed;
    const std::optional<qsizetype> status = parseNumber(statusLine.sliced(9, 3), 10);
    if (!status || *status < 100) {
        return std::nullopt;
    }
    parsed.status = static_cast<int>(*status);
    parsed.keepAlive = statusLine[7] == '1';
    bool keepAliveAsked = false;

    for (qsizetype start = lineEnd + 2; start < head.size();) {
        lineEnd = head.indexOf("\r\n", start);
        const QByteArrayView line = head.sliced(start, lineEnd - start);
        start = lineEnd + 2;
        if (line.isEmpty()) {
            break;
        }
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0) {
            return std::nullopt;
        }
        const QByteArrayView name = line.first(colon);
        const QByteArrayView value = line.sliced(colon + 1).trimmed();
        if (sameToken(name, "Content-Length")) {
            const std::optional<qsizetype> length = parseNumber(value, 10);
            if (!length || (parsed.contentLength && *parsed.contentLength != *length)) {
                return std::nullopt;
            }
            parsed.contentLength = length;
        } else if (sameToken(name, "Transfer-Encoding")) {
            // Only chunked is asked for and read; any other coding is not.
            if (!sameToken(value, "chunked")) {
                return std::nullopt;
            }
            parsed.chunked = true;
        } else if (sameToken(name, "Content-Encoding")) {
            if (!sameToken(value, "identity")) {
                return std::nullopt;
            }
        } else if (sameToken(name, "Connection")) {
            if (listHasToken(value, "close")) {
                parsed.keepAlive = false;
            }
            keepAliveAsked = listHasToken(value, "keep-alive");
        }
    }
    if (keepAliveAsked && statusLine[7] == '0') {
        parsed.keepAlive = true;
    }
    if (parsed.chunked && parsed.contentLength) {
        // A message framed both ways may be read differently by someone in between.
        parsed.contentLength.reset();
        parsed.keepAlive = false;
    }
    return parsed;
}

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
        received_ = 0;
        std::variant<HttpAnswer, std::error_code> result = [&]() -> decltype(result) {
            if (const std::error_code error = send(head, body, deadline)) {
                return error;
            }
            return receive(limits, deadline);
        }();
        if (const auto* error = std::get_if<std::error_code>(&result)) {
            close();
            // A refused answer may have grown the buffer far beyond what answers need.
            if (buffer_.size() > kReleasedBufferBytes) {
                buffer_ = QByteArray();
            }
            if (reused && *error == TransportError::connectionLost && received_ == 0) {
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

std::variant<qsizetype, std::error_code> HttpConnection::readSome(Deadline deadline) {
    if (buffer_.size() - received_ < kReadStep / 4) {
        buffer_.resize(std::max(buffer_.size() * 2, received_ + kReadStep));
    }
    // Right after the request nothing has come yet: waiting first saves a read that only
    // says so.
    if (received_ == 0) {
        if (const std::error_code error = waitFor(POLLIN, deadline)) {
            return error;
        }
    }
    while (true) {
        const ssize_t count =
            ::recv(socket_, buffer_.data() + received_, std::size_t(buffer_.size() - received_), 0);
        if (count >= 0) {
            received_ += count;
            return qsizetype(count);
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            return make_error_code(TransportError::connectionLost);
        }
        if (const std::error_code error = waitFor(POLLIN, deadline)) {
            return error;
        }
    }
}

std::variant<HttpAnswer, std::error_code> HttpConnection::receive(const HttpLimits& limits,
                                                                  Deadline deadline) {
    received_ = 0;
    // More bytes: the error that ends the answer, or nothing.
    const auto more = [this, deadline]() -> std::error_code {
        const auto read = readSome(deadline);
        if (const auto* error = std::get_if<std::error_code>(&read)) {
            return *error;
        }
        return std::get<qsizetype>(read) == 0 ? make_error_code(TransportError::connectionLost)
                                              : std::error_code();
    };

    AnswerHead head;
    qsizetype bodyStart = 0;
    for (qsizetype searched = 0;;) {
        const qsizetype end =
            QByteArrayView(buffer_.constData(), received_).indexOf("\r\n\r\n", searched);
        if (end < 0) {
            if (received_ > kMaxHeadBytes) {
                return make_error_code(TransportError::malformedAnswer);
            }
            searched = std::max<qsizetype>(0, received_ - 3);
            if (const std::error_code error = more()) {
                return error;
            }
            continue;
        }
        const std::optional<AnswerHead> parsed =
            parseHead(QByteArrayView(buffer_.constData(), end + 4));
        if (!parsed) {
            return make_error_code(TransportError::malformedAnswer);
        }
        if (parsed->status >= 200) {
            head = *parsed;
            bodyStart = end + 4;
            break;
        }
        // An interim answer (100 Continue and the like): the real one follows it.
        std::memmove(buffer_.data(), buffer_.constData() + end + 4,
                     std::size_t(received_ - end - 4));
        received_ -= end + 4;
        searched = 0;
    }

    qsizetype bodyEnd = bodyStart;
    bool trailingBytes = false;
    if (head.status == 204 || head.status == 304) {
        trailingBytes = received_ > bodyStart;
    } else if (head.chunked) {
        // De-chunked in place: each chunk's bytes move down to the end of the body so far.
        enum class Expect { sizeLine, data, dataEnd, trailer, done };
        Expect expect = Expect::sizeLine;
        qsizetype parsed = bodyStart;
        qsizetype chunkLeft = 0;
        while (expect != Expect::done) {
            char* bytes = buffer_.data();
            const QByteArrayView unparsed(bytes + parsed, received_ - parsed);
            bool needMore = false;
            switch (expect) {
                case Expect::sizeLine:
                case Expect::trailer: {
                    const qsizetype lineEnd = unparsed.indexOf("\r\n");
                    if (lineEnd < 0) {
                        if (unparsed.size() > kMaxChunkLineBytes) {
                            return make_error_code(TransportError::malformedAnswer);
                        }
                        needMore = true;
                        break;
                    }
                    parsed += lineEnd + 2;
                    if (expect == Expect::trailer) {
                        expect = lineEnd == 0 ? Expect::done : Expect::trailer;
                        break;
                    }
                    QByteArrayView sizeText = unparsed.first(lineEnd);
                    if (const qsizetype extension = sizeText.indexOf(';'); extension >= 0) {
                        sizeText = sizeText.first(extension);
                    }
                    const std::optional<qsizetype> size = parseNumber(sizeText, 16);
                    if (!size) {
                        return make_error_code(TransportError::malformedAnswer);
                    }
                    if (*size > limits.maxBodyBytes - (bodyEnd - bodyStart)) {
                        return make_error_code(TransportError::answerTooLarge);
                    }
                    chunkLeft = *size;
                    expect = *size == 0 ? Expect::trailer : Expect::data;
                    break;
                }
                case Expect::data: {
                    const qsizetype take = std::min(chunkLeft, unparsed.size());
                    if (take == 0) {
                        needMore = true;
                        break;
                    }
                    std::memmove(bytes + bodyEnd, bytes + parsed, std::size_t(take));
                    bodyEnd += take;
                    parsed += take;
                    chunkLeft -= take;
                    if (chunkLeft == 0) {
                        expect = Expect::dataEnd;
                    }
                    break;
                }
                case Expect::dataEnd:
                    if (unparsed.size() < 2) {
                        needMore = true;
                    } else if (!unparsed.startsWith("\r\n")) {
                        return make_error_code(TransportError::malformedAnswer);
                    } else {
                        parsed += 2;
                        expect = Expect::sizeLine;
                    }
                    break;
                case Expect::done:
                    break;
            }
            if (!needMore) {
                continue;
            }
            // What is not parsed yet moves down behind the body, so the buffer holds little
            // more than the body itself.
            std::memmove(bytes + bodyEnd, bytes + parsed, std::size_t(received_ - parsed));
            received_ -= parsed - bodyEnd;
            parsed = bodyEnd;
            if (const std::error_code error = more()) {
                return error;
            }
        }
        trailingBytes = received_ > parsed;
    } else if (head.contentLength) {
        if (*head.contentLength > limits.maxBodyBytes) {
            return make_error_code(TransportError::answerTooLarge);
        }
        bodyEnd = bodyStart + *head.contentLength;
        if (buffer_.size() < bodyEnd) {
            buffer_.resize(bodyEnd + kReadStep / 4);
        }
        while (received_ < bodyEnd) {
            if (const std::error_code error = more()) {
                return error;
            }
        }
        trailingBytes = received_ > bodyEnd;
    } else {
        // No length given: the body ends with the connection.
        head.keepAlive = false;
        while (true) {
            const auto read = readSome(deadline);
            if (const auto* error = std::get_if<std::error_code>(&read)) {
                return *error;
            }
            if (received_ - bodyStart > limits.maxBodyBytes) {
                return make_error_code(TransportError::answerTooLarge);
            }
            if (std::get<qsizetype>(read) == 0) {
                break;
            }
        }
        bodyEnd = received_;
    }

    // Bytes nobody asked for yet would be read as the next answer's start.
    if (!head.keepAlive || trailingBytes) {
        close();
    }
    return HttpAnswer{head.status,
                      QByteArrayView(buffer_.constData() + bodyStart, bodyEnd - bodyStart)};
}
