// PEMFromString and PEMSearchString on arbitrary text, held to a plain model of the
// block extraction written here from scratch.

#include <QString>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <system_error>

#include "fuzz_check.h"
#include "key_exchange/key_exchange.h"

namespace {

const QString kBegin = QStringLiteral("-----BEGIN PUBLIC KEY-----");
const QString kBeginLine = kBegin + QLatin1Char('\n');
const QString kEndLine = QStringLiteral("\n-----END PUBLIC KEY-----");

// A BEGIN marker that is nowhere followed by a line feed leaves nothing after the first
// split, and the package stops the program on purpose there. Such text is not a finding.
bool reachesDeliberateStop(const QString& text) {
    return text.contains(kBegin) && !text.contains(kBeginLine);
}

// The body between the first "BEGIN...\n" and either the next one or the first
// "\nEND..." after it, whichever the splits meet first; nothing when that is empty.
std::optional<QString> modelBody(const QString& text) {
    const qsizetype begin = text.indexOf(kBeginLine);
    if (begin < 0) {
        return std::nullopt;
    }
    const qsizetype start = begin + kBeginLine.size();
    const qsizetype nextBegin = text.indexOf(kBeginLine, start);
    // mid() and left() keep everything when given a negative length.
    const QString piece = text.mid(start, nextBegin < 0 ? -1 : nextBegin - start);
    const QString body = piece.left(piece.indexOf(kEndLine));
    return body.isEmpty() ? std::nullopt : std::optional(body);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (reachesDeliberateStop(text)) {
        return -1;
    }

    std::optional<QString> body;
    try {
        body = PEMFromString(text);
    } catch (const std::system_error& refusal) {
        FUZZ_CHECK(refusal.code() == PEMError::doesNotExist);
    }
    FUZZ_CHECK(body == modelBody(text));
    FUZZ_CHECK(PEMSearchString(text) == body);
    return 0;
}
