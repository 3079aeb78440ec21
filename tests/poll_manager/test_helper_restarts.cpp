// Hundreds of helper restarts leave no descriptor, thread or child behind.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <QDir>

#include "helper_fixture.h"

using testing_support::HelperOptions;
using testing_support::RunningHelper;
using testing_support::waitUntil;

namespace {

qsizetype entriesIn(const char* path) {
    return QDir(QString::fromLatin1(path))
        .entryList(QDir::NoDotAndDotDot | QDir::AllEntries)
        .size();
}

}  // namespace

TEST(HelperRestarts, HundredsOfRestartsLeakNothing) {
    // Enough for a leak of one descriptor or thread a restart to stand far above the noise; a
    // helper built with the sanitizers on a loaded machine takes a quarter of a second each.
    constexpr int kRestarts = 300;
    const qsizetype descriptorsBefore = entriesIn("/proc/self/fd");
    const qsizetype threadsBefore = entriesIn("/proc/self/task");
    {
        HelperOptions options;
        // Each helper prints its key block and ends at once; the manager starts the next.
        options.environment["BRISVANE_DEMO_EXIT_AFTER"] = "0";
        RunningHelper helper(options);
        ASSERT_TRUE(waitUntil([&] { return helper.exits >= kRestarts; }, 300'000))
            << "only " << helper.exits << " restarts";
    }
    // The fixture drew one port: every busy port it probed kept its descriptor.
    EXPECT_LE(entriesIn("/proc/self/fd"), descriptorsBefore + 1);
    EXPECT_GE(entriesIn("/proc/self/fd"), descriptorsBefore);
    // The transport thread of the fixture's manager is gone with it; a joined
    // thread can linger in /proc for a moment after its join returns.
    waitUntil([&] { return entriesIn("/proc/self/task") == threadsBefore; }, 5000);
    EXPECT_EQ(entriesIn("/proc/self/task"), threadsBefore);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left unreaped";
}
