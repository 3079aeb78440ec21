#include <algorithm>
#include <array>

#include "key_exchange.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool endsPlainString(unsigned char c) {
    return c == '"' || c == '\\' || c < 0x20 || c > 0x7E;
}

// The first byte from `from` on that ends a plain string or may not stand in one unescaped
// (a quote, a backslash, a control character or anything beyond ASCII); size when none. The
// ciphertext is megabytes long, so it is scanned sixteen bytes at a time.
qsizetype plainStringStop(const char* data, qsizetype from, qsizetype size) {
    qsizetype at = from;
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi8('"');
    const __m128i backslash = _mm_set1_epi8('\\');
    const __m128i space = _mm_set1_epi8(' ');
    const __m128i del = _mm_set1_epi8(0x7F);
    for (; at + 16 <= size; at += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + at));
        // As signed bytes, everything beyond ASCII is below the space too.
        const __m128i stops = _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, backslash)),
            _mm_or_si128(_mm_cmplt_epi8(bytes, space), _mm_cmpeq_epi8(bytes, del)));
        if (const int mask = _mm_movemask_epi8(stops); mask != 0) {
            return at + __builtin_ctz(static_cast<unsigned>(mask));
        }
    }
#endif
    for (; at < size; ++at) {
        if (endsPlainString(static_cast<unsigned char>(data[at]))) {
            return at;
        }
    }
    return size;
}

class PlainObjectReader {
public:
    explicit PlainObjectReader(QByteArrayView text) : text_(text) {}

    bool consume(char expected) {
        skipBlanks();
        if (at_ < text_.size() && text_[at_] == expected) {
            ++at_;
            return true;
        }
        return false;
    }

    std::optional<QByteArrayView> string() {
        if (!consume('"')) {
            return std::nullopt;
        }
        const qsizetype stop = plainStringStop(text_.data(), at_, text_.size());
        if (stop == text_.size() || text_[stop] != '"') {
            return std::nullopt;
        }
        const QByteArrayView value = text_.sliced(at_, stop - at_);
        at_ = stop + 1;
        return value;
    }

    bool atEnd() {
        skipBlanks();
        return at_ == text_.size();
    }

private:
    void skipBlanks() {
        while (at_ < text_.size() && isBlank(text_[at_])) {
            ++at_;
        }
    }

    QByteArrayView text_;
    qsizetype at_ = 0;
};

}  // namespace

std::optional<KeyExchangeEnvelopeText> KeyExchangeReadEnvelopeText(QByteArrayView json) {
    static constexpr std::array<QByteArrayView, 4> kKeys = {"KDFNonce", "Ciphertext", "AEADNonce",
                                                            "AdditionalData"};
    std::array<std::optional<QByteArrayView>, 4> fields;
    PlainObjectReader reader(json);
    if (!reader.consume('{')) {
        return std::nullopt;
    }
    // Exactly the four members: any other member, or a key twice, is left to the full reading,
    // which alone decides what such text means.
    for (std::size_t member = 0; member < kKeys.size(); ++member) {
        if (member > 0 && !reader.consume(',')) {
            return std::nullopt;
        }
        const std::optional<QByteArrayView> key = reader.string();
        if (!key || !reader.consume(':')) {
            return std::nullopt;
        }
        const auto known = std::find(kKeys.begin(), kKeys.end(), *key);
        if (known == kKeys.end()) {
            return std::nullopt;
        }
        auto& field = fields[static_cast<std::size_t>(known - kKeys.begin())];
        if (field) {
            return std::nullopt;
        }
        field = reader.string();
        if (!field) {
            return std::nullopt;
        }
    }
    if (!reader.consume('}') || !reader.atEnd()) {
        return std::nullopt;
    }
    return KeyExchangeEnvelopeText{*fields[0], *fields[1], *fields[2], *fields[3]};
}
