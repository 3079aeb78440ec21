#include <gtest/gtest.h>

#include <QRandomGenerator>
#include <algorithm>
#include <vector>

#include "key_exchange/base64.h"

namespace {

QByteArray RandomBytes(qsizetype size) {
    QRandomGenerator generator(static_cast<quint32>(size));
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& byte : bytes) {
        byte = static_cast<char>(generator.bounded(256));
    }
    return bytes;
}

TEST(Base64, MatchesQtAndRoundTripsAtEveryLength) {
    for (qsizetype size = 0; size <= 200; ++size) {
        const QByteArray bytes = RandomBytes(size);
        const QString text = Base64Encode(bytes);
        ASSERT_EQ(text, QString::fromLatin1(bytes.toBase64())) << size;
        ASSERT_EQ(Base64Decode(text), bytes) << size;
    }
}

TEST(Base64, AcceptsOnlyCanonicalPaddedText) {
    const std::pair<const char16_t*, const char*> cases[] = {
        {u"", ""}, {u"Zg==", "f"}, {u"Zm8=", "fo"}, {u"+/+/", "\xfb\xff\xbf"},
        // Refused: padding left out, unused bits set, padding misplaced, blanks and line
        // breaks, URL-safe letters, letters beyond ASCII.
        {u"Zg", nullptr}, {u"Zg=", nullptr}, {u"Zh==", nullptr}, {u"Zm9=", nullptr},
        {u"Z===", nullptr}, {u"=Zg=", nullptr}, {u"Zg==Zg==", nullptr}, {u"Zm9v\n", nullptr},
        {u"Zm9v\r\n", nullptr}, {u" Zm9v", nullptr}, {u"Zm 9v", nullptr}, {u"-_8=", nullptr},
        {u"Zm9\u00e9", nullptr}};
    for (const auto& [text, bytes] : cases) {
        SCOPED_TRACE(QString::fromUtf16(text).toStdString());
        EXPECT_EQ(Base64Decode(QStringView(text)),
                  bytes ? std::optional(QByteArray(bytes)) : std::nullopt);
    }
}

TEST(Base64, VectorCodersAgreeWithTheScalarCoder) {
    using namespace base64_detail;
    const struct {
        bool (*available)();
        void (*encode)(const unsigned char*, qsizetype, char16_t*);
        bool (*decode)(const char16_t*, qsizetype, unsigned char*);
    } coders[] = {{CpuHasAvx2, EncodeGroupsAvx2, DecodeGroupsAvx2},
                  {CpuHasAvx512Vbmi, EncodeGroupsAvx512, DecodeGroupsAvx512}};
    // Code units whose low byte is a base64 letter must not pass for that letter.
    const char16_t bad[] = {u'=', u' ', u'\n', u'-', u'_', u'\0', 0x80, 0x141, 0x2B2F};
    for (const auto& coder : coders) {
        if (!coder.available()) {
            continue;
        }
        // Group counts around every step of the vector loops, text at odd and even alignments.
        for (qsizetype groups = 0; groups <= 70; ++groups) {
            SCOPED_TRACE(groups);
            const QByteArray bytes = RandomBytes(3 * groups);
            const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
            std::vector<char16_t> scalar(4 * groups);
            EncodeGroupsScalar(in, groups, scalar.data());
            std::vector<unsigned char> out(3 * groups);
            for (const qsizetype offset : {0, 1, 4, 8, 12, 20, 32}) {
                std::vector<char16_t> text(offset + 4 * groups);
                coder.encode(in, groups, text.data() + offset);
                ASSERT_TRUE(std::equal(scalar.begin(), scalar.end(), text.begin() + offset));
                ASSERT_TRUE(coder.decode(text.data() + offset, groups, out.data()));
                ASSERT_TRUE(std::equal(out.begin(), out.end(), in));
            }
            for (qsizetype position = 0; position < 4 * groups; ++position) {
                std::vector<char16_t> broken = scalar;
                broken[position] = bad[(position + groups) % std::size(bad)];
                ASSERT_FALSE(coder.decode(broken.data(), groups, out.data())) << position;
            }
        }
    }
}

}  // namespace
