#include "base64.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Every 12-bit value as its two characters, so one lookup writes half a group.
template <typename Char>
constexpr auto kPairs = [] {
    std::array<std::array<Char, 2>, 4096> pairs{};
    for (unsigned value = 0; value < 4096; ++value) {
        pairs[value] = {static_cast<Char>(kAlphabet[value >> 6]),
                        static_cast<Char>(kAlphabet[value & 0x3F])};
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

inline std::uint32_t decodeGroup(const char* in) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(in);
    return kDecode0[bytes[0]] | kDecode1[bytes[1]] | kDecode2[bytes[2]] | kDecode3[bytes[3]];
}

template <typename Char>
inline void writePair(Char* out, std::uint32_t twelveBits) {
    std::memcpy(out, kPairs<Char>[twelveBits].data(), sizeof(Char) * 2);
}

template <typename Char>
void encodeGroupsPortable(const unsigned char* in, qsizetype groupCount, Char* out) {
    for (qsizetype group = 0; group < groupCount; ++group, in += 3, out += 4) {
        const std::uint32_t bits =
            (std::uint32_t{in[0]} << 16) | (std::uint32_t{in[1]} << 8) | in[2];
        writePair(out, bits >> 12);
        writePair(out + 2, bits & 0xFFF);
    }
}

template <typename Char>
bool decodeGroupsPortable(const Char* in, qsizetype groupCount, unsigned char* out) {
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

}  // namespace

namespace base64_detail {

void EncodeGroupsScalar(const unsigned char* in, qsizetype groupCount, char16_t* out) {
    encodeGroupsPortable(in, groupCount, out);
}

void EncodeGroupsScalar(const unsigned char* in, qsizetype groupCount, char* out) {
    encodeGroupsPortable(in, groupCount, out);
}

bool DecodeGroupsScalar(const char16_t* in, qsizetype groupCount, unsigned char* out) {
    return decodeGroupsPortable(in, groupCount, out);
}

bool DecodeGroupsScalar(const char* in, qsizetype groupCount, unsigned char* out) {
    return decodeGroupsPortable(in, groupCount, out);
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

template <typename Char>
struct GroupCoder {
    void (*encode)(const unsigned char*, qsizetype, Char*);
    bool (*decode)(const Char*, qsizetype, unsigned char*);
};

// The widest coder the processor runs for each width, chosen on first use.
template <typename Char>
const GroupCoder<Char>& activeCoder() {
    using namespace base64_detail;
    static const GroupCoder<Char> coder = [] {
        if constexpr (std::is_same_v<Char, char16_t>) {
            if (CpuHasAvx512Vbmi()) {
                return GroupCoder<Char>{EncodeGroupsAvx512, DecodeGroupsAvx512};
            }
        }
        if (CpuHasAvx2()) {
            return GroupCoder<Char>{EncodeGroupsAvx2, DecodeGroupsAvx2};
        }
        return GroupCoder<Char>{EncodeGroupsScalar, DecodeGroupsScalar};
    }();
    return coder;
}

template <typename Char>
qsizetype encodeLastGroup(const unsigned char* in, qsizetype byteCount, Char* out) {
    if (byteCount == 0) {
        return 0;
    }
    const std::uint32_t second = byteCount == 2 ? in[1] : 0;
    const std::uint32_t bits = (std::uint32_t{in[0]} << 16) | (second << 8);
    writePair(out, bits >> 12);
    out[2] = byteCount == 2 ? kPairs<Char>[bits & 0xFFF][0] : Char('=');
    out[3] = Char('=');
    return 4;
}

template <typename Char>
std::optional<qsizetype> decodedLength(const Char* text, qsizetype length) {
    if (length % 4 != 0) {
        return std::nullopt;
    }
    if (length == 0) {
        return 0;
    }
    const qsizetype padding = text[length - 1] != Char('=')   ? 0
                              : text[length - 2] != Char('=') ? 1
                                                              : 2;
    return length / 4 * 3 - padding;
}

template <typename Char>
int decodeLastGroup(const Char* in, unsigned char* out) {
    if (in[3] != Char('=')) {
        return decodeGroupsPortable(in, 1, out) ? 3 : -1;
    }
    // A padded group: the padding replaces the last one or two characters, and the bits
    // those characters would have carried must be zero.
    const bool twoBytes = in[2] != Char('=');
    const Char padded[4] = {in[0], in[1], twoBytes ? in[2] : Char('A'), Char('A')};
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

template <typename Char>
std::optional<QByteArray> decode(const Char* in, qsizetype size) {
    const std::optional<qsizetype> length = decodedLength(in, size);
    if (!length) {
        return std::nullopt;
    }
    if (size == 0) {
        return QByteArray();
    }
    const qsizetype groupCount = size / 4;
    QByteArray bytes(groupCount * 3, Qt::Uninitialized);
    auto* out = reinterpret_cast<unsigned char*>(bytes.data());
    if (!activeCoder<Char>().decode(in, groupCount - 1, out)) {
        return std::nullopt;
    }
    const int last = decodeLastGroup(in + 4 * (groupCount - 1), out + 3 * (groupCount - 1));
    if (last < 0) {
        return std::nullopt;
    }
    bytes.truncate(3 * (groupCount - 1) + last);
    return bytes;
}

}  // namespace

void Base64EncodeGroups(const unsigned char* in, qsizetype groupCount, char16_t* out) {
    activeCoder<char16_t>().encode(in, groupCount, out);
}

void Base64EncodeGroups(const unsigned char* in, qsizetype groupCount, char* out) {
    activeCoder<char>().encode(in, groupCount, out);
}

qsizetype Base64EncodeLastGroup(const unsigned char* in, qsizetype byteCount, char16_t* out) {
    return encodeLastGroup(in, byteCount, out);
}

qsizetype Base64EncodeLastGroup(const unsigned char* in, qsizetype byteCount, char* out) {
    return encodeLastGroup(in, byteCount, out);
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
    return decodedLength(text.utf16(), text.size());
}

std::optional<qsizetype> Base64DecodedLength(QByteArrayView text) {
    return decodedLength(text.data(), text.size());
}

bool Base64DecodeGroups(const char16_t* in, qsizetype groupCount, unsigned char* out) {
    return activeCoder<char16_t>().decode(in, groupCount, out);
}

bool Base64DecodeGroups(const char* in, qsizetype groupCount, unsigned char* out) {
    return activeCoder<char>().decode(in, groupCount, out);
}

int Base64DecodeLastGroup(const char16_t* in, unsigned char* out) {
    return decodeLastGroup(in, out);
}

int Base64DecodeLastGroup(const char* in, unsigned char* out) {
    return decodeLastGroup(in, out);
}

std::optional<QByteArray> Base64Decode(QStringView text) {
    return decode(text.utf16(), text.size());
}

std::optional<QByteArray> Base64Decode(QByteArrayView text) {
    return decode(text.data(), text.size());
}
