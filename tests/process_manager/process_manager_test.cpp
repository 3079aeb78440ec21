// The process manager against real children: /bin/sh scripts and child_probe.

#include "process_manager/process_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>
#include <cerrno>
#include <csignal>
#include <filesystem>

#include "run_loop.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;

class ProcessManagerTest : public ::testing::Test {
protected:
    // Writes a /bin/sh script and returns its path.
    QString script(const QByteArray& body, bool executable = true) {
        QFile file(dir_.filePath(QStringLiteral("child")));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\n" + body + "\n");
        file.setPermissions(QFile::ReadOwner | (executable ? QFile::ExeOwner : QFile::ReadOwner));
        return file.fileName();
    }

    QTemporaryDir dir_;
    ProcessManager manager_;
};

TEST_F(ProcessManagerTest, WithoutRetryRunsOnceAndNotifiesOnceOnTheGuiThread) {
    RunLoop loop(manager_, script("printf 'hello\\n'"), false);
    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_THAT(loop.chunks, ElementsAre("hello\n"));
    ASSERT_EQ(loop.exits.size(), 1U);
    EXPECT_EQ(loop.exits[0].error, std::nullopt);
    EXPECT_EQ(loop.exits[0].thread, std::this_thread::get_id());
}

TEST_F(ProcessManagerTest, WithRetryRestartsUntilCancelledWithOneExitPerRun) {
    std::atomic<std::size_t> runs = 0;
    QObject::connect(&manager_, &ProcessManager::taskChanged, [&runs] { ++runs; });
    RunLoop loop(manager_, script("printf 'run\\n'"), true);
    ASSERT_TRUE(WaitFor([&] { return loop.exits.size() >= 3; }));
    manager_.cancel();
    ASSERT_TRUE(loop.waitUntilEnded());

    EXPECT_EQ(loop.exits.size(), runs.load());
    EXPECT_THAT(loop.exits, Each(Field(&RunLoop::Exit::error, std::nullopt)));
}

TEST_F(ProcessManagerTest, CancelEndsTheRunningChildAndStartsNoOther) {
    RunLoop loop(manager_, script("printf 'started\\n'; exec sleep 600"), true);
    ASSERT_TRUE(WaitFor([&] { return !loop.chunks.isEmpty(); }));
    const pid_t pid = manager_.task().pid;
    manager_.cancel();
    ASSERT_TRUE(loop.waitUntilEnded());

    EXPECT_THAT(loop.chunks, ElementsAre("started\n"));
    ASSERT_EQ(loop.exits.size(), 1U);
    EXPECT_EQ(loop.exits[0].error, std::nullopt);
    EXPECT_TRUE(::kill(pid, 0) == -1 && errno == ESRCH);  // ended and reaped
}

TEST_F(ProcessManagerTest, StopWithinKillsAChildThatIgnoresSigtermOnceTheGraceIsOver) {
    manager_.addArgument(QStringLiteral("stubborn"));
    RunLoop loop(manager_, QStringLiteral(BRISVANE_CHILD_PROBE), true);
    ASSERT_TRUE(WaitFor([&] { return !loop.chunks.isEmpty(); }));
    const pid_t pid = manager_.task().pid;
    manager_.stopWithin(std::chrono::milliseconds(200));
    ASSERT_TRUE(loop.waitUntilEnded());

    EXPECT_THAT(loop.chunks, ElementsAre("ignoring SIGTERM\n"));
    EXPECT_EQ(loop.exits.size(), 1U) << "a stopped manager started another child";
    EXPECT_TRUE(::kill(pid, 0) == -1 && errno == ESRCH);  // ended and reaped
}

TEST_F(ProcessManagerTest, AGrandchildHoldingThePipeDoesNotHoldTheRun) {
    RunLoop loop(manager_, script("sleep 600 &\nprintf '%s' \"$!\""), false);
    EXPECT_TRUE(loop.waitUntilEnded());
    ASSERT_TRUE(WaitFor([&] { return !loop.chunks.isEmpty(); }));
    ::kill(loop.chunks[0].toInt(), SIGKILL);
}

TEST_F(ProcessManagerTest, LaunchFailuresAreReportedBeforeRunProcesReturns) {
    const std::pair<std::optional<QString>, std::error_code> cases[] = {
        {std::nullopt, ProcessManagerError::executableNotFound},
        {dir_.filePath(QStringLiteral("absent")), {ENOENT, std::system_category()}},
        {script("exit 0", false), {EACCES, std::system_category()}},
    };
    for (const auto& [bin, expected] : cases) {
        SCOPED_TRACE(bin.value_or(QString()).toStdString());
        RunLoop loop(manager_, bin, false);
        ASSERT_TRUE(loop.waitUntilEnded());
        ASSERT_EQ(loop.exits.size(), 1U);
        EXPECT_EQ(loop.exits[0].error, expected);
        EXPECT_EQ(loop.exits[0].thread, loop.loopThread);
    }
}

TEST_F(ProcessManagerTest, EachReadIsOneChunkAndAChunkThatIsNotUtf8IsDropped) {
    const QByteArray head = "status: starting\n-----BEGIN PUBLIC KEY-----\nMCowBQYDK2VuAyEA";
    const QByteArray tail =
        "2fZ+Bv1pnT2q0j8wI4gFv9QdyZLq3cK3SxB0xmxl2gM=\n-----END PUBLIC KEY-----\n";
    for (const QByteArray& chunk : {head, QByteArray("\xff\xfe not text\n"),
                                    QByteArray("caf\xc3\xa9\n"), QByteArray("cut \xc3"), tail}) {
        manager_.addArgument(QString::fromLatin1(chunk.toHex()));
    }
    RunLoop loop(manager_, QStringLiteral(BRISVANE_CHILD_PROBE), false);
    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_THAT(loop.chunks, ElementsAre(QString::fromUtf8(head), QStringLiteral(u"caf\u00e9\n"),
                                         QString::fromUtf8(tail)));
}

TEST_F(ProcessManagerTest, TheChildGetsEachArgumentAsOneElement) {
    manager_.addArgument(QStringLiteral("port"), 8);
    manager_.addPIDAsArgument(QStringLiteral("pid"));
    manager_.addArgument(QStringLiteral("x"));
    manager_.addArgument(QStringLiteral("token"), QStringLiteral("k=v w"));
    RunLoop loop(manager_, script("printf '[%s]' \"$@\""), false);
    ASSERT_TRUE(loop.waitUntilEnded());
    EXPECT_EQ(loop.chunks.join(QString()),
              QStringLiteral("[-port=8][-pid=%1][x][-token=k=v w]").arg(::getpid()));
}

TEST_F(ProcessManagerTest, AThousandRestartsLeaveNoDescriptorOrThreadBehind) {
    const auto count = [](const char* folder) {
        return std::distance(std::filesystem::directory_iterator(folder), {});
    };
    const auto descriptors = count("/proc/self/fd");
    const auto threads = count("/proc/self/task");
    {
        RunLoop loop(manager_, QStringLiteral("/bin/true"), true);
        ASSERT_TRUE(WaitFor([&] { return loop.exits.size() >= 1000; }));
        manager_.cancel();
        ASSERT_TRUE(loop.waitUntilEnded());
    }
    EXPECT_EQ(count("/proc/self/fd"), descriptors);
    EXPECT_EQ(count("/proc/self/task"), threads);
}

}  // namespace
