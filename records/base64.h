#pragma once

// Strict standard base64: RFC 4648 alphabet with "=" padding.
//
// The decoder accepts exactly the texts the encoder writes and nothing else: a length that is a
// multiple of 4, "=" only as the last one or two characters of the last group, zero in the
// unused low bits of a padded group, and no character outside the alphabet (no blanks, no line
// breaks, no URL-safe letters, no "=" inside the text). One byte string has one text, so a key or
// a nonce can be compared by its text.
//
// Text comes in two widths: UTF-16, because that is how Qt holds a string, and 8-bit, because that
// is how an envelope arrives from and leaves for the socket. Each is coded in its own width, so a
// sealed megabyte is never widened or narrowed on its way. Whole groups are coded with AVX-512
// VBMI (UTF-16) or AVX2 where the processor has them, chosen once at run time.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringView>
#include <optional>

// Characters of the text for byteCount bytes: 4 * ceil(byteCount / 3).
constexpr qsizetype Base64EncodedLength(qsizetype byteCount) {
    return (byteCount + 2) / 3 * 4;
}

QString Base64Encode(QByteArrayView bytes);
std::optional<QByteArray> Base64Decode(QStringView text);
std::optional<QByteArray> Base64Decode(QByteArrayView text);

// The pieces below let a caller code a long text chunk by chunk.

// Writes 4 * groupCount characters for groupCount whole 3-byte groups.
void Base64EncodeGroups(const unsigned char* in, qsizetype groupCount, char16_t* out);
void Base64EncodeGroups(const unsigned char* in, qsizetype groupCount, char* out);
// Writes the last group for the 0, 1 or 2 bytes left over; returns the characters written.
qsizetype Base64EncodeLastGroup(const unsigned char* in, qsizetype byteCount, char16_t* out);
qsizetype Base64EncodeLastGroup(const unsigned char* in, qsizetype byteCount, char* out);

// The byte count a text decodes to if its length and padding have the right shape (the
// characters themselves are not checked here).
std::optional<qsizetype> Base64DecodedLength(QStringView text);
std::optional<qsizetype> Base64DecodedLength(QByteArrayView text);
// Decodes groupCount unpadded 4-character groups to 3 * groupCount bytes; false if any
// character is outside the alphabet ("=" included).
[[nodiscard]] bool Base64DecodeGroups(const char16_t* in, qsizetype groupCount, unsigned char* out);
[[nodiscard]] bool Base64DecodeGroups(const char* in, qsizetype groupCount, unsigned char* out);
// Decodes a text's last group, padded or not, to 1 to 3 bytes; returns the byte count, or -1.
[[nodiscard]] int Base64DecodeLastGroup(const char16_t* in, unsigned char* out);
[[nodiscard]] int Base64DecodeLastGroup(const char* in, unsigned char* out);

namespace base64_detail {

// The portable and the vector forms of the whole-group coders, for tests that hold them to
// each other. The vector forms code as many groups as they can and leave the rest to the
// scalar form; they may only be called when the processor has their instructions.
void EncodeGroupsScalar(const unsigned char* in, qsizetype groupCount, char16_t* out);
bool DecodeGroupsScalar(const char16_t* in, qsizetype groupCount, unsigned char* out);
void EncodeGroupsScalar(const unsigned char* in, qsizetype groupCount, char* out);
bool DecodeGroupsScalar(const char* in, qsizetype groupCount, unsigned char* out);
bool CpuHasAvx2();
void EncodeGroupsAvx2(const unsigned char* in, qsizetype groupCount, char16_t* out);
bool DecodeGroupsAvx2(const char16_t* in, qsizetype groupCount, unsigned char* out);
void EncodeGroupsAvx2(const unsigned char* in, qsizetype groupCount, char* out);
bool DecodeGroupsAvx2(const char* in, qsizetype groupCount, unsigned char* out);
bool CpuHasAvx512Vbmi();
void EncodeGroupsAvx512(const unsigned char* in, qsizetype groupCount, char16_t* out);
bool DecodeGroupsAvx512(const char16_t* in, qsizetype groupCount, unsigned char* out);

}  // namespace base64_detail
