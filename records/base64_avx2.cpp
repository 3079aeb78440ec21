// Whole base64 groups with AVX2, after Wojciech Muła and Daniel Lemire's vector coders: 24
// bytes become 32 characters (and back) per step, widened to or narrowed from UTF-16 on the way
// for Qt's strings, and as they are for 8-bit text.
// The functions carry their own target attribute and are called only after a run-time check.

#include "base64.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#define BRISVANE_AVX2 __attribute__((target("avx2")))

namespace {

// Spreads 24 bytes (12 per 128-bit lane) into 32 six-bit values, one per byte.
BRISVANE_AVX2 inline __m256i splitIntoSextets(__m256i in) {
    const __m256i spread = _mm256_shuffle_epi8(
        in, _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10,  //
                             1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    const __m256i highPair = _mm256_mulhi_epu16(
        _mm256_and_si256(spread, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
    const __m256i lowPair = _mm256_mullo_epi16(
        _mm256_and_si256(spread, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(highPair, lowPair);
}

// Six-bit values to their characters: one offset per range of the alphabet.
BRISVANE_AVX2 inline __m256i sextetsToAscii(__m256i sextets) {
    const __m256i offsets =
        _mm256_setr_epi8(65, 71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 0, 0, 65, 71, -4,
                         -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 0, 0);
    __m256i index = _mm256_subs_epu8(sextets, _mm256_set1_epi8(51));
    index = _mm256_sub_epi8(index, _mm256_cmpgt_epi8(sextets, _mm256_set1_epi8(25)));
    return _mm256_add_epi8(sextets, _mm256_shuffle_epi8(offsets, index));
}

// 32 ASCII characters to six-bit values; false if any is outside the alphabet.
BRISVANE_AVX2 inline bool asciiToSextets(__m256i chars, __m256i& sextets) {
    const __m256i lowNibbleClass =
        _mm256_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A,
                         0x1B, 0x1B, 0x1B, 0x1A, 0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                         0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
    const __m256i highNibbleClass =
        _mm256_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10,
                         0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08,
                         0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
    const __m256i offsets =
        _mm256_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 19, 4,
                         -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
    const __m256i slash = _mm256_set1_epi8(0x2F);
    const __m256i highNibbles =
        _mm256_and_si256(_mm256_srli_epi32(chars, 4), _mm256_set1_epi8(0x0F));
    const __m256i lowNibbles = _mm256_and_si256(chars, _mm256_set1_epi8(0x0F));
    const __m256i high = _mm256_shuffle_epi8(highNibbleClass, highNibbles);
    const __m256i low = _mm256_shuffle_epi8(lowNibbleClass, lowNibbles);
    if (!_mm256_testz_si256(low, high)) {
        return false;
    }
    const __m256i isSlash = _mm256_cmpeq_epi8(chars, slash);
    sextets =
        _mm256_add_epi8(chars, _mm256_shuffle_epi8(offsets, _mm256_add_epi8(isSlash, highNibbles)));
    return true;
}

// 32 six-bit values to 24 bytes, packed at the start of the register.
BRISVANE_AVX2 inline __m256i joinSextets(__m256i sextets) {
    const __m256i pairs = _mm256_maddubs_epi16(sextets, _mm256_set1_epi32(0x01400140));
    const __m256i triples = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const __m256i packed = _mm256_shuffle_epi8(
        triples, _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,  //
                                  2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    return _mm256_permutevar8x32_epi32(packed, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
}

// 32 characters as they are stored in each width.
BRISVANE_AVX2 inline void storeAscii(__m256i ascii, char* out) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), ascii);
}

BRISVANE_AVX2 inline void storeAscii(__m256i ascii, char16_t* out) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out),
                        _mm256_cvtepu8_epi16(_mm256_castsi256_si128(ascii)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 16),
                        _mm256_cvtepu8_epi16(_mm256_extracti128_si256(ascii, 1)));
}

BRISVANE_AVX2 inline __m256i loadAscii(const char* in) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
}

BRISVANE_AVX2 inline __m256i loadAscii(const char16_t* in) {
    const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
    const __m256i second = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + 16));
    // Narrowing saturates a code unit above 0xFF to 0xFF, which is not in the alphabet.
    return _mm256_permute4x64_epi64(_mm256_packus_epi16(first, second), 0xD8);
}

template <typename Char>
BRISVANE_AVX2 void encodeGroups(const unsigned char* in, qsizetype groupCount, Char* out) {
    // Each step reads 28 bytes (two overlapping 16-byte loads) to use 24 of them.
    qsizetype left = groupCount;
    while (left >= 10) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 12));
        storeAscii(sextetsToAscii(splitIntoSextets(_mm256_set_m128i(high, low))), out);
        in += 24;
        out += 32;
        left -= 8;
    }
    base64_detail::EncodeGroupsScalar(in, left, out);
}

template <typename Char>
BRISVANE_AVX2 bool decodeGroups(const Char* in, qsizetype groupCount, unsigned char* out) {
    qsizetype left = groupCount;
    while (left >= 8) {
        __m256i sextets;
        if (!asciiToSextets(loadAscii(in), sextets)) {
            return false;
        }
        const __m256i bytes = joinSextets(sextets);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(bytes));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), _mm256_extracti128_si256(bytes, 1));
        in += 32;
        out += 24;
        left -= 8;
    }
    return base64_detail::DecodeGroupsScalar(in, left, out);
}

}  // namespace

namespace base64_detail {

void EncodeGroupsAvx2(const unsigned char* in, qsizetype groupCount, char16_t* out) {
    encodeGroups(in, groupCount, out);
}

void EncodeGroupsAvx2(const unsigned char* in, qsizetype groupCount, char* out) {
    encodeGroups(in, groupCount, out);
}

bool DecodeGroupsAvx2(const char16_t* in, qsizetype groupCount, unsigned char* out) {
    return decodeGroups(in, groupCount, out);
}

bool DecodeGroupsAvx2(const char* in, qsizetype groupCount, unsigned char* out) {
    return decodeGroups(in, groupCount, out);
}

}  // namespace base64_detail

#else

namespace base64_detail {

void EncodeGroupsAvx2(const unsigned char* in, qsizetype groupCount, char16_t* out) {
    EncodeGroupsScalar(in, groupCount, out);
}

bool DecodeGroupsAvx2(const char16_t* in, qsizetype groupCount, unsigned char* out) {
    return DecodeGroupsScalar(in, groupCount, out);
}

void EncodeGroupsAvx2(const unsigned char* in, qsizetype groupCount, char* out) {
    EncodeGroupsScalar(in, groupCount, out);
}

bool DecodeGroupsAvx2(const char* in, qsizetype groupCount, unsigned char* out) {
    return DecodeGroupsScalar(in, groupCount, out);
}

}  // namespace base64_detail

#endif
