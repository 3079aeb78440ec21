// The records' JSON forms, and what DirItem derives from its status text.

#include "records/records.h"

#include <gtest/gtest.h>

#include <QString>
#include <system_error>
#include <vector>

#include "support/expect_error.h"

namespace {

// What JSONDecode<T> throws for the text; none when it decodes.
template <typename T>
std::error_code decodeError(QByteArrayView text) {
    return ErrorOf([&] { (void)JSONDecode<T>(text); });
}

TEST(DirItemTest, IconAndProgressFollowTheLeadingStepOnly) {
    const std::pair<double, std::vector<const char*>> cases[] = {
        {1.0, {"Up to date", "Server status check ..."}},
        {0.15, {"1 of", "1 of 6 Scanning files"}},
        {0.3, {"2 of 6"}},
        {0.45, {"3 of"}},
        {0.6, {"4 of 6"}},
        {0.75, {"5 of"}},
        {0.9, {"6 of"}},
        // Busy, but neither settled nor one of the six steps.
        {0.0,
         {"7 of", "12 of 40", "0 of 6", "1of 6", " 1 of 6", "", "Up to date ", "up to date",
          "Server status check"}},
    };
    for (const auto& [progress, statuses] : cases) {
        for (const char* status : statuses) {
            SCOPED_TRACE(status);
            DirItem item;
            item.status = QString::fromUtf8(status);
            EXPECT_EQ(item.icon(), progress == 1.0 ? "internaldrive" : "arrow.clockwise");
            EXPECT_DOUBLE_EQ(item.progress(), progress);
        }
    }
}

TEST(RecordsTest, FolderEncodesInKeyOrderAndOmitsAnAbsentError) {
    DirItem item{.error = {}, .enabled = true, .groupID = 1, .name = "", .path = "/", .status = ""};
    EXPECT_EQ(JSONEncode(item), R"({"Path":"/","Enabled":true,"GroupID":1,"Name":"","Status":""})");
    item.error = "";
    EXPECT_EQ(JSONEncode(item),
              R"({"Path":"/","Error":"","Enabled":true,"GroupID":1,"Name":"","Status":""})");
    EXPECT_EQ(JSONDecode<DirItem>(JSONEncode(item)), item);
}

TEST(RecordsTest, DecodingIsStrictAboutKeysAndTypes) {
    const QByteArray dir = R"("Enabled":false,"GroupID":1,"Name":"n","Path":"/p")";
    using enum JSONError;
    const std::pair<std::error_code, JSONError> cases[] = {
        {decodeError<TypeIDAndData>(R"({"Type":"ping","Data":""})"), keyNotFound},
        {decodeError<TypeIDAndData>(R"({"Type":"a","ID":null,"Data":""})"), typeMismatch},
        {decodeError<GroupItem>(R"({"GroupID":1,"Name":"n"})"), keyNotFound},
        {decodeError<GroupItem>(R"({"GroupID":1.5,"Name":"n","WalkPaths":[]})"), typeMismatch},
        {decodeError<GroupItem>(R"({"GroupID":"1","Name":"n","WalkPaths":[]})"), typeMismatch},
        {decodeError<GroupItem>(R"({"GroupID":1,"Name":"n","WalkPaths":["/a",2]})"), typeMismatch},
        {decodeError<DirItem>("{" + dir + "}"), keyNotFound},
        {decodeError<DirItem>(R"({"Error":5,)" + dir + R"(,"Status":""})"), typeMismatch},
        {decodeError<std::vector<GroupItem>>(R"([{"GroupID":1,"Name":"","WalkPaths":[]},{}])"),
         keyNotFound},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(cases[i].first, cases[i].second) << "case " << i;
    }
    EXPECT_EQ(JSONDecode<DirItem>(R"({"Error":null,)" + dir + R"(,"Status":""})").error,
              std::nullopt);
}

TEST(RecordsTest, GroupsAreNotFoldersAndKeepSixtyFourBitIdsExact) {
    const QByteArray groups = R"([{"GroupID":1,"Name":"a","WalkPaths":["/x"]}])";
    EXPECT_EQ(decodeError<std::vector<DirItem>>(groups), JSONError::keyNotFound);
    EXPECT_EQ(JSONEncode(JSONDecode<std::vector<GroupItem>>(groups)), groups);
    // A double would round the first two.
    for (const char* id : {"9007199254740993", "9223372036854775807", "-9223372036854775808"}) {
        const QByteArray text = R"({"GroupID":)" + QByteArray(id) + R"(,"Name":"","WalkPaths":[]})";
        EXPECT_EQ(JSONEncode(JSONDecode<GroupItem>(text)), text);
    }
}

TEST(ExtensionsTest, DeletingPrefixDropsOnlyALeadingMatch) {
    EXPECT_EQ(deletingPrefix("harlix-beta", ""), "harlix-beta");
    EXPECT_EQ(deletingPrefix("harlix-beta", "harlix-"), "beta");
    EXPECT_EQ(deletingPrefix("harlix", "harlix-beta"), "harlix");
    EXPECT_EQ(deletingPrefix("harlix-beta", "beta"), "harlix-beta");
}

}  // namespace
