// Host facts: the machine name, free ports and the single running copy.

#include "process_manager/host_facts.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QDir>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <optional>
#include <vector>

#include "process_manager/unique_fd.h"
#include "test_children.h"

namespace {

// A listening socket on the port (0: one the kernel picks) of the given address.
std::optional<UniqueFd> Listen(std::uint16_t port, in_addr_t address = INADDR_ANY) {
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in socketAddress{};
    socketAddress.sin_family = AF_INET;
    socketAddress.sin_port = htons(port);
    socketAddress.sin_addr.s_addr = htonl(address);
    if (!fd.valid() ||
        ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&socketAddress), sizeof socketAddress) !=
            0 ||
        ::listen(fd.get(), 1) != 0) {
        return std::nullopt;
    }
    return fd;
}

std::uint16_t PortOf(const UniqueFd& fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

// Listeners on a run of consecutive ports below the ephemeral range.
std::vector<UniqueFd> OccupyConsecutivePorts(int count, std::uint16_t& base) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        base = static_cast<std::uint16_t>(QRandomGenerator::global()->bounded(20000, 30000));
        std::vector<UniqueFd> listeners;
        for (int i = 0; i < count; ++i) {
            auto listener = Listen(static_cast<std::uint16_t>(base + i));
            if (!listener) {
                break;
            }
            listeners.push_back(std::move(*listener));
        }
        if (static_cast<int>(listeners.size()) == count) {
            return listeners;
        }
    }
    return {};
}

TEST(HostFactsTest, MachineNameComesFromTheKernel) {
    const QString machine = UtsName::sMachine();
    EXPECT_FALSE(machine.isEmpty());
    EXPECT_EQ(SystemArchitecture(), machine);
    EXPECT_EQ(UtsName::isAppleSilicon(), machine == QLatin1StringView("arm64"));
}

TEST(HostFactsTest, APortWithAListenerOnAnyInterfaceIsNotOpen) {
    for (const in_addr_t address : {INADDR_ANY, INADDR_LOOPBACK}) {
        auto listener = Listen(0, address);
        ASSERT_TRUE(listener);
        const std::uint16_t port = PortOf(*listener);

        // A busy port costs the probe one descriptor, deliberately left open.
        const int before = CountEntries("/proc/self/fd");
        EXPECT_FALSE(IsOpenPort(port));
        EXPECT_EQ(CountEntries("/proc/self/fd"), before + 1);

        listener.reset();
        const int freed = CountEntries("/proc/self/fd");
        EXPECT_TRUE(IsOpenPort(port));
        EXPECT_EQ(CountEntries("/proc/self/fd"), freed);
    }
}

TEST(HostFactsTest, RandomOpenPortFindsTheOneFreePortOfTheRange) {
    constexpr int kRange = 8;
    for (const int freeIndex : {0, 3, kRange - 1}) {
        SCOPED_TRACE(freeIndex);
        std::uint16_t base = 0;
        std::vector<UniqueFd> listeners = OccupyConsecutivePorts(kRange, base);
        ASSERT_EQ(static_cast<int>(listeners.size()), kRange);
        listeners[static_cast<std::size_t>(freeIndex)].reset();
        EXPECT_EQ(RandomOpenPort(base, base + kRange), base + freeIndex);
    }
}

TEST(HostFactsTest, ARangeOfOnePortGivesThatPort) {
    auto listener = Listen(0);
    ASSERT_TRUE(listener);
    const std::uint16_t port = PortOf(*listener);
    listener.reset();
    EXPECT_EQ(RandomOpenPort(port, port + 1), port);
}

TEST(HostFactsDeathTest, APortOutsideSixteenBitsStopsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(IsOpenPort(65536), "outside 0...65535");
    EXPECT_DEATH(IsOpenPort(-1), "outside 0...65535");
    EXPECT_DEATH(RandomOpenPort(8001, 8001), "is empty");
}

TEST(InstanceLockTest, TheLockFileLivesInTheRuntimeFolderElseTheTempFolder) {
    const QByteArray saved = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", "/run/user/4242");
    EXPECT_EQ(InstanceLockPath(), "/run/user/4242/app.brisvane.Brisvane.lock");
    qputenv("XDG_RUNTIME_DIR", "");
    EXPECT_EQ(InstanceLockPath(), QDir::tempPath() + "/app.brisvane.Brisvane.lock");
    qunsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(InstanceLockPath(), QDir::tempPath() + "/app.brisvane.Brisvane.lock");
    qputenv("XDG_RUNTIME_DIR", saved);
}

TEST(InstanceLockTest, OnlyOneHolderAtATime) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("app.brisvane.Brisvane.lock"));
    EXPECT_TRUE(AcquireInstanceLock(path));
    EXPECT_FALSE(AcquireInstanceLock(path));
}

class InstanceLockProbe {
public:
    explicit InstanceLockProbe(const QString& runtimeDir) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDir);
        process_.setProcessEnvironment(environment);
        process_.start(QStringLiteral(BRISVANE_INSTANCE_LOCK_PROBE), {});
    }
    ~InstanceLockProbe() {
        process_.closeWriteChannel();
        process_.waitForFinished(kPatienceMs);
    }
    InstanceLockProbe(const InstanceLockProbe&) = delete;
    InstanceLockProbe& operator=(const InstanceLockProbe&) = delete;

    // The first line the probe prints.
    QByteArray firstLine() {
        while (!process_.canReadLine() && process_.waitForReadyRead(kPatienceMs)) {
        }
        return process_.readLine();
    }
    QProcess& process() { return process_; }

private:
    QProcess process_;
};

TEST(InstanceLockTest, ASecondCopyPrintsTheLineAndExitsWhileTheFirstRuns) {
    QTemporaryDir runtimeDir;
    ASSERT_TRUE(runtimeDir.isValid());
    {
        InstanceLockProbe first(runtimeDir.path());
        ASSERT_EQ(first.firstLine(), "holding the instance lock\n");

        InstanceLockProbe second(runtimeDir.path());
        ASSERT_TRUE(second.process().waitForFinished(kPatienceMs));
        EXPECT_EQ(second.process().exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(second.process().exitCode(), 0);
        EXPECT_EQ(second.process().readAllStandardOutput(),
                  "Application already opened.  Exiting ...\n");
        EXPECT_EQ(first.process().state(), QProcess::Running);
    }
    // The kernel let go of the lock with the first copy.
    InstanceLockProbe third(runtimeDir.path());
    EXPECT_EQ(third.firstLine(), "holding the instance lock\n");
}

}  // namespace
