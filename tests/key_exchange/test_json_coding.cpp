#include <gtest/gtest.h>

#include <QJsonDocument>
#include <limits>

#include "expect_error.h"
#include "key_exchange/json_coding.h"
#include "key_exchange/key_exchange.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QJsonObject Object(const char* text) {
    return json::requireObject(json::parse(text));
}

TEST(JSONWriter, WritesCompactMembersInCallOrder) {
    JSONWriter writer;
    writer.beginObject();
    writer.key("Zeta"_L1);
    writer.value(std::int64_t{-9223372036854775807 - 1});
    writer.key("Alpha"_L1);
    writer.beginArray();
    writer.value(true);
    writer.value(false);
    writer.null();
    writer.beginObject();
    writer.endObject();
    writer.beginArray();
    writer.endArray();
    writer.endArray();
    writer.key("Max"_L1);
    writer.value(std::numeric_limits<std::int64_t>::max());
    writer.endObject();
    EXPECT_EQ(
        writer.text(),
        R"({"Zeta":-9223372036854775808,"Alpha":[true,false,null,{},[]],"Max":9223372036854775807})");
}

TEST(JSONWriter, EscapesWhatJSONRequiresAndWritesUTF8) {
    JSONWriter writer;
    writer.value(u"q\" b\\ /\n\t\r\b\f\x01\x1f\x7f é 😀"_s);
    EXPECT_EQ(writer.text(),
              "\"q\\\" b\\\\ /\\n\\t\\r\\b\\f\\u0001\\u001f\x7f \xc3\xa9 \xf0\x9f\x98\x80\"");
}

TEST(JSONWriter, EveryCharacterSurvivesAParser) {
    QString text;
    for (char16_t c = 0; c < 0x250; ++c) {
        text.append(QChar(c));
    }
    text.append(u"😀"_s);
    JSONWriter writer;
    writer.beginArray();
    writer.value(text);
    writer.endArray();
    const QJsonValue parsed = json::parse(writer.text());
    EXPECT_EQ(parsed.toArray().at(0).toString(), text);
}

TEST(JSONParse, RefusesWhatIsNotAnObjectOrArrayOfUTF8JSON) {
    for (const char* text : {"", "{", "{\"a\":1} x", "42", "\"text\"", "null", "{'a':1}",
                             "{\"a\":\"\xff\"}", "{\"a\":\"\xc3\"}"}) {
        EXPECT_EQ(ErrorOf([&] { json::parse(text); }), JSONError::dataCorrupted) << text;
    }
    EXPECT_TRUE(json::parse("[]").isArray());
    EXPECT_TRUE(json::parse(" {} ").isObject());
}

TEST(JSONRead, StringsMustBePresentAndStrings) {
    const QJsonObject object = Object(R"({"s":"x","n":1,"z":null,"a":["x"]})");
    EXPECT_EQ(json::requireString(object, "s"_L1), u"x"_s);
    EXPECT_EQ(ErrorOf([&] { json::requireString(object, "missing"_L1); }), JSONError::keyNotFound);
    for (const auto key : {"n"_L1, "z"_L1, "a"_L1}) {
        EXPECT_EQ(ErrorOf([&] { json::requireString(object, key); }), JSONError::typeMismatch);
    }
    EXPECT_EQ(json::optionalString(object, "missing"_L1), std::nullopt);
    EXPECT_EQ(json::optionalString(object, "z"_L1), std::nullopt);
    EXPECT_EQ(json::optionalString(object, "s"_L1), u"x"_s);
    EXPECT_EQ(ErrorOf([&] { json::optionalString(object, "n"_L1); }), JSONError::typeMismatch);
}

TEST(JSONRead, Int64IsExactOverItsWholeRange) {
    const QJsonObject object = Object(
        R"({"above53":9007199254740993,"max":9223372036854775807,"min":-9223372036854775808,)"
        R"("exp":1e3,"fraction":1.5,"tooBig":9223372036854775808,"text":"5","flag":true})");
    EXPECT_EQ(json::requireInt64(object, "above53"_L1), 9007199254740993);
    EXPECT_EQ(json::requireInt64(object, "max"_L1), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(json::requireInt64(object, "min"_L1), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(json::requireInt64(object, "exp"_L1), 1000);
    for (const auto key : {"fraction"_L1, "tooBig"_L1, "text"_L1, "flag"_L1}) {
        EXPECT_EQ(ErrorOf([&] { json::requireInt64(object, key); }), JSONError::typeMismatch);
    }
    EXPECT_EQ(ErrorOf([&] { json::requireInt64(object, "none"_L1); }), JSONError::keyNotFound);

    // Written and read back, the value above 2^53 keeps its last digit.
    JSONWriter writer;
    writer.beginObject();
    writer.key("v"_L1);
    writer.value(std::int64_t{9007199254740993});
    writer.endObject();
    EXPECT_EQ(json::requireInt64(json::requireObject(json::parse(writer.text())), "v"_L1),
              9007199254740993);
}

TEST(JSONRead, BoolsAndStringArrays) {
    const QJsonObject object = Object(R"({"b":false,"n":0,"list":["a","b"],"mixed":["a",1]})");
    EXPECT_FALSE(json::requireBool(object, "b"_L1));
    EXPECT_EQ(ErrorOf([&] { json::requireBool(object, "n"_L1); }), JSONError::typeMismatch);
    EXPECT_EQ(json::requireStringArray(object, "list"_L1), (QStringList{u"a"_s, u"b"_s}));
    EXPECT_EQ(ErrorOf([&] { json::requireStringArray(object, "mixed"_L1); }),
              JSONError::typeMismatch);
    EXPECT_EQ(ErrorOf([&] { json::requireStringArray(object, "b"_L1); }), JSONError::typeMismatch);
}

TEST(EnvelopeJSON, WritesTheFourKeysInOrder) {
    const KeyExchangeAEADStore envelope{u"k"_s, u"c"_s, u"n"_s, u"a"_s};
    EXPECT_EQ(JSONEncode(envelope),
              R"({"KDFNonce":"k","Ciphertext":"c","AEADNonce":"n","AdditionalData":"a"})");
    EXPECT_EQ(JSONDecode<KeyExchangeAEADStore>(JSONEncode(envelope)), envelope);
}

TEST(EnvelopeJSON, NeedsAllFourStringsAndIgnoresExtraKeys) {
    EXPECT_EQ(
        JSONDecode<KeyExchangeAEADStore>(
            R"({"X":1,"AdditionalData":"a","AEADNonce":"n","Ciphertext":"c","KDFNonce":"k"})"),
        (KeyExchangeAEADStore{u"k"_s, u"c"_s, u"n"_s, u"a"_s}));
    EXPECT_EQ(ErrorOf([] {
                  JSONDecode<KeyExchangeAEADStore>(
                      R"({"KDFNonce":"k","Ciphertext":"c","AEADNonce":"n"})");
              }),
              JSONError::keyNotFound);
    EXPECT_EQ(ErrorOf([] {
                  JSONDecode<KeyExchangeAEADStore>(
                      R"({"KDFNonce":"k","Ciphertext":7,"AEADNonce":"n","AdditionalData":"a"})");
              }),
              JSONError::typeMismatch);
    EXPECT_EQ(ErrorOf([] { JSONDecode<KeyExchangeAEADStore>("[]"); }), JSONError::typeMismatch);
}

TEST(TypeIDAndDataJSON, RoundTripsWithItsThreeKeys) {
    const KeyExchangeTypeIDAndData record{u"ping"_s, u"1"_s, u"[{\"a\":1}]"_s};
    EXPECT_EQ(JSONEncode(record), R"({"Type":"ping","ID":"1","Data":"[{\"a\":1}]"})");
    EXPECT_EQ(JSONDecode<KeyExchangeTypeIDAndData>(JSONEncode(record)), record);
    EXPECT_EQ(ErrorOf([] { JSONDecode<KeyExchangeTypeIDAndData>(R"({"Type":"ping","ID":"1"})"); }),
              JSONError::keyNotFound);
}

}  // namespace
