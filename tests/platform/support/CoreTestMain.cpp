// Main of the platform's loopback tests: GoogleTest inside a QCoreApplication, so that tests can run the
// event loop for websockets. No GUI is needed, so no QApplication.

#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
