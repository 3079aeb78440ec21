// Reading reports that mostly repeat the previous one: the result must always be
// what a full, strict read of the same text gives.

#include <gtest/gtest.h>

#include "app/dir_item_list.h"
#include "app/helper_answer_reader.h"

using namespace Qt::Literals::StringLiterals;

namespace {

DirItem folder(int index, const QString& status) {
    return {.error = index % 3 == 0 ? std::optional(u"disk \"full\""_s) : std::nullopt,
            .enabled = index % 2 == 0,
            .groupID = index,
            .name = u"Album, \\ %1 ]}"_s.arg(index),
            .path = u"/photos/é/%1"_s.arg(index),
            .status = status};
}

QList<DirItem> folders(int count, const QString& status) {
    QList<DirItem> list;
    for (int index = 0; index < count; ++index) {
        list.append(folder(index, status));
    }
    return list;
}

QStringList strings(const std::optional<QList<QByteArrayView>>& elements) {
    QStringList texts;
    for (QByteArrayView element : elements.value()) {
        texts << QString::fromUtf8(element);
    }
    return texts;
}

TEST(SplitJSONArray, FindsElementsAcrossStringsEscapesAndNesting) {
    EXPECT_EQ(strings(SplitJSONArray(" [ ] ")), QStringList());
    EXPECT_EQ(strings(SplitJSONArray(R"([ {"a":"x,]\"}"} , [1,[2]] ,"\\",3 ])")),
              (QStringList{uR"({"a":"x,]\"}"})"_s, u"[1,[2]]"_s, uR"("\\")"_s, u"3"_s}));
    for (const char* malformed :
         {"", "{}", "[", "[1,]", "[,1]", "[1,,2]", "[\"a]", "[1]]", "[{]", "x[1]"}) {
        EXPECT_FALSE(SplitJSONArray(malformed).has_value()) << malformed;
    }
}

TEST(HelperAnswerReader, AFolderNestedToTheParsersLimitIsJudgedAsTheWholeText) {
    // Alone, the folder is within the parser's nesting limit; inside its array it is one
    // level past it, so the whole text is no JSON.
    const QByteArray deep = QByteArray(1023, '[') + QByteArray(1023, ']');
    QByteArray text = JSONEncode(folders(1, u"1 of 6"_s));
    text.insert(text.size() - 2, ",\"x\":" + deep);
    HelperAnswerReader reader;
    EXPECT_TRUE(std::holds_alternative<UndecodableAnswer>(reader.read(text)));

    // Nesting the short cut leaves to the full parse still reads as a folder list.
    QByteArray nested = JSONEncode(folders(1, u"1 of 6"_s));
    nested.insert(nested.size() - 2, ",\"x\":" + QByteArray(kSplitJSONArrayMaxDepth, '[') +
                                         QByteArray(kSplitJSONArrayMaxDepth, ']'));
    EXPECT_FALSE(SplitJSONArray(nested).has_value());
    EXPECT_EQ(std::get<QList<DirItem>>(reader.read(nested)), folders(1, u"1 of 6"_s));
}

TEST(HelperAnswerReader, ReusedFoldersAlwaysMatchAFullRead) {
    HelperAnswerReader reader;
    QList<DirItem> report = folders(50, u"1 of 6"_s);
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        if (round == 1) {
            report[7] = folder(7, u"2 of 6"_s);  // one changed in place
        } else if (round == 2) {
            report.removeAt(0);  // every later folder moves up by one
        } else if (round == 3) {
            report.append(folder(99, u"Up to date"_s));
        }
        const QByteArray text = JSONEncode(report);
        EXPECT_EQ(std::get<QList<DirItem>>(reader.read(text)), report);
        // The same text again is the very same list.
        const auto first = std::get<QList<DirItem>>(reader.read(text));
        EXPECT_TRUE(std::get<QList<DirItem>>(reader.read(text)).isSharedWith(first));
    }
}

TEST(HelperAnswerReader, OtherShapesAfterAFolderListFollowTheFullRule) {
    HelperAnswerReader reader;
    (void)reader.read(JSONEncode(folders(3, u"1 of 6"_s)));
    const QList<GroupItem> groups = {{1, u"Family"_s, {u"/a"_s}}};
    EXPECT_EQ(std::get<QList<GroupItem>>(reader.read(JSONEncode(groups))), groups);
    // The first folder repeats the last report, the second is not a folder.
    QByteArray mixed = JSONEncode(folders(1, u"1 of 6"_s));
    mixed.insert(mixed.size() - 1, R"(,{"Path":"/b"})");
    EXPECT_TRUE(std::holds_alternative<UndecodableAnswer>(reader.read(mixed)));
    EXPECT_TRUE(std::holds_alternative<UndecodableAnswer>(reader.read("not json")));
    // A byte-order mark may begin a folder's name or path, read anew or reused; between the
    // folders it is no JSON, as it is in the whole text.
    QList<DirItem> marked = folders(2, u"1 of 6"_s);
    marked[1].path.prepend(QChar(0xFEFF));
    marked[1].name = QChar(0xFEFF);
    for (int read = 0; read < 2; ++read) {
        EXPECT_EQ(std::get<QList<DirItem>>(reader.read(JSONEncode(marked))), marked);
    }
    QByteArray markBetween = JSONEncode(marked);
    markBetween.insert(1, "\xEF\xBB\xBF");
    EXPECT_TRUE(std::holds_alternative<UndecodableAnswer>(reader.read(markBetween)));
    EXPECT_TRUE(std::holds_alternative<QList<DirItem>>(reader.read("[]")));
}

TEST(DirItemList, KeptJSONMatchesEncodingTheWholeListAfterEveryChange) {
    DirItemList list;
    EXPECT_EQ(list.toJSON(), "[]");
    EXPECT_TRUE(list.merge(folders(5, u"1 of 6"_s)));
    EXPECT_FALSE(list.merge({folder(2, u"1 of 6"_s)}));
    EXPECT_TRUE(list.merge({folder(2, u"Up to date"_s), folder(9, u"3 of 6"_s)}));
    EXPECT_TRUE(list.remove(u"/photos/é/0"_s));
    EXPECT_FALSE(list.remove(u"/photos/é/0"_s));
    EXPECT_EQ(list.toJSON(), JSONEncode(list.items()));
    EXPECT_EQ(list.find(u"/photos/é/9"_s)->status, u"3 of 6");
    EXPECT_EQ(list.items().at(1).status, u"Up to date");  // replaced where it stood
}

}  // namespace
