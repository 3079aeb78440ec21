// The helper's HTTP answer read from bytes alone, as the connection reads what its socket
// receives. The input starts with the body's limit (one byte, an index into kLimits) and a
// count of read lengths (one byte, up to 7) followed by those lengths; the rest is the stream.
//
// The same bytes must give the same answer, or the same refusal, in one read and cut into
// reads of those lengths; no body may pass its limit; and an accepted answer's body must be
// exactly what a plain second reading of its framing finds.

#include <QByteArray>
#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_check.h"
#include "http_answer_reader.h"

namespace {

constexpr std::array<qsizetype, 6> kLimits = {0, 1, 16, 255, 4096, 1 << 20};

struct Read {
    std::optional<std::error_code> refusal;
    int status = 0;
    std::string body;
    bool keepAlive = false;

    bool operator==(const Read&) const = default;
};

// The stream handed to the reader in reads of the given lengths in turn (as much as there is
// room for, without lengths), then its end if the reader still wants more.
Read readIn(HttpAnswerReader& reader, std::string_view stream, qsizetype limit,
            const std::vector<std::size_t>& lengths) {
    reader.start(limit);
    HttpAnswerReader::Outcome outcome = HttpAnswerReader::NeedMore{};
    std::size_t at = 0;
    for (std::size_t turn = 0;
         at < stream.size() && std::holds_alternative<HttpAnswerReader::NeedMore>(outcome);
         ++turn) {
        const std::span<char> room = reader.room();
        FUZZ_CHECK(!room.empty());
        std::size_t count = std::min(stream.size() - at, room.size());
        if (!lengths.empty()) {
            count = std::min(count, lengths[turn % lengths.size()]);
        }
        std::copy_n(stream.data() + at, count, room.data());
        at += count;
        outcome = reader.received(static_cast<qsizetype>(count));
    }
    if (std::holds_alternative<HttpAnswerReader::NeedMore>(outcome)) {
        outcome = reader.received(0);
    }
    FUZZ_CHECK(!std::holds_alternative<HttpAnswerReader::NeedMore>(outcome));
    if (const auto* refusal = std::get_if<std::error_code>(&outcome)) {
        return {*refusal, 0, {}, false};
    }
    const auto& answer = std::get<HttpAnswer>(outcome);
    return {std::nullopt, answer.status, std::string(answer.body.data(), answer.body.size()),
            answer.keepAlive};
}

// --- the plain second reading: string operations on the whole stream -------------------

std::string lowered(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::string_view withoutBlanks(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The body of an answer the reader accepted, or nothing when this reading cannot find one.
struct Model {
    std::string body;
    bool untilClosed = false;
};

std::optional<Model> modelBody(std::string_view stream) {
    std::size_t at = 0;
    while (true) {
        const std::size_t headEnd = stream.find("\r\n\r\n", at);
        if (headEnd == std::string_view::npos) {
            return std::nullopt;
        }
        const std::string_view head = stream.substr(at, headEnd - at);
        at = headEnd + 4;
        const int status = std::stoi(std::string(head.substr(9, 3)));
        if (status < 200) {
            continue;  // an interim answer
        }
        std::optional<std::size_t> length;
        bool chunked = false;
        for (std::size_t line = head.find("\r\n"); line != std::string_view::npos;) {
            const std::size_t next = head.find("\r\n", line + 2);
            const std::string_view field = head.substr(line + 2, next - line - 2);
            line = next;
            const std::size_t colon = field.find(':');
            const std::string name = lowered(field.substr(0, colon));
            const std::string_view value = withoutBlanks(field.substr(colon + 1));
            if (name == "transfer-encoding") {
                chunked = true;
            } else if (name == "content-length") {
                length = std::stoull(std::string(value.substr(0, value.find(','))));
            }
        }
        if (status == 204 || status == 304) {
            return Model{};
        }
        if (chunked) {
            Model model;
            while (true) {
                const std::size_t lineEnd = stream.find("\r\n", at);
                const std::string_view sizeLine = stream.substr(at, lineEnd - at);
                const std::size_t size =
                    std::stoull(std::string(withoutBlanks(sizeLine.substr(0, sizeLine.find(';')))),
                                nullptr, 16);
                at = lineEnd + 2;
                if (size == 0) {
                    return model;
                }
                model.body += stream.substr(at, size);
                at += size + 2;
            }
        }
        if (length) {
            return Model{std::string(stream.substr(at, *length)), false};
        }
        return Model{std::string(stream.substr(at)), true};
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return -1;
    }
    const qsizetype limit = kLimits[data[0] % kLimits.size()];
    const std::size_t lengthCount = std::min<std::size_t>(data[1] % 8, size - 2);
    std::vector<std::size_t> lengths;
    for (std::size_t index = 0; index < lengthCount; ++index) {
        lengths.push_back(std::size_t(data[2 + index]) + 1);
    }
    const std::string_view stream(reinterpret_cast<const char*>(data) + 2 + lengthCount,
                                  size - 2 - lengthCount);

    static HttpAnswerReader reader;  // kept from input to input, as a connection keeps it
    const Read whole = readIn(reader, stream, limit, {});
    const Read inPieces = readIn(reader, stream, limit, lengths);
    FUZZ_CHECK(inPieces == whole);
    if (whole.refusal) {
        return 0;
    }
    FUZZ_CHECK(qsizetype(whole.body.size()) <= limit);
    FUZZ_CHECK(whole.status >= 200 && whole.status <= 999);
    const std::optional<Model> model = modelBody(stream);
    FUZZ_CHECK(model && model->body == whole.body);
    FUZZ_CHECK(!model->untilClosed || !whole.keepAlive);
    return 0;
}
