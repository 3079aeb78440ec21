// How the model applies answers: each answer is sealed here the way the helper
// seals it, opened by the model's own poll manager and applied, with a silent
// helper so that no ping of the model's own gets in the way.

#include <gtest/gtest.h>

#include <QTest>

#include "app/helper_answer.h"
#include "helper_choice.h"
#include "model_fixture.h"
#include "poll_manager/poll_manager.h"

using namespace Qt::Literals::StringLiterals;
using testing_support::ModelFixture;

namespace {

DirItem folder(const QString& path, const QString& status) {
    return {.error = std::nullopt,
            .enabled = true,
            .groupID = 1001,
            .name = path.section(u'/', -1),
            .path = path,
            .status = status};
}

class AnswerRule : public ::testing::Test {
protected:
    AnswerRule() {
        helperStore_->setExternalPublicKey(appStore_->LocalPublicKey());
        appStore_->setExternalPublicKey(helperStore_->LocalPublicKey());
        model().pm().setClock([this] { return sealedAt_; });
    }

    ItemsProvider& model() { return *fixture_.model; }
    // What the next ping must carry: the folders as they stand now.
    QByteArray expectedPing() {
        return JSONEncode(
            TypeIDAndData{u"ping"_s, QString(), model().pm().objectAsString(model().dirItems())});
    }

    // Seals the JSON as the helper would, then opens and applies it as the model does.
    void answer(const QByteArray& json) {
        ++sealedAt_;
        const QByteArray envelope =
            JSONEncode(helperStore_->encrypt(json, QByteArray::number(sealedAt_)));
        PollManager& pm = model().pm();
        const auto opened = pm.decryptAndDecodeJSON<QJsonValue>(
            envelope, *appStore_, [&pm](const QString& data) { return pm.authTimestamp(data); });
        model().applyAnswer(ReadHelperAnswer(opened));
    }
    template <JSONEncodable T>
    void answerWith(const T& value) {
        answer(JSONEncode(value));
    }
    void answerEnvelope(const char* type) {
        answerWith(TypeIDAndData{QString::fromLatin1(type), {}, {}});
    }

private:
    ModelFixture fixture_{{{"BRISVANE_DEMO_SILENT", "1"}}};
    std::unique_ptr<KeyExchangeStore> helperStore_ = KeyExchange_Curve25519_SHA256_HKDF_AESGCM();
    std::unique_ptr<KeyExchangeStore> appStore_ = KeyExchange_Curve25519_SHA256_HKDF_AESGCM();
    std::int64_t sealedAt_ = KeyExchangeCurrentTimestamp();
};

TEST_F(AnswerRule, LoginStateFollowsAuthRequestsAndEveryOtherKnownAnswer) {
    EXPECT_TRUE(model().isLoggedIn());
    const QList<QByteArray> loggingIn = {"[]", R"([{"GroupID":7,"Name":"Family","WalkPaths":[]}])",
                                         R"({"Type":"ping","ID":"","Data":""})"};
    for (const QByteArray& json : loggingIn) {
        SCOPED_TRACE(json.toStdString());
        answerEnvelope("auth request");
        EXPECT_FALSE(model().isLoggedIn());
        answer(json);
        EXPECT_TRUE(model().isLoggedIn());
    }
}

TEST_F(AnswerRule, EmptyFolderListIsAFolderListWithNothingBusy) {
    answer("[]");
    EXPECT_TRUE(model().dirItems().isEmpty());
    EXPECT_FALSE(model().isLoading());
    EXPECT_EQ(model().menuBarString(), u"internaldrive");
}

TEST_F(AnswerRule, LoadingFollowsTheBusiestFolderAndPingOnlyEndsAnEmptyWait) {
    answerWith(QList{folder(u"/a"_s, u"Up to date"_s), folder(u"/b"_s, u"5 of 6 hashing"_s)});
    EXPECT_TRUE(model().isLoading());
    EXPECT_EQ(model().menuBarString(), u"arrow.clockwise");

    answerEnvelope("ping");  // folders exist: only a folder list may end the wait
    EXPECT_TRUE(model().isLoading());

    answerWith(QList{folder(u"/b"_s, u"Server status check ..."_s)});
    EXPECT_FALSE(model().isLoading());
    EXPECT_EQ(model().menuBarString(), u"internaldrive");

    answerWith(QList{folder(u"/c"_s, u"7 of 9 beyond the known steps"_s)});
    EXPECT_TRUE(model().isLoading());
    EXPECT_EQ(model().menuBarString(), u"arrow.clockwise");
}

TEST_F(AnswerRule, PingWithNoFoldersEndsTheWait) {
    answerEnvelope("ping");
    EXPECT_FALSE(model().isLoading());
    EXPECT_EQ(model().menuBarString(), u"internaldrive");
}

TEST_F(AnswerRule, FoldersMergeInPlaceInFirstReportedOrderAndGroupsAreReplacedWhole) {
    answerWith(QList{folder(u"/a"_s, u"1 of 6"_s), folder(u"/b"_s, u"1 of 6"_s)});
    answerWith(QList{folder(u"/c"_s, u"1 of 6"_s), folder(u"/a"_s, u"Up to date"_s)});
    const QList<DirItem> expected = {folder(u"/a"_s, u"Up to date"_s), folder(u"/b"_s, u"1 of 6"_s),
                                     folder(u"/c"_s, u"1 of 6"_s)};
    EXPECT_EQ(model().dirItems(), expected);
    EXPECT_EQ(model().pingMessage(), expectedPing());
    EXPECT_EQ(model().walkDirIcon(u"/a"_s), u"internaldrive");
    EXPECT_EQ(model().walkDirIcon(u"/b"_s), u"arrow.clockwise");
    EXPECT_EQ(model().walkDirIcon(u"/unknown"_s), u"internaldrive");

    answerWith(QList<GroupItem>{{1, u"One"_s, {u"/a"_s}}, {2, u"Two"_s, {}}});
    const QList<GroupItem> replacement = {{3, u"Three"_s, {}}};
    answerWith(replacement);
    EXPECT_EQ(model().groups(), replacement);
}

TEST_F(AnswerRule, AnswersOfNoKnownShapeOrTypeChangeNothing) {
    answerWith(QList{folder(u"/a"_s, u"2 of 6"_s)});
    answerEnvelope("auth request");
    const QList<DirItem> folders = model().dirItems();
    const QList<QByteArray> ignored = {
        R"({"Type":"surprise","ID":"","Data":""})", R"({"Unknown":true})", "[1, 2]",
        R"([{"GroupID":"7","Name":"Family","WalkPaths":[]}])", R"({"Type":"ping","ID":""})"};
    for (const QByteArray& json : ignored) {
        SCOPED_TRACE(json.toStdString());
        answer(json);
        EXPECT_FALSE(model().isLoggedIn());
        EXPECT_EQ(model().dirItems(), folders);
        EXPECT_TRUE(model().groups().isEmpty());
    }
}

TEST_F(AnswerRule, DeletedFolderIsRemovedAgainWhenAnAnswerBringsItBackWithinHalfASecond) {
    const DirItem kept = folder(u"/kept"_s, u"Up to date"_s);
    const DirItem gone = folder(u"/gone"_s, u"Up to date"_s);
    answerWith(QList<GroupItem>{{1, u"One"_s, {gone.path, kept.path}}, {2, u"Two"_s, {gone.path}}});
    answerWith(QList{gone, kept});

    EXPECT_EQ(model().pingMessage(), expectedPing());
    model().deleteItem(gone.path);
    EXPECT_EQ(model().dirItems(), QList{kept});
    EXPECT_EQ(model().pingMessage(), expectedPing());
    EXPECT_EQ(model().groups().at(0).walkPaths, QStringList{kept.path});
    EXPECT_TRUE(model().groups().at(1).walkPaths.isEmpty());

    answerWith(QList{gone});  // an answer already on its way
    EXPECT_EQ(model().dirItems().size(), 2);
    EXPECT_TRUE(
        testing_support::waitUntil([&] { return model().dirItems() == QList{kept}; }, 2000));

    answerWith(QList{gone});  // watched again later: it stays
    QTest::qWait(600);
    EXPECT_EQ(model().dirItems(), (QList{kept, gone}));
}

TEST(HelperChoice, BetaBuildWinsAndOnlyExactlyArm64PicksTheArmBuilds) {
    QTemporaryDir resources;
    auto touch = [&](const char* name) {
        QFile file(QDir(resources.path()).filePath(QString::fromLatin1(name)));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    };
    touch("harlix-darwin-arm64");
    touch("harlix-darwin-amd64");
    touch("harlix-darwin-amd64-beta");

    const HelperChoice arm = ChooseHelperExecutable(u"arm64"_s, resources.path());
    EXPECT_EQ(arm.name, u"harlix-darwin-arm64");
    EXPECT_EQ(arm.logLine, u"run release harlix-darwin-arm64:");
    for (const QString& architecture : {u"x86_64"_s, u"aarch64"_s, u"ARM64"_s, QString()}) {
        const HelperChoice other = ChooseHelperExecutable(architecture, resources.path());
        EXPECT_EQ(other.name, u"harlix-darwin-amd64-beta") << qPrintable(architecture);
        EXPECT_EQ(other.logLine, u"run beta: harlix-darwin-amd64-beta");
    }
}

}  // namespace
