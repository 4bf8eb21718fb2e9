#include <gtest/gtest.h>

#include <thread>

#include "framework/base/ErrorCode.h"

using namespace Tal::Base::Error;

TEST(ErrorCode, FieldsConstructorsAndText) {
    ErrorCode none;
    EXPECT_TRUE(none.IsSucceed());
    EXPECT_EQ(none.GetSubSystemErrorCode(), 0);

    ErrorCode client(20, 2001);
    EXPECT_EQ(client.GetSubSystemErrorCode(), kSubSystemClient);
    EXPECT_EQ(client.GetMainErrorCode(), 20);
    EXPECT_EQ(client.GetSubErrorCode(), 2001);
    EXPECT_FALSE(client.IsSucceed());

    ErrorCode server(1, 17, 404);
    server.SetCasadingErrorInfo("element not found");
    EXPECT_EQ(server.ToString(), "[1][17][404] element not found");
    EXPECT_NE(server, ErrorCode(1, 17, 404)) << "the cascading text is part of the value";

    ErrorCode onlyCode(0, 0, 5);
    EXPECT_FALSE(onlyCode.IsSucceed()) << "a non-zero code alone is a failure";
}

TEST(ErrorCode, LastErrorIsPerThread) {
    SetLastError(ErrorCode(2, 20, 3404));
    ErrorCode seenElsewhere(9, 9, 9);
    std::thread other([&] {
        seenElsewhere = GetLastError();
        SetLastError(ErrorCode(2, 60, 7));
    });
    other.join();
    EXPECT_TRUE(seenElsewhere.IsSucceed()) << "a new thread starts with no error";
    EXPECT_EQ(GetLastError(), ErrorCode(2, 20, 3404)) << "another thread's error does not leak here";
    SetLastError(ErrorCode());
    EXPECT_TRUE(GetLastError().IsSucceed());
}
