#pragma once

// A keep-alive HTTP/1.1 client connection on a plain socket, for POSTs to the helper's
// loopback endpoint. It is used from one thread at a time and blocks that thread for at most
// an exchange's time limit; a wake descriptor that becomes readable ends any wait at once.
// What comes back is read by an HttpAnswerReader, which keeps its buffer between exchanges.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <chrono>
#include <cstdint>
#include <variant>

#include "exchange.h"
#include "http_answer_reader.h"

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
    // The answer (its body valid until the next exchange), or why none came; receivedAny
    // tells whether the helper sent anything at all.
    std::variant<HttpAnswer, std::error_code> receive(const HttpLimits& limits, Deadline deadline,
                                                      bool& receivedAny);
    std::error_code waitFor(short events, Deadline deadline) const;

    int wakeDescriptor_;
    int socket_ = -1;
    QString host_;
    int port_ = 0;
    HttpAnswerReader reader_;
};
