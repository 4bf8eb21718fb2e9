#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "framework/base/FileSystem.h"
#include "framework/base/TimeUtil.h"

using namespace Tal::Base;

TEST(FileSystem, ReadWriteSeekStatAndDelete) {
    char pattern[] = "/tmp/bcast-fs-XXXXXX";
    std::string dir = mkdtemp(pattern);
    std::string nested = FileSystem::JoinPath(dir, "a/b/c/");
    ASSERT_TRUE(FileSystem::MakeFullDir(nested));
    EXPECT_TRUE(FileSystem::DirectoryExists(nested));
    EXPECT_TRUE(FileSystem::MakeFullDir(nested)) << "an existing directory is fine";
    std::string path = FileSystem::JoinPath(nested, "f.bin");
    EXPECT_EQ(FileSystem::JoinPath("x/", "y"), "x/y");
    EXPECT_EQ(FileSystem::JoinPath("", "y"), "y");

    EXPECT_EQ(FileSystem::OpenFile(path, FileSystem::kOpenRead), -1) << "missing file";
    int h = FileSystem::OpenFile(path, FileSystem::kOpenWrite);
    ASSERT_GE(h, 0);
    uint32_t written = 0;
    ASSERT_TRUE(FileSystem::WriteFile(h, "0123456789", 10, &written));
    EXPECT_EQ(written, 10u);
    int64_t pos = -1;
    ASSERT_TRUE(FileSystem::FileSeek(h, 0, FileSystem::kSeekBegin, &pos));
    EXPECT_EQ(pos, 0);
    ASSERT_TRUE(FileSystem::WriteFile(h, "AB", 2));
    FileSystem::FileInfo info;
    ASSERT_TRUE(FileSystem::FileStat(h, &info));
    EXPECT_EQ(info.size, 10);
    FileSystem::CloseFile(h);

    h = FileSystem::OpenFile(path, FileSystem::kOpenRead);
    ASSERT_GE(h, 0);
    char buf[16] = {};
    uint32_t got = 0;
    ASSERT_TRUE(FileSystem::ReadFile(h, buf, sizeof(buf), &got));
    EXPECT_EQ(got, 10u) << "a short read at end of file is not an error";
    EXPECT_EQ(std::string(buf, got), "AB23456789");
    ASSERT_TRUE(FileSystem::ReadFile(h, buf, sizeof(buf), &got));
    EXPECT_EQ(got, 0u);
    EXPECT_FALSE(FileSystem::WriteFile(h, "x", 1)) << "read-only handle";
    FileSystem::CloseFile(h);

    EXPECT_EQ(FileSystem::GetFileSize(path), 10);
    EXPECT_TRUE(FileSystem::FileExists(path));
    EXPECT_FALSE(FileSystem::FileExists(nested));
    EXPECT_TRUE(FileSystem::DeleteFileW(path));
    EXPECT_FALSE(FileSystem::FileExists(path));
    EXPECT_TRUE(FileSystem::DeleteFileW(path)) << "deleting a missing file is no error";
    EXPECT_EQ(FileSystem::GetFileSize(path), -1);
    EXPECT_FALSE(FileSystem::ReadFile(-1, buf, 1, &got));
    EXPECT_FALSE(FileSystem::MakeFullDir("/proc/no/such/dir"));
    EXPECT_FALSE(FileSystem::MakeFullDir(""));
}

TEST(TimeUtil, DateTextsAndTicks) {
    setenv("TZ", "UTC", 1);
    tzset();
    time_t t = 1700000000;  // 2023-11-14 22:13:20 UTC
    EXPECT_EQ(TimeUtil::TimeT2StrDatetime(t), "2023-11-14 22:13:20");
    EXPECT_EQ(TimeUtil::TimeT2StrShortDatetime(t), "20231114221320");
    EXPECT_EQ(TimeUtil::TimeT2StrShortDatetime(t).substr(0, 8), "20231114");
    uint64_t a = TimeUtil::GetTickCount64();
    uint64_t b = TimeUtil::GetTickCount64();
    EXPECT_LE(a, b);
}
