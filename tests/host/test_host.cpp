#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/ClientConfig.h"
#include "host/PluginModule.h"
#include "support/TestProcess.h"

using BcastTest::ProcessResult;
using BcastTest::Program;
using BcastTest::RunProcess;

namespace {

std::string ModulePath() {
    return BcastTest::BinaryDir() + "/lib/libBroadCastPlugin.so";
}

// bcast-host with these arguments, to its end (its output and errors together).
ProcessResult Host(std::vector<std::string> args) {
    args.insert(args.begin(), Program("bcast-host"));
    return RunProcess(args, 60000);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

}  // namespace

TEST(Host, LoadsTheBuiltModuleAndResolvesAllTwentyNineExports) {
    BcastHost::CPluginModule module;
    std::string error;
    ASSERT_TRUE(module.Load(ModulePath(), error)) << error;
    EXPECT_EQ(BcastHost::CPluginModule::ExportNames().size(), 29u);
    const auto& e = module.Entry();
    EXPECT_NE(e.Init, nullptr);
    EXPECT_NE(e.IsBoradCastToolUIShow, nullptr);
    EXPECT_NE(e.PopBroadcastPannel, nullptr);
    // The no-op exports answer as the host expects without touching anything.
    EXPECT_FALSE(e.WidgetOperate(nullptr, nullptr, nullptr));
    EXPECT_FALSE(e.SystemConfigIsChanged(nullptr));
    EXPECT_TRUE(e.SaveSystemConfig(true, nullptr, false));
    EXPECT_TRUE(e.StopToSaveData(1));
    void* handle = reinterpret_cast<void*>(0x1234);
    EXPECT_FALSE(e.GetWndHandle(&handle, "c_menu_real_broadcast_record_1", nullptr));
    EXPECT_EQ(handle, reinterpret_cast<void*>(0x1234)) << "an unknown menu leaves the handle untouched";
    module.Unload();
    EXPECT_FALSE(module.IsLoaded());
}

TEST(Host, ModuleExportsExactlyTheEntryPointsUnmangled) {
    const ProcessResult nm = RunProcess({"nm", "-D", "--defined-only", ModulePath()}, 60000);
    ASSERT_EQ(nm.exitCode, 0) << nm.output;
    std::set<std::string> exported;
    std::istringstream lines(nm.output);
    std::string address, type, name;
    while (lines >> address >> type >> name) {
        exported.insert(name);
    }
    std::set<std::string> expected;
    for (const auto& n : BcastHost::CPluginModule::ExportNames()) {
        expected.insert(n);
        EXPECT_EQ(exported.count(n), 1u) << n << " is not exported unmangled";
    }
    for (const auto& n : exported) {
        EXPECT_TRUE(expected.count(n) == 1 ||
                    n.rfind("_ZN15BroadCastPlugin23CWebBroadcastController", 0) == 0 ||
                    n.find("CWebBroadcastController") != std::string::npos)
            << "unexpected export " << n;
    }
}

TEST(Host, MissingFilesAndMissingExportsGiveOneLineErrors) {
    BcastHost::CPluginModule module;
    std::string error;
    EXPECT_FALSE(module.Load("/nonexistent/libBroadCastPlugin.so", error));
    EXPECT_NE(error.find("cannot load module /nonexistent/libBroadCastPlugin.so"), std::string::npos)
        << error;
    EXPECT_EQ(error.find('\n'), std::string::npos);
    EXPECT_FALSE(module.Load(BcastTest::BinaryDir() + "/lib/libtal_errortext.so", error));
    EXPECT_NE(error.find("lacks exports: Init, Start, UnInit"), std::string::npos) << error;
    EXPECT_NE(error.find("IsBoradCastToolUIShow"), std::string::npos);
    EXPECT_FALSE(module.IsLoaded());
}

TEST(Host, ClientConfigurationIsCheckedAndDefaulted) {
    const BcastTest::CTempDir temp("bcast-host");
    const std::string& dir = temp.Path();
    BcastHost::ClientConfig config;
    std::string error;
    EXPECT_FALSE(BcastHost::LoadClientConfig(dir + "/missing.json", config, error));
    EXPECT_NE(error.find("cannot read"), std::string::npos);
    std::ofstream(dir + "/bad.json") << "{\"Platform\":";
    EXPECT_FALSE(BcastHost::LoadClientConfig(dir + "/bad.json", config, error));
    EXPECT_NE(error.find("not a JSON object"), std::string::npos);
    std::ofstream(dir + "/port.json") << R"({"Platform":{"Port":70000}})";
    EXPECT_FALSE(BcastHost::LoadClientConfig(dir + "/port.json", config, error));
    std::ofstream(dir + "/ok.json")
        << R"({"Platform":{"Address":"127.0.0.1","Port":18650},"User":{"Name":"op"},)"
           R"("SysConfig":{"Language":"zh_CN","NetOvertime":1,"DataPath":")"
        << dir << R"(/data"}})";
    BcastHost::ClientConfig ok;
    ASSERT_TRUE(BcastHost::LoadClientConfig(dir + "/ok.json", ok, error)) << error;
    EXPECT_EQ(ok.language, "zh_CN");
    EXPECT_EQ(ok.netOvertime, 1);
    EXPECT_EQ(ok.dataPath, dir + "/data/");
    EXPECT_EQ(ok.capturePath, dir + "/data/capture/");
    EXPECT_EQ(ok.userName, "op");
}

TEST(Host, LifecycleCommandLogsItsStepsAndRefusesBadRuns) {
    const BcastTest::CTempDir temp("bcast-host");
    const std::string& dir = temp.Path();
    std::ofstream(dir + "/client.json")
        << R"({"Platform":{"Address":"127.0.0.1","Port":18650},)"
           R"("SysConfig":{"Language":"en_US","LogLevel":3,"StderrLogLevel":6,"DataPath":")"
        << dir << R"(/data"}})";
    const ProcessResult run = Host({"lifecycle", "--config", dir + "/client.json", "--module", ModulePath()});
    EXPECT_EQ(run.exitCode, 0) << run.output;
    for (const char* step :
         {"Init(en_US) -> true", "Start() -> true", "UpdateFrame(1) -> true", "Notify(2) -> done",
          "StopWorking() -> true", "UnInit() -> true", "lifecycle ok"}) {
        EXPECT_NE(run.output.find(step), std::string::npos) << step << "\n" << run.output;
    }
    std::string log = ReadFile(dir + "/data/log/bcast-host.log");
    EXPECT_NE(log.find("CBroadCastPluginManager init succ."), std::string::npos);
    EXPECT_NE(log.find("Succ Init CBroadcastController"), std::string::npos);
    EXPECT_NE(log.find("Succ to Uninit CBroadCastPluginManager."), std::string::npos);

    struct Case {
        std::vector<std::string> args;
        int exitCode;  // -1: any failure
        const char* said;
    };
    for (const Case& c : {Case{{"lifecycle", "--config", dir + "/client.json", "--module", "/nope.so"},
                               -1,
                               "bcast-host: cannot load module /nope.so"},
                          Case{{"lifecycle"}, 2, "--config FILE is required"},
                          Case{{"dance", "--config", dir + "/client.json"}, 2, "unknown mode dance"}}) {
        SCOPED_TRACE(c.said);
        const ProcessResult bad = Host(c.args);
        if (c.exitCode > 0) {
            EXPECT_EQ(bad.exitCode, c.exitCode) << bad.output;
        }
        EXPECT_GT(bad.exitCode, 0) << bad.output;
        EXPECT_NE(bad.output.find(c.said), std::string::npos) << bad.output;
    }
}

TEST(Host, ConfigurationMistakesNameTheKeyAndTheFile) {
    const BcastTest::CTempDir temp("bcast-host");
    const std::string& dir = temp.Path();
    struct Case {
        const char* json;
        const char* message;
    };
    for (const Case& c : {
             Case{R"({"Platform":{"Adress":"127.0.0.1","Port":18650}})", "unknown key /Platform/Adress"},
             Case{R"({"Platform":{"Address":"127.0.0.1","Port":18650},"Sysconfig":{}})",
                  "unknown key /Sysconfig"},
             Case{R"({"Platform":{"Address":"127.0.0.1","Port":"18650"}})",
                  "/Platform/Port must be an integer"},
             Case{R"({"Platform":{"Address":"127.0.0.1","Port":1,"Https":"no"}})",
                  "/Platform/Https must be true or false"},
             Case{R"({"Platform":{"Address":"127.0.0.1","Port":1},"User":{"Name":7}})",
                  "/User/Name must be a string"},
             Case{R"({"Platform":{"Address":"127.0.0.1"}})", "missing key /Platform/Port"},
             Case{R"({"User":{"Name":"op"}})", "missing key /Platform/Address"},
             Case{R"({"Platform":[]})", "/Platform must be an object"},
         }) {
        SCOPED_TRACE(c.json);
        const std::string path = dir + "/client.json";
        std::ofstream(path) << c.json;
        BcastHost::ClientConfig config;
        std::string error;
        EXPECT_FALSE(BcastHost::LoadClientConfig(path, config, error));
        EXPECT_NE(error.find("client configuration " + path + ": " + c.message), std::string::npos) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
    // The program says the same in one line and exits 1.
    std::ofstream(dir + "/client.json")
        << R"({"Platform":{"Address":"127.0.0.1","Port":1},"User":{"Nmae":"op"}})";
    const ProcessResult run = Host({"lifecycle", "--config", dir + "/client.json"});
    EXPECT_EQ(run.exitCode, 1) << run.output;
    EXPECT_NE(
        run.output.find("bcast-host: client configuration " + dir + "/client.json: unknown key /User/Nmae"),
        std::string::npos)
        << run.output;
}

TEST(Host, CommandLineWords) {
    const ProcessResult version = Host({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.output, std::string(BCAST_VERSION) + "\n");
    const ProcessResult help = Host({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    for (const char* mode : {"lifecycle", "api METHOD", "web METHOD", "device-talk IDS", "gui", "webui",
                             "doctor", "--config FILE", "--wait SECONDS", "exit codes"}) {
        EXPECT_NE(help.output.find(mode), std::string::npos) << mode << "\n" << help.output;
    }
    // Bad words: exit 2, the reason on the first line, then the usage.
    struct Case {
        std::vector<std::string> args;
        std::string message;
    };
    for (const Case& c :
         {Case{{"lifecycle", "--config", "x", "--bogus"}, "unknown option --bogus"},
          Case{{"lifecycle", "--config", "x", "--wait", "-1"}, "--wait: needs a number of seconds"},
          Case{{"lifecycle", "--config", "x", "--wait", "soon"}, "--wait: needs a number of seconds"},
          Case{{"lifecycle", "--config", "x", "--config"}, "--config"},
          Case{{"api", "--config", "x"}, "api needs a METHOD"},
          Case{{"device-talk", "20a", "--config", "x"}, "device-talk needs the device ids"},
          Case{{"lifecycle", "extra", "--config", "x"}, "unexpected argument extra"},
          Case{{"webui", "--screenshot", "/tmp", "--config", "x"}, "--screenshot belongs to the gui mode"},
          Case{{"--config", "x"}, "no mode given"}}) {
        SCOPED_TRACE(c.message);
        const ProcessResult run = Host(c.args);
        const std::string& out = run.output;
        EXPECT_EQ(run.exitCode, 2) << out;
        ASSERT_NE(out.find('\n'), std::string::npos) << out;
        const std::string first = out.substr(0, out.find('\n'));
        EXPECT_EQ(first.rfind("bcast-host: ", 0), 0u) << out;
        EXPECT_NE(first.find(c.message), std::string::npos) << out;
        EXPECT_NE(out.find("usage: bcast-host MODE"), std::string::npos) << out;
    }
}
