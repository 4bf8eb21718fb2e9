#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"
#include "framework/base/LogThrottle.h"

using namespace Tal::Base;

namespace {

std::string MakeTempDir() {
    char pattern[] = "/tmp/bcast-log-XXXXXX";
    char* dir = mkdtemp(pattern);
    return dir != nullptr ? dir : "";
}

std::string ReadAll(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

struct Widget {
    void Method() { TAL_LOG(3, "Broadcast", "[%s]Succ Init %s thing %d.[%s(%d)]", "nice", 42); }
    static std::string Name() { return QualifiedFunctionName(__PRETTY_FUNCTION__); }
};

}  // namespace

TEST(FormatLog, MacroPutsQualifiedFunctionFirstAndSourceLineLast) {
    CLogCapture capture;
    Widget().Method();
    auto lines = capture.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 3);
    EXPECT_EQ(lines[0].module, "Broadcast");
    const std::string& text = lines[0].text;
    EXPECT_EQ(text.rfind("[{anonymous}::Widget::Method]Succ Init nice thing 42.[tests/base/test_log.cpp(", 0),
              0u)
        << text;
    EXPECT_EQ(text.back(), ']');
}

TEST(FormatLog, SourcePathIsRelativeToTheRepositoryHoweverTheCompilerGotIt) {
    // Absolute: the repository root prefix goes.
    EXPECT_STREQ(SourceRelative("/work/repo/src/a.cpp", 11), "src/a.cpp");
    EXPECT_STREQ(SourceRelative("/short", 11), "/short");
    // Relative to a build directory inside the tree, as a compiler cache passes it: the prefix length does
    // not apply, the leading steps up go.
    EXPECT_STREQ(SourceRelative("../../../tests/base/x.cpp", 17), "tests/base/x.cpp");
    EXPECT_STREQ(SourceRelative("./../src/a.cpp", 3), "src/a.cpp");
    EXPECT_STREQ(SourceRelative("src/a.cpp", 30), "src/a.cpp");
    EXPECT_STREQ(SourceRelative("..hidden/a.cpp", 0), "..hidden/a.cpp");
}

TEST(FormatLog, QualifiedFunctionNameHandlesTemplatesOperatorsAndLambdas) {
    EXPECT_EQ(QualifiedFunctionName("bool BroadCastPlugin::CBroadcastController::Init()"),
              "BroadCastPlugin::CBroadcastController::Init");
    EXPECT_EQ(QualifiedFunctionName("std::vector<int> ns::Make(std::function<void(int)>)"), "ns::Make");
    EXPECT_EQ(QualifiedFunctionName("void ns::C<T>::Run(int) [with T = std::pair<int, int>]"),
              "ns::C<T>::Run");
    EXPECT_EQ(QualifiedFunctionName("bool ns::F::operator()(int) const"), "ns::F::operator()");
    EXPECT_EQ(QualifiedFunctionName("ns::C::Init()::<lambda(int)>"), "ns::C::Init");
    EXPECT_EQ(QualifiedFunctionName("const char* ns::Name()"), "ns::Name");
    EXPECT_EQ(QualifiedFunctionName("main"), "main");
    EXPECT_EQ(QualifiedFunctionName(nullptr), "");
    EXPECT_EQ(Widget::Name(), "{anonymous}::Widget::Name");
}

TEST(FormatLog, LongLinesAreNotTruncatedAndLevelsAreKept) {
    CLogCapture capture;
    std::string big(5000, 'x');
    FormatLog(5, "Broadcast", "[%s]%s[%s(%d)]", "f", big.c_str(), "file", 1);
    FormatLog(4, "ClientVFPluginError", "plain");
    ASSERT_EQ(capture.Lines().size(), 2u);
    EXPECT_EQ(capture.Lines()[0].text.size(), 5000u + 3 + 8 + 1);
    EXPECT_TRUE(capture.Contains("plain", 4));
    EXPECT_FALSE(capture.Contains("plain", 5));
    EXPECT_EQ(capture.Lines()[1].module, "ClientVFPluginError");
}

TEST(FormatLog, WritesRotatingFileAndKeepsLinesFromManyThreads) {
    std::string dir = MakeTempDir() + "/nested/log";
    LogConfig config;
    config.directory = dir;
    config.fileName = "test.log";
    config.stderrLevel = 6;
    ASSERT_TRUE(InitLog(config));
    EXPECT_EQ(GetLogFilePath(), dir + "/test.log");
    CLogCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 250; ++i) {
                FormatLog(3, "Broadcast", "thread %d line %d", t, i);
            }
        });
    }
    for (auto& th : threads) {
        th.join();
    }
    FormatLog(2, "Broadcast", "debug line below the file level");
    FlushLog();
    std::string content = ReadAll(dir + "/test.log");
    EXPECT_NE(content.find("[info] [Broadcast] thread 3 line 249"), std::string::npos);
    EXPECT_EQ(content.find("debug line below"), std::string::npos);
    std::size_t count = 0;
    for (std::size_t pos = content.find("line "); pos != std::string::npos;
         pos = content.find("line ", pos + 1)) {
        ++count;
    }
    EXPECT_EQ(count, 1000u);
    EXPECT_EQ(capture.Count("thread "), 1000u);
    UninitLog();
    EXPECT_EQ(GetLogFilePath(), "");

    LogConfig bad;
    bad.directory = "/proc/forbidden/log";
    EXPECT_FALSE(InitLog(bad)) << "a directory that cannot be made is reported";
    FormatLog(3, "Broadcast", "still logs to stderr");
    UninitLog();
}

TEST(FormatLog, CaptureStopsAtDestruction) {
    auto capture = std::make_unique<CLogCapture>();
    FormatLog(3, "M", "one");
    auto kept = capture->Lines();
    capture.reset();
    FormatLog(3, "M", "two");
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(kept[0].text, "one");
}

TEST(LogThrottle, LogsTheFirstSecondFourthAndSoOnOfARunAndStartsOverAfterAReset) {
    Tal::Base::CLogThrottle throttle;
    std::vector<uint64_t> logged;
    for (uint64_t i = 1; i <= 180000; ++i) {
        if (throttle.Count()) {
            logged.push_back(i);
        }
    }
    EXPECT_EQ(logged, (std::vector<uint64_t>{1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192,
                                             16384, 32768, 65536, 131072}))
        << "an hour of failing 20 ms frames gives 18 lines";
    EXPECT_EQ(throttle.Occurrences(), 180000u);
    throttle.Reset();
    EXPECT_TRUE(throttle.Count()) << "a new run is logged from its first occurrence";
    EXPECT_TRUE(throttle.Count());
    EXPECT_FALSE(throttle.Count());
}
