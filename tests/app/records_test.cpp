// The records' JSON forms, and what DirItem derives from its status text.

#include "app/records.h"

#include <gtest/gtest.h>

#include <QString>
#include <limits>
#include <system_error>
#include <vector>

#include "brisvane_version.h"

namespace {

void ExpectDecodeError(QByteArrayView text, auto decode, JSONError expected) {
    try {
        decode(text);
        ADD_FAILURE() << "decoded " << text.toByteArray().toStdString();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), expected) << text.toByteArray().toStdString();
    }
}

template <typename T>
void ExpectDecodeError(QByteArrayView text, JSONError expected) {
    ExpectDecodeError(
        text, [](QByteArrayView bytes) { return JSONDecode<T>(bytes); }, expected);
}

DirItem Folder(const QString& status) {
    DirItem item;
    item.status = status;
    return item;
}

TEST(DirItemTest, IconAndProgressFollowTheLeadingStepOnly) {
    struct Case {
        const char16_t* status;
        const char* icon;
        double progress;
    };
    const Case cases[] = {
        {u"Up to date", "internaldrive", 1.0},
        {u"Server status check ...", "internaldrive", 1.0},
        {u"1 of", "arrow.clockwise", 0.15},
        {u"1 of 6 Scanning files", "arrow.clockwise", 0.15},
        {u"2 of 6", "arrow.clockwise", 0.3},
        {u"3 of 6", "arrow.clockwise", 0.45},
        {u"4 of 6", "arrow.clockwise", 0.6},
        {u"5 of 6", "arrow.clockwise", 0.75},
        {u"6 of", "arrow.clockwise", 0.9},
        // Not one of the six steps: read as 0 on purpose, still busy.
        {u"7 of", "arrow.clockwise", 0.0},
        {u"12 of 40", "arrow.clockwise", 0.0},
        {u"0 of 6", "arrow.clockwise", 0.0},
        {u"1of 6", "arrow.clockwise", 0.0},
        {u" 1 of 6", "arrow.clockwise", 0.0},
        {u"", "arrow.clockwise", 0.0},
        // Only the exact settled texts count as settled.
        {u"Up to date ", "arrow.clockwise", 0.0},
        {u"up to date", "arrow.clockwise", 0.0},
        {u"Server status check", "arrow.clockwise", 0.0},
    };
    for (const Case& c : cases) {
        const DirItem item = Folder(QString::fromUtf16(c.status));
        SCOPED_TRACE(item.status.toStdString());
        EXPECT_EQ(item.icon(), QLatin1StringView(c.icon));
        EXPECT_DOUBLE_EQ(item.progress(), c.progress);
    }
}

TEST(TypeIDAndDataTest, EncodesTypeIDDataInOrderAndDecodesStrictly) {
    const TypeIDAndData ping{.type = "ping", .id = "", .data = R"([{"Path":"/a"}])"};
    const QByteArray text = JSONEncode(ping);
    EXPECT_EQ(text, R"({"Type":"ping","ID":"","Data":"[{\"Path\":\"/a\"}]"})");
    EXPECT_EQ(JSONDecode<TypeIDAndData>(text), ping);

    ExpectDecodeError<TypeIDAndData>(R"({"Type":"ping","Data":""})", JSONError::keyNotFound);
    ExpectDecodeError<TypeIDAndData>(R"({"Type":"ping","ID":1,"Data":""})",
                                     JSONError::typeMismatch);
    ExpectDecodeError<TypeIDAndData>(R"({"Type":"ping","ID":null,"Data":""})",
                                     JSONError::typeMismatch);
    ExpectDecodeError<TypeIDAndData>(R"(["ping","",""])", JSONError::typeMismatch);
}

TEST(GroupItemTest, EncodesInKeyOrderAndKeepsSixtyFourBitIdsExact) {
    const GroupItem group{.groupID = 7, .name = "Family", .walkPaths = {"/a", "/b c"}};
    EXPECT_EQ(JSONEncode(group), R"({"GroupID":7,"Name":"Family","WalkPaths":["/a","/b c"]})");
    EXPECT_EQ(JSONEncode(GroupItem{.groupID = 1, .name = "", .walkPaths = {}}),
              R"({"GroupID":1,"Name":"","WalkPaths":[]})");

    // Above 2^53 a double would round these; they must come back digit for digit.
    for (const QByteArray& id : {QByteArray("9007199254740993"), QByteArray("9223372036854775807"),
                                 QByteArray("-9223372036854775808"), QByteArray("0")}) {
        const QByteArray text = R"({"GroupID":)" + id + R"(,"Name":"n","WalkPaths":[]})";
        EXPECT_EQ(JSONEncode(JSONDecode<GroupItem>(text)), text);
    }
    EXPECT_EQ(JSONDecode<GroupItem>(R"({"GroupID":9223372036854775807,"Name":"","WalkPaths":[]})")
                  .groupID,
              std::numeric_limits<std::int64_t>::max());

    ExpectDecodeError<GroupItem>(R"({"GroupID":1.5,"Name":"n","WalkPaths":[]})",
                                 JSONError::typeMismatch);
    ExpectDecodeError<GroupItem>(R"({"GroupID":"1","Name":"n","WalkPaths":[]})",
                                 JSONError::typeMismatch);
    ExpectDecodeError<GroupItem>(R"({"GroupID":1,"Name":"n","WalkPaths":["/a",2]})",
                                 JSONError::typeMismatch);
    ExpectDecodeError<GroupItem>(R"({"GroupID":1,"Name":"n"})", JSONError::keyNotFound);
}

TEST(DirItemTest, EncodesInKeyOrderAndOmitsAnAbsentError) {
    DirItem folder{.error = std::nullopt,
                   .enabled = true,
                   .groupID = 9007199254740993,
                   .name = "Photos",
                   .path = "/home/u/Photos",
                   .status = "2 of 6"};
    EXPECT_EQ(JSONEncode(folder),
              R"({"Path":"/home/u/Photos","Enabled":true,"GroupID":9007199254740993,)"
              R"("Name":"Photos","Status":"2 of 6"})");
    folder.error = "disk full";
    EXPECT_EQ(JSONEncode(folder),
              R"({"Path":"/home/u/Photos","Error":"disk full","Enabled":true,)"
              R"("GroupID":9007199254740993,"Name":"Photos","Status":"2 of 6"})");
    folder.error = "";
    EXPECT_EQ(JSONDecode<DirItem>(JSONEncode(folder)), folder);
}

TEST(DirItemTest, DecodesAnErrorThatIsAbsentNullOrTextAndNothingElse) {
    const QByteArray rest = R"("Enabled":false,"GroupID":-1,"Name":"n","Path":"/p","Status":"s")";
    EXPECT_EQ(JSONDecode<DirItem>("{" + rest + "}").error, std::nullopt);
    EXPECT_EQ(JSONDecode<DirItem>(R"({"Error":null,)" + rest + "}").error, std::nullopt);
    EXPECT_EQ(JSONDecode<DirItem>(R"({"Error":"x",)" + rest + "}").error, "x");
    ExpectDecodeError<DirItem>(R"({"Error":5,)" + rest + "}", JSONError::typeMismatch);

    const DirItem decoded = JSONDecode<DirItem>("{" + rest + "}");
    EXPECT_EQ(decoded.groupID, -1);
    EXPECT_FALSE(decoded.enabled);
    EXPECT_EQ(decoded.path, "/p");

    ExpectDecodeError<DirItem>(
        R"({"Enabled":"false","GroupID":1,"Name":"n","Path":"/p","Status":"s"})",
        JSONError::typeMismatch);
    ExpectDecodeError<DirItem>(R"({"Enabled":false,"GroupID":1,"Name":"n","Path":"/p"})",
                               JSONError::keyNotFound);
}

TEST(RecordListTest, GroupsAndFoldersAreToldApartByTheirRequiredKeys) {
    const QByteArray groups =
        R"([{"GroupID":1,"Name":"a","WalkPaths":[]},{"GroupID":2,"Name":"b","WalkPaths":["/x"]}])";
    ExpectDecodeError<std::vector<DirItem>>(groups, JSONError::keyNotFound);
    const auto decodedGroups = JSONDecode<std::vector<GroupItem>>(groups);
    ASSERT_EQ(decodedGroups.size(), 2U);
    EXPECT_EQ(decodedGroups[1].walkPaths, QStringList{"/x"});
    EXPECT_EQ(JSONEncode(decodedGroups), groups);

    const QByteArray folders =
        R"([{"Path":"/p","Enabled":true,"GroupID":1,"Name":"n","Status":"Up to date"}])";
    ExpectDecodeError<std::vector<GroupItem>>(folders, JSONError::keyNotFound);
    EXPECT_EQ(JSONEncode(JSONDecode<std::vector<DirItem>>(folders)), folders);

    // One bad element fails the whole list.
    ExpectDecodeError<std::vector<GroupItem>>(R"([{"GroupID":1,"Name":"a","WalkPaths":[]},{}])",
                                              JSONError::keyNotFound);
}

TEST(ExtensionsTest, DeletingPrefixDropsOnlyALeadingMatch) {
    EXPECT_EQ(deletingPrefix("harlix-beta", ""), "harlix-beta");
    EXPECT_EQ(deletingPrefix("", ""), "");
    EXPECT_EQ(deletingPrefix("harlix-beta", "harlix-"), "beta");
    EXPECT_EQ(deletingPrefix("harlix", "harlix"), "");
    EXPECT_EQ(deletingPrefix("harlix", "harlix-beta"), "harlix");
    EXPECT_EQ(deletingPrefix("harlix-beta", "beta"), "harlix-beta");
    EXPECT_EQ(deletingPrefix("Harlix", "harlix"), "Harlix");
}

TEST(ExtensionsTest, BuildNumberIsTheGeneratedBundleVersion) {
    EXPECT_FALSE(buildNumber().isEmpty());
    EXPECT_EQ(buildNumber(), BRISVANE_BUNDLE_VERSION);
}

}  // namespace
