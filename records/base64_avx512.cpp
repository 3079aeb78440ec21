// Whole base64 groups with AVX-512 VBMI, after Wojciech Muła and Daniel Lemire's "Base64 encoding
// and decoding at almost the speed of a memory copy": 48 bytes become 64 characters (and back)
// per step with byte permutes and a multishift, widened to or narrowed from UTF-16 on the way.
// The functions carry their own target attribute and are called only after a run-time check.

#include "base64.h"

#if defined(__x86_64__)

// GCC 12's AVX-512 intrinsics pass a deliberately undefined register as the unused merge
// operand, which its own flow analysis then reports as uninitialised.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstdint>

#define BRISVANE_AVX512 __attribute__((target("avx512f,avx512bw,avx512vbmi")))

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint64_t kLow48Bytes = (std::uint64_t{1} << 48) - 1;

// Each ASCII character's six bits, or 0x80 for one outside the alphabet.
constexpr auto kValues = [] {
    std::array<char, 128> values{};
    values.fill(static_cast<char>(0x80));
    for (int value = 0; value < 64; ++value) {
        values[static_cast<unsigned char>(kAlphabet[value])] = static_cast<char>(value);
    }
    return values;
}();

// Byte i of the result is byte 2i of a (i < 32) or of b: the low bytes of 64 UTF-16 units.
constexpr auto kEvenBytes = [] {
    std::array<char, 64> index{};
    for (int i = 0; i < 64; ++i) {
        index[i] = static_cast<char>(2 * i);
    }
    return index;
}();

// Each 3-byte group [a b c] into a 32-bit lane [b a c b], so the multishift finds its four
// six-bit fields at fixed offsets.
constexpr auto kSpreadGroups = [] {
    std::array<char, 64> index{};
    for (int lane = 0; lane < 16; ++lane) {
        index[4 * lane + 0] = static_cast<char>(3 * lane + 1);
        index[4 * lane + 1] = static_cast<char>(3 * lane + 0);
        index[4 * lane + 2] = static_cast<char>(3 * lane + 2);
        index[4 * lane + 3] = static_cast<char>(3 * lane + 1);
    }
    return index;
}();

// After the multiply-adds each 32-bit lane holds one group's bytes in reverse; this gathers
// them in order into the low 48 bytes.
constexpr auto kGatherGroups = [] {
    std::array<char, 64> index{};
    for (int group = 0; group < 16; ++group) {
        for (int j = 0; j < 3; ++j) {
            index[3 * group + j] = static_cast<char>(4 * group + 2 - j);
        }
    }
    return index;
}();

// Groups to code one by one until the text pointer is on a cache line; none if the pointer is
// not even on a group boundary of 8 bytes.
inline qsizetype leadGroups(const char16_t* text) {
    const auto address = reinterpret_cast<std::uintptr_t>(text);
    return address % 8 != 0 ? 0 : static_cast<qsizetype>((64 - address % 64) % 64 / 8);
}

BRISVANE_AVX512 inline __m512i load(const std::array<char, 64>& bytes) {
    return _mm512_loadu_si512(bytes.data());
}

}  // namespace

namespace base64_detail {

bool CpuHasAvx512Vbmi() {
    static const bool has = __builtin_cpu_supports("avx512f") &&
                            __builtin_cpu_supports("avx512bw") &&
                            __builtin_cpu_supports("avx512vbmi");
    return has;
}

BRISVANE_AVX512 void EncodeGroupsAvx512(const unsigned char* in, qsizetype groupCount,
                                        char16_t* out) {
    const __m512i alphabet = _mm512_loadu_si512(kAlphabet);
    const __m512i spread = load(kSpreadGroups);
    // Bit offsets of the four fields in each lane, twice per 64-bit word: 10, 4, 22, 16.
    const __m512i shifts = _mm512_set1_epi64(0x3036242a1016040a);
    qsizetype left = groupCount;
    // A group writes 8 bytes of text: a few scalar groups first align the stores to cache lines.
    const qsizetype lead = std::min(left, leadGroups(out));
    EncodeGroupsScalar(in, lead, out);
    in += 3 * lead;
    out += 4 * lead;
    left -= lead;
    while (left >= 16) {
        const __m512i bytes = _mm512_maskz_loadu_epi8(kLow48Bytes, in);
        const __m512i fields =
            _mm512_multishift_epi64_epi8(shifts, _mm512_permutexvar_epi8(spread, bytes));
        const __m512i ascii = _mm512_permutexvar_epi8(fields, alphabet);
        _mm512_storeu_si512(out, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(ascii)));
        _mm512_storeu_si512(out + 32, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(ascii, 1)));
        in += 48;
        out += 64;
        left -= 16;
    }
    EncodeGroupsScalar(in, left, out);
}

BRISVANE_AVX512 bool DecodeGroupsAvx512(const char16_t* in, qsizetype groupCount,
                                        unsigned char* out) {
    const __m512i valuesLow = _mm512_loadu_si512(kValues.data());
    const __m512i valuesHigh = _mm512_loadu_si512(kValues.data() + 64);
    const __m512i evenBytes = load(kEvenBytes);
    const __m512i gather = load(kGatherGroups);
    const __m512i beyondAscii = _mm512_set1_epi16(static_cast<short>(0xFF80));
    qsizetype left = groupCount;
    // A group reads 8 bytes of text: a few scalar groups first align the loads to cache lines.
    const qsizetype lead = std::min(left, leadGroups(in));
    if (!DecodeGroupsScalar(in, lead, out)) {
        return false;
    }
    in += 4 * lead;
    out += 3 * lead;
    left -= lead;
    while (left >= 16) {
        const __m512i first = _mm512_loadu_si512(in);
        const __m512i second = _mm512_loadu_si512(in + 32);
        const __m512i chars = _mm512_permutex2var_epi8(first, evenBytes, second);
        const __m512i values = _mm512_permutex2var_epi8(valuesLow, chars, valuesHigh);
        // A unit beyond ASCII, or an ASCII character outside the alphabet (value 0x80).
        if ((_mm512_test_epi16_mask(_mm512_or_si512(first, second), beyondAscii) |
             _mm512_movepi8_mask(values)) != 0) {
            return false;
        }
        const __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi32(0x01400140));
        const __m512i triples = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
        _mm512_mask_storeu_epi8(out, kLow48Bytes, _mm512_permutexvar_epi8(gather, triples));
        in += 64;
        out += 48;
        left -= 16;
    }
    return DecodeGroupsScalar(in, left, out);
}

}  // namespace base64_detail

#else

namespace base64_detail {

bool CpuHasAvx512Vbmi() {
    return false;
}

void EncodeGroupsAvx512(const unsigned char* in, qsizetype groupCount, char16_t* out) {
    EncodeGroupsScalar(in, groupCount, out);
}

bool DecodeGroupsAvx512(const char16_t* in, qsizetype groupCount, unsigned char* out) {
    return DecodeGroupsScalar(in, groupCount, out);
}

}  // namespace base64_detail

#endif
