#pragma once

// A keep-alive HTTP/1.1 client connection on a plain socket, for POSTs to the helper's
// loopback endpoint. It is used from one thread at a time and blocks that thread for at most
// an exchange's time limit; a wake descriptor that becomes readable ends any wait at once.
//
// The answer is read into one buffer that is kept between exchanges, so a large answer ten
// times a second costs no fresh allocation, and a body arrives where it is read from.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <chrono>
#include <cstdint>
#include <variant>

#include "exchange.h"

struct HttpAnswer {
    int status = 0;
    // Valid until the next exchange on the same connection.
    QByteArrayView body;
};

class HttpConnection {
public:
    // wakeDescriptor: readable means stop waiting (-1 for none).
    explicit HttpConnection(int wakeDescriptor = -1);
    ~HttpConnection();
    HttpConnection(const HttpConnection&) = delete;
    HttpConnection& operator=(const HttpConnection&) = delete;

    // POSTs body to http://host:port/target with the given extra header lines (each ending
    // in CRLF). A connection that failed, timed out or was told to close is dropped, and the
    // next exchange opens a fresh one.
    std::variant<HttpAnswer, std::error_code> post(const QString& host, int port,
                                                   QByteArrayView target,
                                                   QByteArrayView extraHeaders, QByteArrayView body,
                                                   const HttpLimits& limits);

    bool isOpen() const { return socket_ >= 0; }
    void close();

private:
    using Deadline = std::chrono::steady_clock::time_point;

    std::error_code connectTo(const QString& host, int port, Deadline deadline);
    std::error_code send(QByteArrayView head, QByteArrayView body, Deadline deadline);
    std::variant<HttpAnswer, std::error_code> receive(const HttpLimits& limits, Deadline deadline);
    // Reads what the socket has into the buffer, waiting for it until the deadline. Returns
    // the bytes read (0 at the end of the stream) or the error.
    std::variant<qsizetype, std::error_code> readSome(Deadline deadline);
    std::error_code waitFor(short events, Deadline deadline) const;

    int wakeDescriptor_;
    int socket_ = -1;
    QString host_;
    int port_ = 0;
    // Received bytes: an answer's head, then its body (de-chunked in place) from bodyStart_.
    QByteArray buffer_;
    qsizetype received_ = 0;
};
