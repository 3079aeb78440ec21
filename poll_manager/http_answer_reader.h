#pragma once

// Reads one HTTP/1.x answer from bytes as they arrive, without touching a socket: the
// connection receives into the room the reader gives and says how much came. Whatever the
// bytes and however they are cut into reads, the same bytes give the same answer or the same
// refusal, and a body never grows past its limit.
//
// The bytes go into one buffer that is kept from answer to answer, so a large answer ten
// times a second costs no fresh allocation. A body is read where it arrives: a chunked one
// is joined in place.

#include <QByteArray>
#include <QByteArrayView>
#include <span>
#include <system_error>
#include <variant>

struct HttpAnswer {
    int status = 0;
    // Valid until the reader starts on the next answer.
    QByteArrayView body;
    // What the answer's head and framing say: the connection may carry another exchange.
    bool keepAlive = true;
};

class HttpAnswerReader {
public:
    struct NeedMore {};
    // An answer, more bytes wanted, or why what came is no answer (a TransportError).
    using Outcome = std::variant<NeedMore, HttpAnswer, std::error_code>;

    // An answer's head is a status line and a few fields; anything longer is not our helper.
    static constexpr qsizetype kMaxHeadBytes = 64 * 1024;
    static constexpr qsizetype kMaxFieldLines = 100;
    static constexpr qsizetype kMaxTrailerLines = 100;
    // A chunk's size line, or a trailer line, with its CRLF.
    static constexpr qsizetype kMaxChunkLineBytes = 1024;

    // Forgets the last answer and reads the next one, whose body may hold at most
    // maxBodyBytes.
    void start(qsizetype maxBodyBytes);
    // Where the next bytes go: free room at the end of what was received.
    std::span<char> room();
    // count bytes were written at the start of room(); 0 means the stream ended.
    Outcome received(qsizetype count);
    // The answer was followed by bytes nobody asked for yet: the connection cannot be reused.
    bool receivedBeyondAnswer() const { return received_ > parsed_; }
    // Gives back the memory of a buffer that a refused answer grew far beyond what answers need.
    void releaseLargeBuffer();

private:
    enum class Stage { head, length, chunkSize, chunkData, chunkEnd, trailer, untilClosed, done };

    Outcome parse(bool streamEnded);
    Outcome parseHead(bool streamEnded);
    Outcome parseChunked(bool streamEnded);
    Outcome finish();
    Outcome refuse(std::error_code error);

    QByteArray buffer_;
    qsizetype maxBodyBytes_ = 0;
    qsizetype received_ = 0;
    // Everything before it is read; the body lies from bodyStart_ to bodyEnd_.
    qsizetype parsed_ = 0;
    qsizetype bodyStart_ = 0;
    qsizetype bodyEnd_ = 0;
    qsizetype headBytes_ = 0;  // of every head so far, interim answers' included
    qsizetype searched_ = 0;   // of the bytes after parsed_, for the end of a head or line
    qsizetype chunkLeft_ = 0;
    qsizetype trailerLines_ = 0;
    Stage stage_ = Stage::head;
    HttpAnswer answer_;
    std::error_code refusal_;
};
