// GoogleTest main with a Qt application object, for tests that need an event loop
// (queued calls to the GUI thread, timers, the network access manager).

#include <gtest/gtest.h>

#include <QCoreApplication>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
