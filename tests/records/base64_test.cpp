#include "records/base64.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>
#include <algorithm>
#include <vector>

TEST(Base64, AcceptsOnlyCanonicalPaddedText) {
    EXPECT_EQ(Base64Decode(u""), QByteArray());
    EXPECT_EQ(Base64Decode(u"Zg=="), QByteArray("f"));
    EXPECT_EQ(Base64Decode(u"Zm8="), QByteArray("fo"));
    EXPECT_EQ(Base64Decode(u"+/+/"), QByteArray("\xfb\xff\xbf"));
    // Padding left out, unused bits set, padding misplaced, blanks and line breaks, URL-safe
    // letters, letters beyond ASCII.
    for (const char16_t* text :
         {u"Zg", u"Zg=", u"Zh==", u"Zm9=", u"Z===", u"=Zg=", u"Zg==Zg==", u"Zm9v\n", u"Zm9v\r\n",
          u" Zm9v", u"Zm 9v", u"-_8=", u"Zm9\u00e9"}) {
        EXPECT_EQ(Base64Decode(text), std::nullopt) << QString::fromUtf16(text).toStdString();
        // The same text in eight bits, as it comes from a socket, is refused just the same.
        EXPECT_EQ(Base64Decode(QByteArrayView(QString::fromUtf16(text).toUtf8())), std::nullopt);
    }
    EXPECT_EQ(Base64Decode(QByteArrayView("Zm8=")), QByteArray("fo"));
    EXPECT_EQ(Base64Decode(QByteArrayView("Zm9v\xff")), std::nullopt);
}

TEST(Base64, EightBitTextIsTheSameTextAsUTF16) {
    using namespace base64_detail;
    for (qsizetype groups : {0, 1, 9, 10, 11, 40, 333}) {
        SCOPED_TRACE(groups);
        std::vector<quint32> random(groups);
        QRandomGenerator(static_cast<quint32>(groups)).fillRange(random.data(), groups);
        const auto* in = reinterpret_cast<const unsigned char*>(random.data());
        std::vector<char16_t> wide(4 * groups);
        EncodeGroupsScalar(in, groups, wide.data());
        std::vector<char> narrow(4 * groups);
        Base64EncodeGroups(in, groups, narrow.data());
        ASSERT_TRUE(std::equal(wide.begin(), wide.end(), narrow.begin()));
        std::vector<char> scalar(4 * groups);
        EncodeGroupsScalar(in, groups, scalar.data());
        ASSERT_EQ(scalar, narrow);
        std::vector<unsigned char> out(3 * groups);
        ASSERT_TRUE(Base64DecodeGroups(narrow.data(), groups, out.data()));
        ASSERT_TRUE(std::equal(out.begin(), out.end(), in));
        // A byte beyond ASCII whose low seven bits are a letter is no letter.
        for (qsizetype position = 0; position < 4 * groups; position += 7) {
            std::vector<char> broken = narrow;
            broken[position] = static_cast<char>(broken[position] | 0x80);
            ASSERT_FALSE(Base64DecodeGroups(broken.data(), groups, out.data())) << position;
        }
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
            std::vector<quint32> random(groups);  // room for the 3 * groups bytes coded
            QRandomGenerator(static_cast<quint32>(groups)).fillRange(random.data(), groups);
            const auto* in = reinterpret_cast<const unsigned char*>(random.data());
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
