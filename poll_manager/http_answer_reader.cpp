#include "http_answer_reader.h"

#include <QtGlobal>
#include <algorithm>
#include <cstring>
#include <optional>

#include "exchange.h"

namespace {

// Room made for each read when the size of what comes is not known.
constexpr qsizetype kReadStep = 64 * 1024;
constexpr qsizetype kReleasedBufferBytes = 4 * 1024 * 1024;
constexpr QByteArrayView kLineEnd = "\r\n";

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// Without the blanks (spaces and tabs only) at either end.
QByteArrayView trimBlanks(QByteArrayView text) {
    while (!text.isEmpty() && isBlank(text.front())) {
        text = text.sliced(1);
    }
    while (!text.isEmpty() && isBlank(text.back())) {
        text.chop(1);
    }
    return text;
}

// Digits only, of which there are few enough that no size can overflow.
std::optional<qsizetype> parseNumber(QByteArrayView text, int base) {
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

bool isTokenCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::strchr("!#$%&'*+-.^_`|~", c) != nullptr;
}

bool isToken(QByteArrayView text) {
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

// Visible characters, blanks and bytes above ASCII: no control character, so no bare CR or LF.
bool isFieldValue(QByteArrayView text) {
    return std::none_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7F;
    });
}

// "name: value" with the name a token right against its colon, and a value of visible
// characters, or nothing. A line that starts with a blank continues the one before
// (obs-fold), and blanks before the colon make the name unclear. The RFC lets a user agent
// repair obs-fold, but both are where two readers of the same bytes come to disagree on the
// framing, and our helper never sends either: they are refused rather than repaired, in the
// head and in a chunked body's trailer alike.
struct Field {
    QByteArrayView name;
    QByteArrayView value;  // without its blanks
};

std::optional<Field> parseField(QByteArrayView line) {
    const qsizetype colon = line.indexOf(':');
    if (colon < 0 || !isToken(line.first(colon))) {
        return std::nullopt;
    }
    const Field field{line.first(colon), trimBlanks(line.sliced(colon + 1))};
    if (!isFieldValue(field.value)) {
        return std::nullopt;
    }
    return field;
}

// Calls each(element) for the comma-separated elements of a field value, each without its
// blanks; stops at the first for which each returns false, and returns whether none did.
template <typename Each>
bool eachListElement(QByteArrayView list, Each each) {
    while (true) {
        const qsizetype comma = list.indexOf(',');
        if (!each(trimBlanks(comma < 0 ? list : list.first(comma)))) {
            return false;
        }
        if (comma < 0) {
            return true;
        }
        list = list.sliced(comma + 1);
    }
}

bool sameToken(QByteArrayView a, QByteArrayView b) {
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

bool listHasToken(QByteArrayView list, QByteArrayView token) {
    return !eachListElement(list,
                            [&](QByteArrayView element) { return !sameToken(element, token); });
}

enum class Framing { none, length, chunked, untilClosed };

struct AnswerHead {
    int status = 0;
    Framing framing = Framing::untilClosed;
    qsizetype contentLength = 0;
    bool keepAlive = true;
};

// The status line and fields of one head (ending with its empty line), or nothing when they
// are not an answer this client can read without guessing.
std::optional<AnswerHead> parseHead(QByteArrayView head) {
    qsizetype lineEnd = head.indexOf(kLineEnd);
    const QByteArrayView statusLine = head.first(lineEnd);
    // "HTTP/1.x SSS reason", the reason free to be empty or missing.
    if (statusLine.size() < 12 || !statusLine.startsWith("HTTP/1.") || statusLine[8] != ' ' ||
        (statusLine[7] != '0' && statusLine[7] != '1') ||
        (statusLine.size() > 12 && statusLine[12] != ' ') || !isFieldValue(statusLine)) {
        return std::nullopt;
    }
    const std::optional<qsizetype> status = parseNumber(statusLine.sliced(9, 3), 10);
    if (!status || *status < 100) {
        return std::nullopt;
    }
    const bool http10 = statusLine[7] == '0';
    AnswerHead parsed;
    parsed.status = static_cast<int>(*status);
    std::optional<qsizetype> contentLength;
    bool chunked = false;
    bool transferEncoding = false;
    bool keepAliveAsked = false;
    bool closeAsked = false;

    qsizetype fieldLines = 0;
    for (qsizetype start = lineEnd + 2;; start = lineEnd + 2) {
        lineEnd = head.indexOf(kLineEnd, start);
        const QByteArrayView line = head.sliced(start, lineEnd - start);
        if (line.isEmpty()) {
            break;
        }
        if (++fieldLines > HttpAnswerReader::kMaxFieldLines) {
            return std::nullopt;
        }
        const std::optional<Field> field = parseField(line);
        if (!field) {
            return std::nullopt;
        }
        const QByteArrayView name = field->name;
        const QByteArrayView value = field->value;
        if (sameToken(name, "Content-Length")) {
            // Repeats of one length (as fields or as a list) are one length; two are none.
            const bool oneLength = eachListElement(value, [&](QByteArrayView element) {
                const std::optional<qsizetype> length = parseNumber(element, 10);
                if (!length || (contentLength && *contentLength != *length)) {
                    return false;
                }
                contentLength = length;
                return true;
            });
            if (!oneLength) {
                return std::nullopt;
            }
        } else if (sameToken(name, "Transfer-Encoding")) {
            // Only chunked is asked for and read, and once: any other coding, or chunked
            // twice, is not.
            if (transferEncoding || !sameToken(value, "chunked")) {
                return std::nullopt;
            }
            transferEncoding = chunked = true;
        } else if (sameToken(name, "Content-Encoding")) {
            if (!sameToken(value, "identity")) {
                return std::nullopt;
            }
        } else if (sameToken(name, "Connection")) {
            closeAsked = closeAsked || listHasToken(value, "close");
            keepAliveAsked = keepAliveAsked || listHasToken(value, "keep-alive");
        }
    }
    // HTTP/1.0 knows no transfer coding: such an answer's framing cannot be trusted.
    if (http10 && transferEncoding) {
        return std::nullopt;
    }
    parsed.keepAlive = !closeAsked && (!http10 || keepAliveAsked);
    if (parsed.status < 200 || parsed.status == 204 || parsed.status == 304) {
        parsed.framing = Framing::none;
    } else if (chunked) {
        parsed.framing = Framing::chunked;
        // Framed both ways: someone in between may have read it the other way, so the
        // connection is not trusted with another exchange.
        parsed.keepAlive = parsed.keepAlive && !contentLength;
    } else if (contentLength) {
        parsed.framing = Framing::length;
        parsed.contentLength = *contentLength;
    } else {
        parsed.framing = Framing::untilClosed;
        parsed.keepAlive = false;
    }
    return parsed;
}

// Where `end` first stands in `text`, or -1 while it may still come; text that reaches
// `limit` bytes without it is the caller's to refuse. Only the first `limit` bytes are
// searched, so how the bytes were cut into reads never decides. The first `searched` bytes
// were searched before, and are not again.
qsizetype lineEndWithin(QByteArrayView text, QByteArrayView end, qsizetype limit,
                        qsizetype& searched, bool& tooLong) {
    const QByteArrayView searchable = text.first(std::min(text.size(), limit));
    const qsizetype found =
        searchable.indexOf(end, std::max<qsizetype>(0, searched - (end.size() - 1)));
    searched = found < 0 ? searchable.size() : 0;
    tooLong = found < 0 && text.size() >= limit;
    return found;
}

}  // namespace

void HttpAnswerReader::start(qsizetype maxBodyBytes) {
    maxBodyBytes_ = maxBodyBytes;
    received_ = parsed_ = bodyStart_ = bodyEnd_ = headBytes_ = searched_ = chunkLeft_ = 0;
    trailerLines_ = 0;
    stage_ = Stage::head;
    answer_ = {};
    refusal_ = {};
}

std::span<char> HttpAnswerReader::room() {
    // A body of known length is read in one piece, where it will be handed over.
    const qsizetype wanted =
        stage_ == Stage::length ? std::max(bodyEnd_ - received_, kReadStep / 4) : kReadStep / 4;
    if (buffer_.size() - received_ < wanted) {
        buffer_.resize(std::max(buffer_.size() * 2, received_ + std::max(wanted, kReadStep)));
    }
    return {buffer_.data() + received_, static_cast<std::size_t>(buffer_.size() - received_)};
}

HttpAnswerReader::Outcome HttpAnswerReader::received(qsizetype count) {
    if (stage_ == Stage::done) {
        return refusal_ ? Outcome(refusal_) : Outcome(answer_);
    }
    received_ += count;
    return parse(count == 0);
}

void HttpAnswerReader::releaseLargeBuffer() {
    if (buffer_.size() > kReleasedBufferBytes) {
        buffer_ = QByteArray();
        received_ = parsed_ = bodyStart_ = bodyEnd_ = 0;
    }
}

HttpAnswerReader::Outcome HttpAnswerReader::refuse(std::error_code error) {
    stage_ = Stage::done;
    refusal_ = error;
    return error;
}

HttpAnswerReader::Outcome HttpAnswerReader::finish() {
    stage_ = Stage::done;
    answer_.body = QByteArrayView(buffer_.constData() + bodyStart_, bodyEnd_ - bodyStart_);
    return answer_;
}

HttpAnswerReader::Outcome HttpAnswerReader::parse(bool streamEnded) {
    while (true) {
        switch (stage_) {
            case Stage::head: {
                const Outcome outcome = parseHead(streamEnded);
                if (!std::holds_alternative<NeedMore>(outcome) || stage_ == Stage::head) {
                    return outcome;
                }
                break;
            }
            case Stage::length:
                if (received_ < bodyEnd_) {
                    return streamEnded ? refuse(TransportError::connectionLost) : NeedMore{};
                }
                parsed_ = bodyEnd_;
                return finish();
            case Stage::untilClosed:
                if (received_ - bodyStart_ > maxBodyBytes_) {
                    return refuse(TransportError::answerTooLarge);
                }
                if (!streamEnded) {
                    return NeedMore{};
                }
                parsed_ = bodyEnd_ = received_;
                return finish();
            case Stage::chunkSize:
            case Stage::chunkData:
            case Stage::chunkEnd:
            case Stage::trailer:
                return parseChunked(streamEnded);
            case Stage::done:
                return refusal_ ? Outcome(refusal_) : Outcome(answer_);
        }
    }
}

HttpAnswerReader::Outcome HttpAnswerReader::parseHead(bool streamEnded) {
    // Interim answers (100 Continue and the like) come before the real one, each with a head
    // of its own and no body; all the heads together are held to the head's limit.
    while (true) {
        const QByteArrayView unparsed(buffer_.constData() + parsed_, received_ - parsed_);
        bool tooLong = false;
        const qsizetype end =
            lineEndWithin(unparsed, "\r\n\r\n", kMaxHeadBytes - headBytes_, searched_, tooLong);
        if (tooLong) {
            return refuse(TransportError::malformedAnswer);
        }
        if (end < 0) {
            return streamEnded ? refuse(TransportError::connectionLost) : NeedMore{};
        }
        const std::optional<AnswerHead> head = ::parseHead(unparsed.first(end + 4));
        // 101 would switch protocols, which this client never asks for.
        if (!head || head->status == 101) {
            return refuse(TransportError::malformedAnswer);
        }
        headBytes_ += end + 4;
        parsed_ += end + 4;
        if (head->status >= 200) {
            answer_.status = head->status;
            answer_.keepAlive = head->keepAlive;
            bodyStart_ = bodyEnd_ = parsed_;
            switch (head->framing) {
                case Framing::none:
                    return finish();
                case Framing::length:
                    if (head->contentLength > maxBodyBytes_) {
                        return refuse(TransportError::answerTooLarge);
                    }
                    bodyEnd_ = bodyStart_ + head->contentLength;
                    stage_ = Stage::length;
                    break;
                case Framing::chunked:
                    stage_ = Stage::chunkSize;
                    break;
                case Framing::untilClosed:
                    stage_ = Stage::untilClosed;
                    break;
            }
            return NeedMore{};
        }
    }
}

HttpAnswerReader::Outcome HttpAnswerReader::parseChunked(bool streamEnded) {
    // Each chunk's bytes move down to the end of the body so far, so that the body ends up
    // whole where it began.
    while (true) {
        char* bytes = buffer_.data();
        const QByteArrayView unparsed(bytes + parsed_, received_ - parsed_);
        bool needMore = false;
        switch (stage_) {
            case Stage::chunkSize:
            case Stage::trailer: {
                bool tooLong = false;
                const qsizetype lineEnd =
                    lineEndWithin(unparsed, kLineEnd, kMaxChunkLineBytes, searched_, tooLong);
                if (tooLong) {
                    return refuse(TransportError::malformedAnswer);
                }
                if (lineEnd < 0) {
                    needMore = true;
                    break;
                }
                const QByteArrayView line = unparsed.first(lineEnd);
                parsed_ += lineEnd + 2;
                if (stage_ == Stage::trailer) {
                    if (line.isEmpty()) {
                        return finish();
                    }
                    // Trailer fields are read past, not used; there may not be many.
                    if (++trailerLines_ > kMaxTrailerLines || !parseField(line)) {
                        return refuse(TransportError::malformedAnswer);
                    }
                    break;
                }
                // The size, then any extensions, which are read past.
                const qsizetype extension = line.indexOf(';');
                const std::optional<qsizetype> size =
                    parseNumber(trimBlanks(extension < 0 ? line : line.first(extension)), 16);
                if (!size || !isFieldValue(line)) {
                    return refuse(TransportError::malformedAnswer);
                }
                if (*size > maxBodyBytes_ - (bodyEnd_ - bodyStart_)) {
                    return refuse(TransportError::answerTooLarge);
                }
                chunkLeft_ = *size;
                stage_ = *size == 0 ? Stage::trailer : Stage::chunkData;
                break;
            }
            case Stage::chunkData: {
                const qsizetype take = std::min(chunkLeft_, unparsed.size());
                if (take == 0) {
                    needMore = true;
                    break;
                }
                std::memmove(bytes + bodyEnd_, bytes + parsed_, std::size_t(take));
                bodyEnd_ += take;
                parsed_ += take;
                chunkLeft_ -= take;
                if (chunkLeft_ == 0) {
                    stage_ = Stage::chunkEnd;
                }
                break;
            }
            case Stage::chunkEnd:
                if (unparsed.size() < 2) {
                    needMore = true;
                } else if (!unparsed.startsWith(kLineEnd)) {
                    return refuse(TransportError::malformedAnswer);
                } else {
                    parsed_ += 2;
                    stage_ = Stage::chunkSize;
                }
                break;
            default:
                Q_UNREACHABLE();
        }
        if (!needMore) {
            continue;
        }
        if (streamEnded) {
            return refuse(TransportError::connectionLost);
        }
        // What is not parsed yet moves down behind the body, so that the buffer holds little
        // more than the body itself.
        std::memmove(bytes + bodyEnd_, bytes + parsed_, std::size_t(received_ - parsed_));
        received_ -= parsed_ - bodyEnd_;
        parsed_ = bodyEnd_;
        return NeedMore{};
    }
}
