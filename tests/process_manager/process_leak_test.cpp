// A thousand restarts must leave no descriptor and no thread behind.

#include <QtCore/qtestsupport_core.h>
#include <gtest/gtest.h>

#include <QCoreApplication>

#include "process_manager/process_manager.h"
#include "test_children.h"

namespace {

constexpr std::size_t kRestarts = 1000;

TEST(ProcessManagerLeakTest, AThousandRestartsLeaveNoDescriptorOrThreadBehind) {
    ProcessManager manager;
    const int descriptorsBefore = CountEntries("/proc/self/fd");
    const int threadsBefore = CountEntries("/proc/self/task");

    {
        RunLoop loop(manager);
        loop.setOnExit([&manager](std::size_t count) {
            if (count == kRestarts) {
                manager.cancel();
            }
        });
        loop.start(QStringLiteral("/bin/true"), true);
        ASSERT_TRUE(loop.waitUntilEnded());
        EXPECT_GE(loop.exits().size(), kRestarts);
    }

    EXPECT_EQ(CountEntries("/proc/self/fd"), descriptorsBefore);
    EXPECT_EQ(CountEntries("/proc/self/task"), threadsBefore);
}

}  // namespace
