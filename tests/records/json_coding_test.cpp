// Strict JSON coding: member order, escapes, exact integers.

#include "records/json_coding.h"

#include <gtest/gtest.h>

#include <limits>

#include "records/records.h"

using namespace Qt::Literals::StringLiterals;

TEST(JSON, RecordsKeepTheirMemberOrderAndEscapeWhatJSONRequires) {
    const TypeIDAndData record{u"ping"_s, u"1"_s, u"q\" b\\ /\n\x01 é 😀"_s};
    EXPECT_EQ(JSONEncode(record), R"({"Type":"ping","ID":"1","Data":"q\" b\\ /\n\u0001 )"
                                  "\xc3\xa9 \xf0\x9f\x98\x80\"}");
}

TEST(JSON, EveryCharacterAndLoneSurrogatesSurviveARoundTrip) {
    QString text;
    for (char16_t c = 0; c < 0x250; ++c) {
        text.append(QChar(c));
    }
    text += u"😀"_s + QChar(0xDE00) + u"x"_s + QChar(0xD83D);
    const TypeIDAndData record{text, QString(QChar(0xD83D)), QString(QChar(0xDC00))};
    // A lone surrogate has no UTF-8 form, so it travels as an escape.
    const QByteArray encoded = JSONEncode(record);
    EXPECT_TRUE(encoded.contains(R"("ID":"\ud83d","Data":"\udc00")")) << encoded.toStdString();
    EXPECT_EQ(JSONDecode<TypeIDAndData>(encoded), record);
}

// U+FEFF is a character like any other inside a string (a folder's name may start with one),
// and no part of JSON outside one: it is neither dropped from a string nor skipped before a
// document.
TEST(JSON, AByteOrderMarkIsKeptInsideStringsAndRefusedOutsideThem) {
    const QString mark(QChar(0xFEFF));
    const GroupItem group{1, mark, {mark, mark + u"/home/a"_s, u"/home/"_s + mark}};
    EXPECT_EQ(JSONDecode<std::vector<GroupItem>>(JSONEncode(std::vector{group})),
              std::vector{group});
    const DirItem folder{mark, true, 2, mark + u"x"_s, mark + u"/p"_s, mark};
    EXPECT_EQ(JSONDecode<std::vector<DirItem>>(JSONEncode(std::vector{folder})),
              std::vector{folder});
    const TypeIDAndData request{mark, mark + mark, mark + u"[]"_s};
    EXPECT_EQ(JSONDecode<TypeIDAndData>(JSONEncode(request)), request);

    // The same character raw and escaped reads the same.
    EXPECT_EQ(JSONDecode<TypeIDAndData>(R"({"Type":"\ufeff","ID":"\ufeffx","Data":""})"),
              JSONDecode<TypeIDAndData>("{\"Type\":\"\xEF\xBB\xBF\",\"ID\":\"\xEF\xBB\xBFx\","
                                        "\"Data\":\"\"}"));
    for (const QByteArray& refused : {
             QByteArray("\xEF\xBB\xBF[]"),        // before the document
             QByteArray("[\xEF\xBB\xBF]"),        // between its parts
             QByteArray("[\"\\\xEF\xBB\xBF\"]"),  // escaped as if it were an escape
         }) {
        EXPECT_THROW(json::parse(refused), std::system_error) << refused.toStdString();
    }
    // After an escaped backslash it is a character again.
    EXPECT_EQ(
        JSONDecode<TypeIDAndData>("{\"Type\":\"\\\\\xEF\xBB\xBF\",\"ID\":\"\",\"Data\":\"\"}").type,
        u"\\"_s + mark);
}

TEST(JSON, ValueFromUTF8WritesWhatTheQStringFormWrites) {
    // Every ASCII character, long plain runs on both sides of the escapes, and
    // multi-byte text; lone surrogates have no UTF-8 form and are not offered.
    QString text = QString(70, u'p');
    for (char16_t c = 0; c < 0x80; ++c) {
        text.append(QChar(c)).append(u"é😀"_s);
    }
    text += QString(70, u'q');
    for (const QString& sample : {text, QString(),
                                  u"\"_s, u"
                                  ""_s}) {
        JSONWriter fromUTF8;
        fromUTF8.beginArray();
        fromUTF8.value(u"before"_s);
        fromUTF8.valueFromUTF8(sample.toUtf8());
        fromUTF8.endArray();
        EXPECT_EQ(fromUTF8.text(), JSONEncode(QStringList{u"before"_s, sample}));
    }
}

TEST(JSON, Int64IsExactOverItsWholeRange) {
    for (const std::int64_t number :
         {(std::int64_t{1} << 53) + 1, std::numeric_limits<std::int64_t>::max(),
          std::numeric_limits<std::int64_t>::min()}) {
        JSONWriter writer;
        writer.beginObject();
        writer.key("v"_L1);
        writer.value(number);
        writer.endObject();
        EXPECT_EQ(writer.text(), "{\"v\":" + QByteArray::number(number) + "}");
        EXPECT_EQ(json::requireInt64(json::requireObject(json::parse(writer.text())), "v"_L1),
                  number);
    }
}
