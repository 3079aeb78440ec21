// What the request loop passes on to the model, and the pings it builds from the model's
// folders.

#include "app/request_loop_link.h"

#include <gtest/gtest.h>

#include "app/dir_item_list.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray pingFor(const QList<DirItem>& folders) {
    return JSONEncode(TypeIDAndData{u"ping"_s, QString(), QString::fromUtf8(JSONEncode(folders))});
}

TEST(RequestLoopLink, ARepeatIsPassedOnOnlyAfterTheModelChangedOrWhileSilenceIsShown) {
    RequestLoopLink link;
    const HelperAnswer folders = QList<DirItem>{};
    EXPECT_TRUE(link.mustPassOn("[]", folders));
    EXPECT_FALSE(link.mustPassOn("[]", folders));
    EXPECT_TRUE(link.mustPassOn("[ ]", folders));  // any other text, even of the same meaning
    EXPECT_FALSE(link.mustPassOn("[ ]", folders));

    link.modelChanged();
    EXPECT_TRUE(link.mustPassOn("[ ]", folders));
    EXPECT_FALSE(link.mustPassOn("[ ]", folders));

    link.setSilenceShown(true);
    EXPECT_TRUE(link.mustPassOn("[ ]", folders));
    EXPECT_TRUE(link.mustPassOn("[ ]", folders));
    link.setSilenceShown(false);
    EXPECT_FALSE(link.mustPassOn("[ ]", folders));
}

TEST(RequestLoopLink, AnswersThatAreLoggedArePassedOnEveryTime) {
    RequestLoopLink link;
    const QList<std::pair<QByteArray, HelperAnswer>> logged = {
        {"{}", UndecodableAnswer{}},
        {R"({"Type":"surprise","ID":"","Data":""})", TypeIDAndData{u"surprise"_s, {}, {}}}};
    for (const auto& [text, answer] : logged) {
        SCOPED_TRACE(text.toStdString());
        EXPECT_TRUE(link.mustPassOn(text, answer));
        EXPECT_TRUE(link.mustPassOn(text, answer));
    }
    for (const char* type : {"ping", "auth request"}) {
        const QByteArray text = JSONEncode(TypeIDAndData{QString::fromLatin1(type), {}, {}});
        const HelperAnswer answer = TypeIDAndData{QString::fromLatin1(type), {}, {}};
        EXPECT_TRUE(link.mustPassOn(text, answer)) << type;
        EXPECT_FALSE(link.mustPassOn(text, answer)) << type;
    }
}

TEST(RequestLoopLink, PingsCarryTheFoldersTheModelPublishedLast) {
    RequestLoopLink link;
    EXPECT_EQ(link.pingMessage(), pingFor({}));

    DirItemList list;
    const QList<DirItem> folders = {{.error = u"quota \"full\""_s,
                                     .enabled = true,
                                     .groupID = 7,
                                     .name = u"a"_s,
                                     .path = u"/a"_s,
                                     .status = u"1 of 2"_s},
                                    {.error = std::nullopt,
                                     .enabled = false,
                                     .groupID = 9007199254740993,
                                     .name = u"b"_s,
                                     .path = u"/b"_s,
                                     .status = u"Up to date"_s}};
    ASSERT_TRUE(list.merge(folders));
    link.setFolders(list.itemJSON());
    EXPECT_EQ(link.pingMessage(), pingFor(folders));
    EXPECT_EQ(link.pingMessage(), pingFor(folders));

    ASSERT_TRUE(list.remove(u"/a"_s));
    link.setFolders(list.itemJSON());
    EXPECT_EQ(link.pingMessage(), pingFor({folders[1]}));
}

}  // namespace
