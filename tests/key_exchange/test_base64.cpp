#include <gtest/gtest.h>

#include <QRandomGenerator>
#include <algorithm>
#include <vector>

#include "key_exchange/base64.h"

namespace {

QByteArray RandomBytes(qsizetype size, quint32 seed) {
    QRandomGenerator generator(seed);
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& byte : bytes) {
        byte = static_cast<char>(generator.bounded(256));
    }
    return bytes;
}

TEST(Base64, MatchesQtEncoderAndRoundTripsAcrossLengths) {
    // Lengths around every step of the vector loops and the padding cases.
    for (qsizetype size = 0; size <= 200; ++size) {
        const QByteArray bytes = RandomBytes(size, static_cast<quint32>(size));
        const QString text = Base64Encode(bytes);
        ASSERT_EQ(text, QString::fromLatin1(bytes.toBase64())) << size;
        ASSERT_EQ(text.size(), Base64EncodedLength(size));
        ASSERT_EQ(Base64Decode(text), bytes) << size;
    }
    const QByteArray large = RandomBytes(1 << 20, 7);
    EXPECT_EQ(Base64Decode(Base64Encode(large)), large);
}

struct VectorCoder {
    const char* name;
    bool (*available)();
    void (*encode)(const unsigned char*, qsizetype, char16_t*);
    bool (*decode)(const char16_t*, qsizetype, unsigned char*);
};

const VectorCoder kVectorCoders[] = {
    {"avx2", base64_detail::CpuHasAvx2, base64_detail::EncodeGroupsAvx2,
     base64_detail::DecodeGroupsAvx2},
    {"avx512vbmi", base64_detail::CpuHasAvx512Vbmi, base64_detail::EncodeGroupsAvx512,
     base64_detail::DecodeGroupsAvx512},
};

void PrintTo(const VectorCoder& coder, std::ostream* out) {
    *out << coder.name;
}

class Base64Vector : public testing::TestWithParam<VectorCoder> {
protected:
    void SetUp() override {
        if (!GetParam().available()) {
            GTEST_SKIP() << "the processor lacks " << GetParam().name;
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Coders, Base64Vector, testing::ValuesIn(kVectorCoders),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(Base64Vector, AgreesWithTheScalarCoder) {
    // Group counts around every step of the vector loops, and text at every alignment (the
    // vector coders align to cache lines first, which an odd address rules out).
    for (qsizetype groups = 0; groups <= 70; ++groups) {
        const QByteArray bytes = RandomBytes(3 * groups, static_cast<quint32>(groups + 1000));
        const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
        std::vector<char16_t> scalar(4 * groups);
        base64_detail::EncodeGroupsScalar(in, groups, scalar.data());
        for (const qsizetype offset : {0, 1, 4, 8, 12, 16, 20, 28, 32}) {
            std::vector<char16_t> text(offset + 4 * groups);
            GetParam().encode(in, groups, text.data() + offset);
            ASSERT_TRUE(std::equal(scalar.begin(), scalar.end(), text.begin() + offset))
                << groups << " " << offset;

            std::vector<unsigned char> decoded(3 * groups);
            ASSERT_TRUE(GetParam().decode(text.data() + offset, groups, decoded.data()));
            ASSERT_EQ(QByteArray(reinterpret_cast<const char*>(decoded.data()), 3 * groups), bytes);
        }
    }
}

TEST_P(Base64Vector, RefusesABadCharacterAnywhere) {
    const qsizetype groups = 40;
    const QString valid = Base64Encode(RandomBytes(3 * groups, 99));
    // Code units whose low byte is a base64 letter must not pass for that letter.
    const char16_t bad[] = {u'=',  u' ', u'\n', u'-', u'_',  u'.',
                            u'\0', 0x7F, 0x80,  0xFF, 0x141, 0x2B2F};
    for (qsizetype position = 0; position < valid.size(); ++position) {
        for (const char16_t character : bad) {
            QString text = valid;
            text[position] = QChar(character);
            const auto* in = reinterpret_cast<const char16_t*>(text.utf16());
            std::vector<unsigned char> out(3 * groups);
            ASSERT_FALSE(GetParam().decode(in, groups, out.data())) << position;
            ASSERT_FALSE(base64_detail::DecodeGroupsScalar(in, groups, out.data())) << position;
        }
    }
}

struct StrictCase {
    const char16_t* text;
    const char* bytes;  // nullptr when the text must be refused
};

TEST(Base64, AcceptsOnlyCanonicalPaddedText) {
    const StrictCase cases[] = {
        {u"", ""},
        {u"Zg==", "f"},
        {u"Zm8=", "fo"},
        {u"Zm9v", "foo"},
        {u"Zm9vYg==", "foob"},
        {u"+/+/", "\xfb\xff\xbf"},
        {u"Zg", nullptr},         // padding left out
        {u"Zg=", nullptr},        // length not a multiple of 4
        {u"Zm9vY", nullptr},      //
        {u"Zh==", nullptr},       // unused bits set
        {u"Zm9=", nullptr},       //
        {u"Z===", nullptr},       // three padding characters
        {u"====", nullptr},       //
        {u"=Zg=", nullptr},       // padding first
        {u"Zg==Zg==", nullptr},   // padding inside the text
        {u"Zm9v\n", nullptr},     // line break
        {u"Zm9v\r\n", nullptr},   //
        {u" Zm9v", nullptr},      // blanks
        {u"Zm 9v", nullptr},      //
        {u"Zm9v\t", nullptr},     //
        {u"-_8=", nullptr},       // URL-safe alphabet
        {u"Zm9\u00e9", nullptr},  // beyond ASCII
    };
    for (const StrictCase& test : cases) {
        const std::optional<QByteArray> decoded = Base64Decode(QStringView(test.text));
        if (test.bytes == nullptr) {
            EXPECT_FALSE(decoded.has_value()) << QString::fromUtf16(test.text).toStdString();
        } else {
            ASSERT_TRUE(decoded.has_value()) << QString::fromUtf16(test.text).toStdString();
            EXPECT_EQ(*decoded, QByteArray(test.bytes));
        }
    }
}

TEST(Base64, DecodedLengthFollowsThePadding) {
    EXPECT_EQ(Base64DecodedLength(u""), 0);
    EXPECT_EQ(Base64DecodedLength(u"Zg=="), 1);
    EXPECT_EQ(Base64DecodedLength(u"Zm8="), 2);
    EXPECT_EQ(Base64DecodedLength(u"Zm9vZm9v"), 6);
    EXPECT_EQ(Base64DecodedLength(u"Zm9vZ"), std::nullopt);
}

}  // namespace
