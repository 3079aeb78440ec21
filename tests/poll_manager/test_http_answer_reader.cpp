// Reading an HTTP answer from bytes alone: each framing gives exactly its body, however the
// bytes are cut into reads; what two readers could take two ways is refused; heads, trailers
// and bodies stay within their limits.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "http_answer_reader.h"
#include "poll_manager/exchange.h"

namespace {

constexpr qsizetype kLimit = 1000;

// What a reader made of some bytes: an answer or the refusal's text.
struct Read {
    int status = 0;
    std::string body{};
    bool keepAlive = false;
    bool beyondAnswer = false;
    std::string refusal{};

    bool operator==(const Read&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Read& read) {
    if (!read.refusal.empty()) {
        return out << "refused: " << read.refusal;
    }
    return out << read.status << " \"" << read.body << "\"" << (read.keepAlive ? " keep" : "")
               << (read.beyondAnswer ? " +beyond" : "");
}

// The bytes handed over `cut` at a time (as many as there is room for when 0), then the end
// of the stream if the reader still wants more.
Read readIn(HttpAnswerReader& reader, const std::string& bytes, std::size_t cut = 0,
            qsizetype limit = kLimit) {
    reader.start(limit);
    const std::size_t step = cut == 0 ? bytes.size() : cut;
    HttpAnswerReader::Outcome outcome = HttpAnswerReader::NeedMore{};
    for (std::size_t at = 0;
         at < bytes.size() && std::holds_alternative<HttpAnswerReader::NeedMore>(outcome);) {
        const std::span<char> room = reader.room();
        const std::size_t count = std::min({step, bytes.size() - at, room.size()});
        std::copy_n(bytes.data() + at, count, room.data());
        at += count;
        outcome = reader.received(static_cast<qsizetype>(count));
    }
    if (std::holds_alternative<HttpAnswerReader::NeedMore>(outcome)) {
        outcome = reader.received(0);
    }
    if (const auto* refusal = std::get_if<std::error_code>(&outcome)) {
        return {.refusal = refusal->message()};
    }
    const auto& answer = std::get<HttpAnswer>(outcome);
    return {answer.status, answer.body.toByteArray().toStdString(), answer.keepAlive,
            reader.receivedBeyondAnswer()};
}

// The same for every cut from one byte at a time to all at once.
Read read(const std::string& bytes, qsizetype limit = kLimit) {
    HttpAnswerReader reader;
    const Read whole = readIn(reader, bytes, 0, limit);
    for (std::size_t cut : {1, 2, 3, 7, 64}) {
        Read inPieces = readIn(reader, bytes, cut, limit);
        // Bytes past the answer are only seen when they came in the same read.
        inPieces.beyondAnswer = whole.beyondAnswer;
        EXPECT_EQ(inPieces, whole) << "cut into reads of " << cut;
    }
    return whole;
}

Read answer(int status, const std::string& body, bool keepAlive = true, bool beyond = false) {
    return {status, body, keepAlive, beyond, {}};
}

Read refused(TransportError error) {
    return {.refusal = make_error_code(error).message()};
}

std::string lines(int count, const std::string& line) {
    std::string text;
    for (int index = 0; index < count; ++index) {
        text += line + std::to_string(index) + "\r\n";
    }
    return text;
}

}  // namespace

TEST(HttpAnswerReader, EachFramingGivesExactlyItsBody) {
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello"), answer(200, "hello"));
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\ncontent-length:   3\t\r\n\r\nabc"), answer(200, "abc"));
    // Chunks with an extension, an empty chunk's end, and a trailer read past.
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                   "5;name=value\r\nhello\r\n9 \r\n, 0123456\r\n0\r\nX-Sum: 1\r\n\r\n"),
              answer(200, "hello, 0123456"));
    // Without a length the body ends with the connection, which then cannot be kept.
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\n\r\nuntil the end"), answer(200, "until the end", false));
    EXPECT_EQ(read("HTTP/1.0 200 OK\r\n\r\nold"), answer(200, "old", false));
    // No body whatever the head says.
    EXPECT_EQ(read("HTTP/1.1 204 No Content\r\nContent-Length: 4\r\n\r\n"), answer(204, ""));
    EXPECT_EQ(read("HTTP/1.1 304 Not Modified\r\n\r\n"), answer(304, ""));
    // Interim answers come first and are passed over, fields and all.
    EXPECT_EQ(read("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: </x>\r\n\r\n"
                   "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"),
              answer(200, "ok"));
    // A status without a reason, and one the client does not know, are still answers.
    EXPECT_EQ(read("HTTP/1.1 500\r\nContent-Length: 0\r\n\r\n"), answer(500, ""));
    EXPECT_EQ(read("HTTP/1.1 299 Whatever\r\nContent-Length: 1\r\n\r\nx"), answer(299, "x"));
}

TEST(HttpAnswerReader, TheConnectionIsKeptOnlyWhereTheAnswerAllows) {
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 1\r\n\r\nx"),
              answer(200, "x", false));
    EXPECT_EQ(read("HTTP/1.0 200 OK\r\nContent-Length: 1\r\n\r\nx"), answer(200, "x", false));
    EXPECT_EQ(read("HTTP/1.0 200 OK\r\nConnection: Keep-Alive\r\nContent-Length: 1\r\n\r\nx"),
              answer(200, "x", true));
    EXPECT_EQ(read("HTTP/1.0 200 OK\r\nConnection: keep-alive\r\n\r\nrest"),
              answer(200, "rest", false));
    // Framed both ways: the chunks are read, and the connection is not trusted again.
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\nContent-Length: 3\r\nTransfer-Encoding: chunked\r\n\r\n"
                   "5\r\nchunk\r\n0\r\n\r\n"),
              answer(200, "chunk", false));
    // Bytes after the answer would be read as the next one's start.
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nxHTTP/1.1"),
              answer(200, "x", true, true));
}

TEST(HttpAnswerReader, FramingThatCouldBeReadTwoWaysIsRefused) {
    const Read malformed = refused(TransportError::malformedAnswer);
    for (const char* head : {
             "HTTP/1.1 200 OK\r\nContent-Length : 1\r\n\r\nx",  // blank before the colon
             "HTTP/1.1 200 OK\r\nX: a\r\n folded: 1\r\nContent-Length: 1\r\n\r\nx",  // obs-fold
             "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\tContent-Length: 2\r\n\r\nx",
             "HTTP/1.1 200 OK\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nxy",
             "HTTP/1.1 200 OK\r\nContent-Length: 1, 2\r\n\r\nxy",
             "HTTP/1.1 200 OK\r\nContent-Length: +1\r\n\r\nx",
             "HTTP/1.1 200 OK\r\nContent-Length: \r\n\r\nx",
             "HTTP/1.1 200 OK\r\nContent-Length: 0x1\r\n\r\nx",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n",
             "HTTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
             "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 1\r\n\r\nx",
             "HTTP/1.1 200 OK\r\nX: a\rb\r\nContent-Length: 1\r\n\r\nx",  // a bare CR
             "HTTP/1.1 200 OK\r\nno colon\r\n\r\n",
             "HTTP/1.1 101 Switching Protocols\r\nUpgrade: x\r\n\r\n",
             "HTTP/2 200 OK\r\n\r\n",
             "HTTP/1.1 99 Low\r\n\r\n",
             "SSH-2.0-OpenSSH\r\n\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nz\r\n",
             // A trailer's lines are held to the head's rules.
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nT: a\r\n b\r\n\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nT : a\r\n\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nno colon\r\n\r\n",
             "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nxy\r\n0\r\n\r\n",
         }) {
        EXPECT_EQ(read(head), malformed) << head;
    }
    // The same length twice, as fields or as a list, is one length.
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 2, 2\r\n\r\nab"),
              answer(200, "ab"));
}

TEST(HttpAnswerReader, HeadsFieldsAndTrailersHaveLimitsThatNoCutMoves) {
    const Read malformed = refused(TransportError::malformedAnswer);
    const std::string status = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n";
    EXPECT_EQ(read(status + lines(HttpAnswerReader::kMaxFieldLines - 1, "X: ") + "\r\n"),
              answer(200, ""));
    EXPECT_EQ(read(status + lines(HttpAnswerReader::kMaxFieldLines, "X: ") + "\r\n"), malformed);

    const std::string chunked =
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n";
    EXPECT_EQ(read(chunked + lines(HttpAnswerReader::kMaxTrailerLines, "T: ") + "\r\n"),
              answer(200, "x"));
    EXPECT_EQ(read(chunked + lines(HttpAnswerReader::kMaxTrailerLines + 1, "T: ") + "\r\n"),
              malformed);
    // A chunk's size line, extensions and all, fits in the limit with its CRLF.
    const auto sizeLine = [](qsizetype size) {
        return "1;" + std::string(std::size_t(size) - 4, 'e') + "\r\nx\r\n0\r\n\r\n";
    };
    const std::string chunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    EXPECT_EQ(read(chunkedHead + sizeLine(HttpAnswerReader::kMaxChunkLineBytes)), answer(200, "x"));
    EXPECT_EQ(read(chunkedHead + sizeLine(HttpAnswerReader::kMaxChunkLineBytes + 1)), malformed);

    // A head of exactly the limit is read; one byte more is not, even when its end comes
    // in the same read as the rest.
    const auto headOf = [&](qsizetype size) {
        std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nX: ";
        head += std::string(std::size_t(size) - head.size() - 4, 'p') + "\r\n\r\n";
        return head;
    };
    EXPECT_EQ(read(headOf(HttpAnswerReader::kMaxHeadBytes)), answer(200, ""));
    EXPECT_EQ(read(headOf(HttpAnswerReader::kMaxHeadBytes + 1)), malformed);
    // Interim heads count towards it: they cannot be sent for ever.
    std::string interims;
    while (interims.size() < std::size_t(HttpAnswerReader::kMaxHeadBytes)) {
        interims += "HTTP/1.1 100 Continue\r\n\r\n";
    }
    EXPECT_EQ(read(interims + "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"), malformed);
}

TEST(HttpAnswerReader, NoBodyGrowsPastItsLimitAndAnEarlyEndLosesTheAnswer) {
    const Read tooLarge = refused(TransportError::answerTooLarge);
    const std::string full(kLimit, 'b');
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + full), answer(200, full));
    // Refused from the head alone, before any of the body.
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\nContent-Length: 1001\r\n\r\n"), tooLarge);
    const std::string chunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    EXPECT_EQ(read(chunkedHead + "3e8\r\n" + full + "\r\n0\r\n\r\n"), answer(200, full));
    // Refused at the size of the chunk that would pass it, before its bytes.
    EXPECT_EQ(read(chunkedHead + "3e7\r\n" + full.substr(1) + "\r\n2\r\n"), tooLarge);
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\n\r\n" + full), answer(200, full, false));
    EXPECT_EQ(read("HTTP/1.1 200 OK\r\n\r\n" + full + "b"), tooLarge);

    const Read lost = refused(TransportError::connectionLost);
    for (const char* cutShort :
         {"", "HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nab",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nab",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n",
          "HTTP/1.1 100 Continue\r\n\r\n"}) {
        EXPECT_EQ(read(cutShort), lost) << cutShort;
    }
}

TEST(HttpAnswerReader, OneReaderReadsAnswerAfterAnswerAndGivesBackALargeBuffer) {
    HttpAnswerReader reader;
    const std::string large(3 * 1024 * 1024, 'L');
    EXPECT_EQ(readIn(reader,
                     "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(large.size()) +
                         "\r\n\r\n" + large,
                     0, 8 * 1024 * 1024)
                  .body.size(),
              large.size());
    EXPECT_EQ(readIn(reader, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"), answer(200, "ok"));
    EXPECT_EQ(readIn(reader, "HTTP/1.1 200 OK\r\n\r\n" + std::string(kLimit + 1, 'x')),
              refused(TransportError::answerTooLarge));
    reader.releaseLargeBuffer();
    EXPECT_EQ(readIn(reader, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"), answer(200, "ok"));
}
