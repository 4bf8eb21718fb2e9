// Main of the client framework's network tests: the application object exists, as in the client host, but
// its event loop never runs, so everything the push link does happens on its own thread.

#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
