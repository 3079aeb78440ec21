// The process manager against real children: /bin/sh scripts and child_probe.

#include "process_manager/process_manager.h"

#include <QtCore/qtestsupport_core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <atomic>
#include <cerrno>
#include <csignal>

#include "test_children.h"

namespace {

using ::testing::ElementsAre;

QString Hex(QByteArrayView bytes) {
    return QString::fromLatin1(bytes.toByteArray().toHex());
}

// True once no process with this pid exists: the child was not only ended but reaped.
bool IsGone(pid_t pid) {
    return ::kill(pid, 0) == -1 && errno == ESRCH;
}

class ProcessManagerTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir_.isValid()); }

    QString script(const QString& name, const QByteArray& body, bool executable = true) {
        return WriteScript(dir_, name, body, executable);
    }

    QTemporaryDir dir_;
};

TEST_F(ProcessManagerTest, WithoutRetryRunsOnceAndNotifiesOnceOnTheGuiThread) {
    ProcessManager manager(dir_.path());
    RunLoop loop(manager);
    loop.start(script("hello", "printf 'hello\\n'"), false);

    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_THAT(loop.chunks(), ElementsAre("hello\n"));
    const auto exits = loop.exits();
    ASSERT_EQ(exits.size(), 1U);
    EXPECT_FALSE(exits[0].error.has_value());
    EXPECT_TRUE(exits[0].onGuiThread);
    EXPECT_GT(manager.task().pid, 0);
    EXPECT_FALSE(manager.task().running);
}

TEST_F(ProcessManagerTest, WithRetryRestartsAtOnceUntilCancelled) {
    ProcessManager manager(dir_.path());
    std::atomic<std::size_t> runs = 0;
    QObject::connect(&manager, &ProcessManager::taskChanged, [&runs] { ++runs; });
    RunLoop loop(manager);
    loop.start(script("quick", "printf 'run\\n'"), true);

    ASSERT_TRUE(loop.waitForExits(3));
    manager.cancel();
    ASSERT_TRUE(loop.waitUntilEnded());

    // One exit per run, none lost and none extra. The last child may have been
    // stopped by the cancel before it printed anything.
    const auto exits = loop.exits();
    EXPECT_EQ(exits.size(), runs.load());
    const QStringList chunks = loop.chunks();
    EXPECT_GE(static_cast<std::size_t>(chunks.size()), runs.load() - 1);
    EXPECT_EQ(chunks.count(QStringLiteral("run\n")), chunks.size());
    for (const auto& exit : exits) {
        EXPECT_FALSE(exit.error.has_value());
    }
}

TEST_F(ProcessManagerTest, CancelWhileAChildRunsEndsItAndStartsNoOther) {
    ProcessManager manager(dir_.path());
    RunLoop loop(manager);
    loop.start(script("long", "printf 'started\\n'; exec sleep 600"), true);
    ASSERT_TRUE(loop.waitForChunks(1));
    const ProcessTask running = manager.task();
    EXPECT_TRUE(running.running);

    manager.cancel();
    ASSERT_TRUE(loop.waitUntilEnded());

    EXPECT_THAT(loop.chunks(), ElementsAre("started\n"));
    const auto exits = loop.exits();
    ASSERT_EQ(exits.size(), 1U);
    EXPECT_FALSE(exits[0].error.has_value());
    EXPECT_FALSE(manager.task().running);
    EXPECT_TRUE(IsGone(running.pid));
}

TEST_F(ProcessManagerTest, TerminateCurrentTaskRestartsWithTheSameArguments) {
    ProcessManager manager(dir_.path());
    manager.addArgument(QStringLiteral("a b"));
    manager.addArgument(QStringLiteral("port"), 8);
    RunLoop loop(manager);
    loop.start(script("echoing", "printf '%s;' \"$@\"; exec sleep 600"), true);
    ASSERT_TRUE(loop.waitForChunks(1));
    const pid_t first = manager.task().pid;

    manager.terminateCurrentTask();
    ASSERT_TRUE(loop.waitForChunks(2));
    EXPECT_NE(manager.task().pid, first);
    EXPECT_EQ(loop.exits().size(), 1U);

    manager.cancel();
    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_THAT(loop.chunks(), ElementsAre("a b;-port=8;", "a b;-port=8;"));
    EXPECT_EQ(loop.exits().size(), 2U);
}

TEST_F(ProcessManagerTest, AGrandchildHoldingThePipeDoesNotHoldTheRun) {
    ProcessManager manager(dir_.path());
    RunLoop loop(manager);
    loop.start(script("forking", "sleep 600 &\nprintf '%s' \"$!\""), false);

    const bool ended = loop.waitUntilEnded();
    const QStringList chunks = loop.chunks();
    for (const QString& chunk : chunks) {
        ::kill(static_cast<pid_t>(chunk.toInt()), SIGKILL);
    }
    ASSERT_TRUE(ended);
    ASSERT_EQ(chunks.size(), 1);
    EXPECT_EQ(loop.exits().size(), 1U);
}

TEST_F(ProcessManagerTest, AMissingExecutableIsReportedOnTheLoopThreadBeforeItReturns) {
    ASSERT_TRUE(QDir(dir_.path()).mkdir(QStringLiteral("folder")));
    // An absent location, a name not among the resources, a folder, and no name.
    const std::vector<std::function<void(RunLoop&)>> starts = {
        [](RunLoop& loop) { loop.start(std::nullopt, false); },
        [](RunLoop& loop) { loop.startNamed(QStringLiteral("harlix-absent"), false); },
        [](RunLoop& loop) { loop.startNamed(QStringLiteral("folder"), false); },
        [](RunLoop& loop) { loop.startNamed(QString(), false); },
    };
    for (std::size_t i = 0; i < starts.size(); ++i) {
        SCOPED_TRACE(i);
        ProcessManager manager(dir_.path());
        RunLoop loop(manager);
        starts[i](loop);
        ASSERT_TRUE(loop.waitUntilEnded());
        const auto exits = loop.exits();
        ASSERT_EQ(exits.size(), 1U);
        EXPECT_EQ(exits[0].error, ProcessManagerError::executableNotFound);
        EXPECT_TRUE(exits[0].onLoopThread);
        EXPECT_TRUE(loop.chunks().isEmpty());
    }
}

TEST_F(ProcessManagerTest, AMissingExecutableWithRetryIsReportedAgainUntilCancelled) {
    ProcessManager manager(dir_.path());
    RunLoop loop(manager);
    loop.setOnExit([&manager](std::size_t count) {
        if (count == 3) {
            manager.cancel();
        }
    });
    loop.start(std::nullopt, true);
    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_EQ(loop.exits().size(), 3U);
}

TEST_F(ProcessManagerTest, AnExecutableIsFoundByNameAmongTheResources) {
    script("harlix-test", "printf 'found\\n'");
    ProcessManager manager(dir_.path());
    RunLoop loop(manager);
    loop.startNamed(QStringLiteral("harlix-test"), false);
    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_THAT(loop.chunks(), ElementsAre("found\n"));
}

TEST_F(ProcessManagerTest, LaunchErrorsAreReportedSynchronouslyWithTheSystemError) {
    ASSERT_TRUE(QDir(dir_.path()).mkdir(QStringLiteral("folder")));
    const std::vector<std::pair<QString, int>> cases = {
        {script("not-executable", "exit 0", false), EACCES},
        {dir_.filePath(QStringLiteral("absent")), ENOENT},
        {dir_.filePath(QStringLiteral("folder")), EACCES},
    };
    for (const auto& [path, expected] : cases) {
        SCOPED_TRACE(path.toStdString());
        ProcessManager manager(dir_.path());
        RunLoop loop(manager);
        loop.start(path, false);
        ASSERT_TRUE(loop.waitUntilEnded());
        const auto exits = loop.exits();
        ASSERT_EQ(exits.size(), 1U);
        EXPECT_EQ(exits[0].error, std::error_code(expected, std::system_category()));
        EXPECT_TRUE(exits[0].onLoopThread);
        EXPECT_FALSE(manager.task().running);
    }
}

TEST_F(ProcessManagerTest, EachReadArrivesAsOneChunkEvenInsideAKeyBlock) {
    const QByteArray head = "status: starting\n-----BEGIN PUBLIC KEY-----\nMCowBQYDK2VuAyEA";
    const QByteArray tail =
        "2fZ+Bv1pnT2q0j8wI4gFv9QdyZLq3cK3SxB0xmxl2gM=\n-----END PUBLIC KEY-----\n";
    ProcessManager manager(dir_.path());
    manager.addArgument(QStringLiteral("chunks"));
    manager.addArgument(Hex(head));
    manager.addArgument(Hex(tail));
    RunLoop loop(manager);
    loop.start(QStringLiteral(BRISVANE_CHILD_PROBE), false);

    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_THAT(loop.chunks(), ElementsAre(QString::fromUtf8(head), QString::fromUtf8(tail)));
}

TEST_F(ProcessManagerTest, AChunkThatIsNotUtf8IsDroppedWhole) {
    ProcessManager manager(dir_.path());
    manager.addArgument(QStringLiteral("chunks"));
    manager.addArgument(Hex("before\n"));
    manager.addArgument(Hex("\xff\xfe not text\n"));
    manager.addArgument(Hex("caf\xc3\xa9\n"));
    manager.addArgument(Hex("ends inside a character \xc3"));
    manager.addArgument(Hex("after\n"));
    RunLoop loop(manager);
    loop.start(QStringLiteral(BRISVANE_CHILD_PROBE), false);

    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_THAT(loop.chunks(), ElementsAre("before\n", QStringLiteral(u"caf\u00e9\n"), "after\n"));
    EXPECT_EQ(loop.exits().size(), 1U);
}

TEST_F(ProcessManagerTest, TheChildSeesThePathAndEachArgumentAsOneElement) {
    ProcessManager manager(dir_.path());
    manager.addArgument(QStringLiteral("argv"));
    manager.addArgument(QStringLiteral("port"), 8);
    manager.addPIDAsArgument(QStringLiteral("pid"));
    manager.addArgument(QStringLiteral("x"));
    manager.addArgument(QStringLiteral("token"), QStringLiteral("k=v w"));
    const QString pid = QString::number(::getpid());
    EXPECT_THAT(manager.arguments(),
                ElementsAre("argv", "-port=8", "-pid=" + pid, "x", "-token=k=v w"));

    RunLoop loop(manager);
    loop.start(QStringLiteral(BRISVANE_CHILD_PROBE), false);
    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_EQ(loop.chunks().join(QString()),
              "[" BRISVANE_CHILD_PROBE "][argv][-port=8][-pid=" + pid + "][x][-token=k=v w]");
}

TEST_F(ProcessManagerTest, TheChildInheritsTheEnvironment) {
    qputenv("BRISVANE_TEST_INHERITED", "from the parent");
    ProcessManager manager(dir_.path());
    RunLoop loop(manager);
    loop.start(script("env", "printf '%s' \"$BRISVANE_TEST_INHERITED\""), false);
    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_EQ(loop.chunks().join(QString()), "from the parent");
}

TEST_F(ProcessManagerTest, CancelNowLetsTheGuiThreadJoinTheLoopWithoutServingEvents) {
    ProcessManager manager(dir_.path());
    RunLoop loop(manager);
    loop.start(script("long", "printf 'started\\n'; exec sleep 600"), true);
    ASSERT_TRUE(loop.waitForChunks(1));
    const pid_t pid = manager.task().pid;

    manager.cancelNow();
    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_TRUE(IsGone(pid));
    EXPECT_EQ(loop.exits().size(), 1U);
}

TEST_F(ProcessManagerTest, DestroyingTheManagerEndsItsChildAndWaitsForTheLoop) {
    const QString path = script("long", "printf 'started\\n'; exec sleep 600");
    auto manager = std::make_unique<ProcessManager>(dir_.path());
    std::atomic<bool> returned = false;
    std::atomic<int> chunks = 0;
    std::thread thread([&] {
        manager->RunProces(
            path, true, [&](const QString&) { ++chunks; }, [](std::optional<std::error_code>) {});
        returned = true;
    });
    const bool started = QTest::qWaitFor([&] { return chunks > 0; }, kPatienceMs);
    const pid_t pid = manager->task().pid;

    manager.reset();
    const bool returnedBeforeDestroyed = returned;
    thread.join();
    ASSERT_TRUE(started);
    EXPECT_TRUE(returnedBeforeDestroyed);
    EXPECT_TRUE(IsGone(pid));
}

}  // namespace
