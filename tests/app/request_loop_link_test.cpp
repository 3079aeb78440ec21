// What the request loop passes on to the model, and the pings it builds from the model's
// folders.

#include "app/request_loop_link.h"

#include <gtest/gtest.h>

#include "app/dir_item_list.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// Whether the link passes the answer on.
bool passesOn(RequestLoopLink& link, const QByteArray& text, const HelperAnswer& answer) {
    return link.answerToPassOn(text, [&](const QByteArray&) { return answer; }).has_value();
}

QByteArray pingFor(const QList<DirItem>& folders) {
    return JSONEncode(TypeIDAndData{u"ping"_s, QString(), QString::fromUtf8(JSONEncode(folders))});
}

TEST(RequestLoopLink, ARepeatIsPassedOnOnlyAfterTheModelChangedOrWhileSilenceIsShown) {
    RequestLoopLink link;
    const HelperAnswer folders = QList<DirItem>{};
    EXPECT_TRUE(passesOn(link, "[]", folders));
    EXPECT_FALSE(passesOn(link, "[]", folders));
    EXPECT_TRUE(passesOn(link, "[ ]", folders));  // any other text, even of the same meaning
    EXPECT_FALSE(passesOn(link, "[ ]", folders));

    link.modelChanged();
    EXPECT_TRUE(passesOn(link, "[ ]", folders));
    EXPECT_FALSE(passesOn(link, "[ ]", folders));

    link.setSilenceShown(true);
    EXPECT_TRUE(passesOn(link, "[ ]", folders));
    EXPECT_TRUE(passesOn(link, "[ ]", folders));
    link.setSilenceShown(false);
    EXPECT_FALSE(passesOn(link, "[ ]", folders));
}

TEST(RequestLoopLink, AnswersThatAreLoggedArePassedOnEveryTime) {
    RequestLoopLink link;
    const QList<std::pair<QByteArray, HelperAnswer>> logged = {
        {"{}", UndecodableAnswer{}},
        {R"({"Type":"surprise","ID":"","Data":""})", TypeIDAndData{u"surprise"_s, {}, {}}}};
    for (const auto& [text, answer] : logged) {
        SCOPED_TRACE(text.toStdString());
        EXPECT_TRUE(passesOn(link, text, answer));
        EXPECT_TRUE(passesOn(link, text, answer));
    }
    for (const char* type : {"ping", "auth request"}) {
        const QByteArray text = JSONEncode(TypeIDAndData{QString::fromLatin1(type), {}, {}});
        const HelperAnswer answer = TypeIDAndData{QString::fromLatin1(type), {}, {}};
        EXPECT_TRUE(passesOn(link, text, answer)) << type;
        EXPECT_FALSE(passesOn(link, text, answer)) << type;
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
