// Host facts against real sockets and real copies of a process.

#include "process_manager/host_facts.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <optional>
#include <vector>

#include "run_loop.h"
#include "unique_fd.h"

namespace {

// A listener on the port of the address; nullopt when the port is taken.
std::optional<UniqueFd> listenOn(int port, in_addr_t address) {
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in bound{.sin_family = AF_INET,
                            .sin_port = htons(static_cast<std::uint16_t>(port)),
                            .sin_addr = {htonl(address)},
                            .sin_zero = {}};
    const auto* raw = reinterpret_cast<const sockaddr*>(&bound);
    if (::bind(fd.get(), raw, sizeof bound) != 0 || ::listen(fd.get(), 1) != 0) {
        return std::nullopt;
    }
    return fd;
}

TEST(HostFactsTest, BusyPortsAreNotOpenAndRandomOpenPortFindsTheOneFreePort) {
    constexpr int kRange = 8;
    for (const int freeIndex : {0, kRange - 1}) {
        // Consecutive ports below the ephemeral range, held on all interfaces or loopback only.
        int base = QRandomGenerator::global()->bounded(20000, 30000);
        std::vector<UniqueFd> listeners;
        while (listeners.size() < kRange) {
            const int port = base + static_cast<int>(listeners.size());
            if (auto listener = listenOn(port, port % 2 == 0 ? INADDR_ANY : INADDR_LOOPBACK)) {
                listeners.push_back(std::move(*listener));
            } else {
                listeners.clear();
                base = QRandomGenerator::global()->bounded(20000, 30000);
            }
        }
        for (int port = base; port < base + kRange; ++port) {
            EXPECT_FALSE(IsOpenPort(port)) << port;
        }
        listeners[freeIndex].reset();
        EXPECT_EQ(RandomOpenPort(base, base + kRange), base + freeIndex);
    }
}

TEST(HostFactsDeathTest, AnOutOfRangePortStopsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(IsOpenPort(65536), "outside 0...65535");
    EXPECT_DEATH(IsOpenPort(-1), "outside 0...65535");
    EXPECT_DEATH(RandomOpenPort(8001, 8001), "is empty");
}

TEST(InstanceLockTest, ASecondCopyPrintsTheLineAndExitsWhileTheFirstRuns) {
    QTemporaryDir runtimeDir;
    ASSERT_TRUE(runtimeDir.isValid());
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir.path()));
    QProcess first, second;
    first.start(QStringLiteral(BRISVANE_CHILD_PROBE), {QStringLiteral("lock")});
    ASSERT_TRUE(first.waitForReadyRead(kPatienceMs));  // it holds the lock

    second.start(QStringLiteral(BRISVANE_CHILD_PROBE), {QStringLiteral("lock")});
    ASSERT_TRUE(second.waitForFinished(kPatienceMs));
    EXPECT_EQ(second.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_EQ(second.readAll(), "Application already opened.  Exiting ...\n");
    EXPECT_EQ(first.state(), QProcess::Running);
    first.closeWriteChannel();
    EXPECT_TRUE(first.waitForFinished(kPatienceMs));
}

// Without a runtime folder the lock goes to the shared temp folder, where anyone could
// take its name first: only a folder of this user's own is used there.
TEST(InstanceLockTest, TheTempFolderFallbackIsAFolderOfTheUsersOwn) {
    QTemporaryDir temp;
    ASSERT_TRUE(temp.isValid());
    const QString expected = temp.filePath(QStringLiteral("brisvane-%1").arg(::getuid()));

    const auto mode = [&expected] {
        struct stat status = {};
        ::stat(QFile::encodeName(expected).constData(), &status);
        return status.st_mode & 07777;
    };
    EXPECT_EQ(PrivateTempFolder(temp.path()), expected);
    EXPECT_EQ(mode(), 0700U);
    // One of the user's own that others may enter is closed again.
    ASSERT_EQ(::chmod(QFile::encodeName(expected).constData(), 0777), 0);
    EXPECT_EQ(PrivateTempFolder(temp.path()), expected);
    EXPECT_EQ(mode(), 0700U);

    // A link another user put there in its place, to a folder of the user's own even.
    ASSERT_TRUE(QDir(expected).removeRecursively());
    ASSERT_TRUE(QDir().mkpath(temp.filePath(QStringLiteral("elsewhere"))));
    ASSERT_TRUE(QFile::link(temp.filePath(QStringLiteral("elsewhere")), expected));
    EXPECT_EQ(PrivateTempFolder(temp.path()), QString());
    ASSERT_TRUE(QFile::remove(expected));

    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can make a folder that another user owns";
    }
    ASSERT_TRUE(QDir().mkpath(expected));
    ASSERT_EQ(::chown(QFile::encodeName(expected).constData(), 65534, 65534), 0);
    EXPECT_EQ(PrivateTempFolder(temp.path()), QString());

    // And a copy started there runs rather than believing itself a second one.
    qunsetenv("XDG_RUNTIME_DIR");
    qputenv("TMPDIR", QFile::encodeName(temp.path()));
    QProcess copy;
    copy.start(QStringLiteral(BRISVANE_CHILD_PROBE), {QStringLiteral("lock")});
    copy.closeWriteChannel();
    ASSERT_TRUE(copy.waitForFinished(kPatienceMs));
    EXPECT_EQ(copy.readAll(),
              "instance lock error: no folder of this user's own for the lock\n"
              "holding the instance lock\n");
}

}  // namespace
