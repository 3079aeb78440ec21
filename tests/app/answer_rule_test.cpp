// How the model applies answers, against a stand-in for the helper that answers each request
// with the text a test gives it: no child process, no socket, a few milliseconds a case.

#include <gtest/gtest.h>

#include <QPromise>
#include <QTest>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>

#include "app/items_provider.h"
#include "helper_choice.h"
#include "support/wait.h"

using namespace Qt::Literals::StringLiterals;
using testing_support::waitFor;
using testing_support::waitUntil;

namespace {

DirItem folder(const QString& path, const QString& status) {
    return {.error = std::nullopt,
            .enabled = true,
            .groupID = 1001,
            .name = path.section(u'/', -1),
            .path = path,
            .status = status};
}

// Answers every request but the loop's pings at once, with the text a test set last; holds
// each ping until the test asks for the next one, unless told how to answer pings. The pings
// come from the transport thread.
class StandInHelper {
public:
    ItemsProviderCollaborators collaborators() {
        ItemsProviderCollaborators collaborators;
        collaborators.systemVersion = {14, 0, 0};
        collaborators.choosePort = [](std::int64_t lower, std::int64_t) { return lower; };
        collaborators.isLaunchAtLoginEnabled = [] { return true; };
        collaborators.setLaunchAtLogin = [](bool) {};
        collaborators.exitIfAlreadyOpen = [] {};
        collaborators.exchange = [this](const QByteArray& json) { return exchange(json); };
        collaborators.silenceNoticeAfter = kSilenceNoticeAfter;
        return collaborators;
    }
    static constexpr std::chrono::milliseconds kSilenceNoticeAfter{300};

    QByteArray answer;

    // Every ping from now on is answered at once, with this text.
    void answerPingsWith(const QByteArray& json) {
        std::lock_guard lock(lock_);
        pingAnswer_ = json;
    }

    // Fails the ping in flight, as a transport would, and gives the JSON of the next one.
    QByteArray nextPing() {
        const qsizetype seen = pingsSeen();
        failPendingPing();
        EXPECT_TRUE(waitUntil([&] { return pingsSeen() > seen; }, 2000));
        std::lock_guard lock(lock_);
        return pings_.isEmpty() ? QByteArray() : pings_.last();
    }

    void failPendingPing() {
        std::lock_guard lock(lock_);
        if (pendingPing_) {
            pendingPing_->setException(
                std::make_exception_ptr(std::system_error(TransportError::timedOut)));
            pendingPing_->finish();
            pendingPing_.reset();
        }
    }

private:
    QFuture<QByteArray> exchange(const QByteArray& json) {
        if (!json.startsWith(R"({"Type":"ping")")) {
            return QtFuture::makeReadyFuture(answer);
        }
        std::lock_guard lock(lock_);
        pings_.append(json);
        if (pingAnswer_) {
            return QtFuture::makeReadyFuture(*pingAnswer_);
        }
        pendingPing_ = std::make_shared<QPromise<QByteArray>>();
        pendingPing_->start();
        return pendingPing_->future();
    }

    qsizetype pingsSeen() {
        std::lock_guard lock(lock_);
        return pings_.size();
    }

    std::mutex lock_;
    QList<QByteArray> pings_;
    std::shared_ptr<QPromise<QByteArray>> pendingPing_;
    std::optional<QByteArray> pingAnswer_;
};

class AnswerRule : public ::testing::Test {
protected:
    ~AnswerRule() override {
        standIn_.failPendingPing();
        model_.reset();
    }

    ItemsProvider& model() { return *model_; }
    // What the next ping must carry: the folders as they stand now.
    QByteArray expectedPing() {
        return JSONEncode(
            TypeIDAndData{u"ping"_s, QString(), QString::fromUtf8(JSONEncode(model().dirItems()))});
    }
    QByteArray nextPing() { return standIn_.nextPing(); }
    StandInHelper& standIn() { return standIn_; }

    // The stand-in answers a request with this text, and the model applies it.
    void answer(const QByteArray& json) {
        standIn_.answer = json;
        ASSERT_TRUE(waitFor(model().publishAndWait(u"getGroups"_s, {}, {})));
    }
    template <JSONEncodable T>
    void answerWith(const T& value) {
        answer(JSONEncode(value));
    }
    void answerEnvelope(const char* type) {
        answerWith(TypeIDAndData{QString::fromLatin1(type), {}, {}});
    }

private:
    StandInHelper standIn_;
    std::unique_ptr<ItemsProvider> model_ =
        std::make_unique<ItemsProvider>(standIn_.collaborators());
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
    EXPECT_EQ(nextPing(), expectedPing());
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

    EXPECT_EQ(nextPing(), expectedPing());
    model().deleteItem(gone.path);
    EXPECT_EQ(model().dirItems(), QList{kept});
    EXPECT_EQ(nextPing(), expectedPing());
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

// At rest the helper says the same thing ten times a second; the model must still take a
// repeat once it has changed on its own, and a helper that keeps answering is never silent.
TEST_F(AnswerRule, LoopAnswersThatRepeatThemselvesApplyAgainOnceTheModelChanged) {
    const DirItem kept = folder(u"/kept"_s, u"Up to date"_s);
    const DirItem gone = folder(u"/gone"_s, u"Up to date"_s);
    standIn().answerPingsWith(JSONEncode(QList{gone, kept}));
    ASSERT_TRUE(waitUntil([&] { return model().dirItems() == QList{gone, kept}; }, 2000));

    QTest::qWait(static_cast<int>(StandInHelper::kSilenceNoticeAfter.count()) * 3);
    EXPECT_FALSE(model().isHelperSilent());

    model().deleteItem(gone.path);
    EXPECT_EQ(model().dirItems(), QList{kept});
    // The helper still reports the folder, as one that was told to stop a moment too late.
    EXPECT_TRUE(waitUntil([&] { return model().dirItems().size() == 2; }, 2000));
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
