// The poll loop against a real helper that holds requests, answers with more than any
// answer may be, or drips its answer out: pinging goes on after each, the user is told
// while nothing comes through, and nothing is left behind.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QSaveFile>

#include "model_fixture.h"

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;
using testing_support::ModelFixture;
using testing_support::waitUntil;

namespace {

qsizetype threads() {
    return QDir(u"/proc/self/task"_s).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).size();
}

// Open descriptors, but for the single-instance locks, which each model takes for the rest of
// the process by design.
qsizetype descriptors() {
    const QFileInfoList entries =
        QDir(u"/proc/self/fd"_s).entryInfoList(QDir::NoDotAndDotDot | QDir::AllEntries);
    return std::count_if(entries.begin(), entries.end(), [](const QFileInfo& entry) {
        return !entry.symLinkTarget().contains(u".lock"_s);
    });
}

// A helper that remembers a logged-in user watching one folder, so its first real answer
// is that folder.
void rememberOneFolder(const ModelFixture& fixture, const QString& folder) {
    const QString stateFolder = QString::fromUtf8(fixture.path("state")) + u"/brisvane-demo"_s;
    QDir().mkpath(stateFolder);
    QSaveFile file(stateFolder + u"/state.json"_s);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"({"LoggedIn":true,"UserName":"ada","Folders":[{"Path":")" + folder.toUtf8() +
               R"(","GroupID":1001,"Enabled":true}]})");
    ASSERT_TRUE(file.commit());
}

ItemsProviderCollaborators quickHost() {
    ItemsProviderCollaborators host;
    host.requestLimits = {300ms, 4 * 1024 * 1024};
    host.silenceNoticeAfter = 700ms;
    return host;
}

}  // namespace

TEST(SilentHelper, HeldOversizedAndTrickledAnswersGiveWayToTheNextPingAndLeaveNothingBehind) {
    {
        // What a process opens once, on its first model, is not what this test counts.
        ModelFixture warmUp;
        ASSERT_TRUE(waitUntil([&] { return !warmUp.model->isLoggedIn(); }));
    }
    const qsizetype descriptorsBefore = descriptors();
    const qsizetype threadsBefore = threads();
    {
        QTemporaryDir watched;
        ModelFixture fixture({{"BRISVANE_DEMO_HOLD", "1"},
                              {"BRISVANE_DEMO_OVERSIZE", "1"},
                              {"BRISVANE_DEMO_TRICKLE", "1"}},
                             quickHost(),
                             [&](const ModelFixture& f) { rememberOneFolder(f, watched.path()); });
        ItemsProvider& model = *fixture.model;
        // Each of the three bad exchanges ends at its limit; the fourth ping brings the folder.
        ASSERT_TRUE(waitUntil([&] { return model.dirItems().size() == 1; }));
        EXPECT_EQ(model.dirItems().first().path, watched.path());
        // About a second without an answer: the notice came, and went with the answer.
        EXPECT_FALSE(model.isHelperSilent());
    }
    EXPECT_TRUE(waitUntil([&] {
        return descriptors() == descriptorsBefore && threads() == threadsBefore;
    })) << descriptors()
        << " descriptors (" << descriptorsBefore << " before), " << threads() << " threads ("
        << threadsBefore << " before)";
}

TEST(SilentHelper, TheNoticeComesAfterSilenceAndGoesWithTheNextAnswer) {
    ModelFixture fixture({{"BRISVANE_DEMO_HOLD", "3"}}, quickHost());
    ItemsProvider& model = *fixture.model;
    std::vector<bool> seen;
    QObject::connect(&model, &PanelModel::isHelperSilentChanged, &model,
                     [&] { seen.push_back(model.isHelperSilent()); });

    // Three held pings are 0.9 s of silence: the notice shows after 0.7 s.
    ASSERT_TRUE(waitUntil([&] { return model.isHelperSilent(); }, 5000));
    EXPECT_TRUE(model.isLoggedIn());  // nothing else changed meanwhile

    // The helper answers again: it asks for a login, and the notice goes.
    ASSERT_TRUE(waitUntil([&] { return !model.isLoggedIn(); }, 5000));
    EXPECT_FALSE(model.isHelperSilent());
    EXPECT_EQ(seen, (std::vector<bool>{true, false}));
}

TEST(SilentHelper, AHealthyHelperNeverRaisesTheNotice) {
    ModelFixture fixture({}, quickHost());
    ItemsProvider& model = *fixture.model;
    bool everSilent = false;
    QObject::connect(&model, &PanelModel::isHelperSilentChanged, &model,
                     [&] { everSilent |= model.isHelperSilent(); });
    ASSERT_TRUE(waitUntil([&] { return !model.isLoggedIn(); }));
    waitUntil([] { return false; }, 1500);
    EXPECT_FALSE(everSilent);
}
