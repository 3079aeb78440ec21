#include "base64.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Every 12-bit value as its two characters, so one lookup writes half a group.
constexpr auto kPairs = [] {
    std::array<std::array<char16_t, 2>, 4096> pairs{};
    for (unsigned value = 0; value < 4096; ++value) {
        pairs[value] = {static_cast<char16_t>(kAlphabet[value >> 6]),
                        static_cast<char16_t>(kAlphabet[value & 0x3F])};
    }
    return pairs;
}();

// Each character's six bits already shifted to their place in the 24-bit group; a character
// outside the alphabet sets bits above the group instead, so one test after the four lookups
// finds it.
constexpr std::uint32_t kInvalid = 0xFF000000u;

constexpr std::array<std::uint32_t, 256> shiftedTable(int shift) {
    std::array<std::uint32_t, 256> table{};
    table.fill(kInvalid);
    for (std::uint32_t value = 0; value < 64; ++value) {
        table[static_cast<unsigned char>(kAlphabet[value])] = value << shift;
    }
    return table;
}

constexpr auto kDecode0 = shiftedTable(18);
constexpr auto kDecode1 = shiftedTable(12);
constexpr auto kDecode2 = shiftedTable(6);
constexpr auto kDecode3 = shiftedTable(0);

// The group's 24 bits, or a value with bits above them set when a character is not in the
// alphabet; characters beyond one byte never reach the tables.
inline std::uint32_t decodeGroup(const char16_t* in) {
    const char16_t a = in[0], b = in[1], c = in[2], d = in[3];
    if (((a | b | c | d) >> 8) != 0) {
        return kInvalid;
    }
    return kDecode0[a] | kDecode1[b] | kDecode2[c] | kDecode3[d];
}

inline void writePair(char16_t* out, std::uint32_t twelveBits) {
    std::memcpy(out, kPairs[twelveBits].data(), sizeof(char16_t) * 2);
}

}  // namespace

namespace base64_detail {

void EncodeGroupsScalar(const unsigned char* in, qsizetype groupCount, char16_t* out) {
    for (qsizetype group = 0; group < groupCount; ++group, in += 3, out += 4) {
        const std::uint32_t bits =
            (std::uint32_t{in[0]} << 16) | (std::uint32_t{in[1]} << 8) | in[2];
        writePair(out, bits >> 12);
        writePair(out + 2, bits & 0xFFF);
    }
}

bool DecodeGroupsScalar(const char16_t* in, qsizetype groupCount, unsigned char* out) {
    for (qsizetype group = 0; group < groupCount; ++group, in += 4, out += 3) {
        const std::uint32_t bits = decodeGroup(in);
        if ((bits >> 24) != 0) {
            return false;
        }
        out[0] = static_cast<unsigned char>(bits >> 16);
        out[1] = static_cast<unsigned char>(bits >> 8);
        out[2] = static_cast<unsigned char>(bits);
    }
    return true;
}

bool CpuHasAvx2() {
#if defined(__x86_64__) || defined(__i386__)
    static const bool hasAvx2 = __builtin_cpu_supports("avx2");
    return hasAvx2;
#else
    return false;
#endif
}

}  // namespace base64_detail

namespace {

struct GroupCoder {
    void (*encode)(const unsigned char*, qsizetype, char16_t*);
    bool (*decode)(const char16_t*, qsizetype, unsigned char*);
};

// The widest coder the processor runs, chosen on first use.
const GroupCoder& activeCoder() {
    static const GroupCoder coder = [] {
        if (base64_detail::CpuHasAvx512Vbmi()) {
            return GroupCoder{base64_detail::EncodeGroupsAvx512, base64_detail::DecodeGroupsAvx512};
        }
        if (base64_detail::CpuHasAvx2()) {
            return GroupCoder{base64_detail::EncodeGroupsAvx2, base64_detail::DecodeGroupsAvx2};
        }
        return GroupCoder{base64_detail::EncodeGroupsScalar, base64_detail::DecodeGroupsScalar};
    }();
    return coder;
}

}  // namespace

void Base64EncodeGroups(const unsigned char* in, qsizetype groupCount, char16_t* out) {
    activeCoder().encode(in, groupCount, out);
}

qsizetype Base64EncodeLastGroup(const unsigned char* in, qsizetype byteCount, char16_t* out) {
    if (byteCount == 0) {
        return 0;
    }
    const std::uint32_t second = byteCount == 2 ? in[1] : 0;
    const std::uint32_t bits = (std::uint32_t{in[0]} << 16) | (second << 8);
    writePair(out, bits >> 12);
    out[2] = byteCount == 2 ? kPairs[bits & 0xFFF][0] : u'=';
    out[3] = u'=';
    return 4;
}

QString Base64Encode(QByteArrayView bytes) {
    QString text(Base64EncodedLength(bytes.size()), Qt::Uninitialized);
    const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
    auto* out = reinterpret_cast<char16_t*>(text.data());
    const qsizetype groupCount = bytes.size() / 3;
    Base64EncodeGroups(in, groupCount, out);
    Base64EncodeLastGroup(in + 3 * groupCount, bytes.size() - 3 * groupCount, out + 4 * groupCount);
    return text;
}

std::optional<qsizetype> Base64DecodedLength(QStringView text) {
    const qsizetype length = text.size();
    if (length % 4 != 0) {
        return std::nullopt;
    }
    if (length == 0) {
        return 0;
    }
    const qsizetype padding = text[length - 1] != u'=' ? 0 : text[length - 2] != u'=' ? 1 : 2;
    return length / 4 * 3 - padding;
}

bool Base64DecodeGroups(const char16_t* in, qsizetype groupCount, unsigned char* out) {
    return activeCoder().decode(in, groupCount, out);
}

int Base64DecodeLastGroup(const char16_t* in, unsigned char* out) {
    if (in[3] != u'=') {
        return base64_detail::DecodeGroupsScalar(in, 1, out) ? 3 : -1;
    }
    // A padded group: the padding replaces the last one or two characters, and the bits
    // those characters would have carried must be zero.
    const bool twoBytes = in[2] != u'=';
    const char16_t padded[4] = {in[0], in[1], twoBytes ? in[2] : u'A', u'A'};
    const std::uint32_t bits = decodeGroup(padded);
    const std::uint32_t unusedBits = twoBytes ? 0xFFu : 0xFFFFu;
    if ((bits >> 24) != 0 || (bits & unusedBits) != 0) {
        return -1;
    }
    out[0] = static_cast<unsigned char>(bits >> 16);
    if (twoBytes) {
        out[1] = static_cast<unsigned char>(bits >> 8);
    }
    return twoBytes ? 2 : 1;
}

std::optional<QByteArray> Base64Decode(QStringView text) {
    const std::optional<qsizetype> length = Base64DecodedLength(text);
    if (!length) {
        return std::nullopt;
    }
    if (text.isEmpty()) {
        return QByteArray();
    }
    const qsizetype groupCount = text.size() / 4;
    QByteArray bytes(groupCount * 3, Qt::Uninitialized);
    auto* out = reinterpret_cast<unsigned char*>(bytes.data());
    const char16_t* in = text.utf16();
    if (!Base64DecodeGroups(in, groupCount - 1, out)) {
        return std::nullopt;
    }
    const int last = Base64DecodeLastGroup(in + 4 * (groupCount - 1), out + 3 * (groupCount - 1));
    if (last < 0) {
        return std::nullopt;
    }
    bytes.truncate(3 * (groupCount - 1) + last);
    return bytes;
}
