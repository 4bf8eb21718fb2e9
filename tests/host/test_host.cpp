#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "host/ClientConfig.h"
#include "host/PluginModule.h"

namespace {

std::string BuildDir() {
    const char* dir = std::getenv("BCAST_BINARY_DIR");
    return dir != nullptr ? dir : ".";
}

std::string ModulePath() {
    return BuildDir() + "/lib/libBroadCastPlugin.so";
}

// Runs a command and returns its standard output; `status` gets its exit code.
std::string RunCommand(const std::string& command, int& status) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        status = -1;
        return output;
    }
    char buffer[4096];
    std::size_t n;
    while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0) {
        output.append(buffer, n);
    }
    int raw = pclose(pipe);
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return output;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string TempDir() {
    char pattern[] = "/tmp/bcast-host-XXXXXX";
    return mkdtemp(pattern);
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
    int status = 0;
    std::string out = RunCommand("nm -D --defined-only " + ModulePath(), status);
    ASSERT_EQ(status, 0) << "nm failed";
    std::set<std::string> exported;
    std::istringstream lines(out);
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
    EXPECT_FALSE(module.Load(BuildDir() + "/lib/libtal_errortext.so", error));
    EXPECT_NE(error.find("lacks exports: Init, Start, UnInit"), std::string::npos) << error;
    EXPECT_NE(error.find("IsBoradCastToolUIShow"), std::string::npos);
    EXPECT_FALSE(module.IsLoaded());
}

TEST(Host, ClientConfigurationIsCheckedAndDefaulted) {
    std::string dir = TempDir();
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

TEST(Host, LifecycleCommandSucceedsAndLogsTheStartLines) {
    std::string dir = TempDir();
    std::ofstream(dir + "/client.json")
        << R"({"Platform":{"Address":"127.0.0.1","Port":18650},)"
           R"("SysConfig":{"Language":"en_US","LogLevel":3,"StderrLogLevel":6,"DataPath":")"
        << dir << R"(/data"}})";
    int status = 0;
    std::string out = RunCommand(
        BuildDir() + "/bin/bcast-host lifecycle --config " + dir + "/client.json --module " + ModulePath(),
        status);
    EXPECT_EQ(status, 0) << out;
    for (const char* step :
         {"Init(en_US) -> true", "Start() -> true", "UpdateFrame(1) -> true", "Notify(2) -> done",
          "StopWorking() -> true", "UnInit() -> true", "lifecycle ok"}) {
        EXPECT_NE(out.find(step), std::string::npos) << step << "\n" << out;
    }
    std::string log = ReadFile(dir + "/data/log/bcast-host.log");
    EXPECT_NE(log.find("CBroadCastPluginManager init succ."), std::string::npos);
    EXPECT_NE(log.find("Succ Init CBroadcastController"), std::string::npos);
    EXPECT_NE(log.find("Succ to Uninit CBroadCastPluginManager."), std::string::npos);

    // A module that cannot be loaded: one clear line and a non-zero exit.
    out = RunCommand(
        BuildDir() + "/bin/bcast-host lifecycle --config " + dir + "/client.json --module /nope.so 2>&1",
        status);
    EXPECT_NE(status, 0);
    EXPECT_NE(out.find("bcast-host: cannot load module /nope.so"), std::string::npos) << out;
    out = RunCommand(BuildDir() + "/bin/bcast-host lifecycle 2>&1", status);
    EXPECT_EQ(status, 2);
    EXPECT_NE(out.find("--config FILE is required"), std::string::npos);
    out = RunCommand(BuildDir() + "/bin/bcast-host dance --config " + dir + "/client.json 2>&1", status);
    EXPECT_EQ(status, 2);
    EXPECT_NE(out.find("unknown mode dance"), std::string::npos);
}

TEST(Host, ConfigurationWithAMistypedMissingOrWrongKeyNamesTheKeyAndTheFile) {
    const std::string dir = TempDir();
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
    int status = 0;
    const std::string out =
        RunCommand(BuildDir() + "/bin/bcast-host lifecycle --config " + dir + "/client.json 2>&1", status);
    EXPECT_EQ(status, 1) << out;
    EXPECT_NE(out.find("bcast-host: client configuration " + dir + "/client.json: unknown key /User/Nmae"),
              std::string::npos)
        << out;
}

TEST(Host, CommandLineAnswersHelpAndVersionAndRefusesBadWordsInOneLine) {
    int status = -1;
    std::string out = RunCommand(BuildDir() + "/bin/bcast-host --version", status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(out, std::string(BCAST_VERSION) + "\n");
    out = RunCommand(BuildDir() + "/bin/bcast-host --help", status);
    EXPECT_EQ(status, 0);
    for (const char* mode : {"lifecycle", "api METHOD", "web METHOD", "device-talk IDS", "gui", "webui",
                             "doctor", "--config FILE", "--wait SECONDS", "exit codes"}) {
        EXPECT_NE(out.find(mode), std::string::npos) << mode << "\n" << out;
    }
    struct Case {
        std::string args;
        std::string message;
    };
    for (const Case& c :
         {Case{"lifecycle --config x --bogus", "unknown option --bogus"},
          Case{"lifecycle --config x --wait -1", "--wait: needs a number of seconds"},
          Case{"lifecycle --config x --wait soon", "--wait: needs a number of seconds"},
          Case{"lifecycle --config x --config", "--config"}, Case{"api --config x", "api needs a METHOD"},
          Case{"device-talk 20a --config x", "device-talk needs the device ids"},
          Case{"lifecycle extra --config x", "unexpected argument extra"},
          Case{"webui --screenshot /tmp --config x", "--screenshot belongs to the gui mode"},
          Case{"--config x", "no mode given"}}) {
        SCOPED_TRACE(c.args);
        out = RunCommand(BuildDir() + "/bin/bcast-host " + c.args + " 2>&1 >/dev/null", status);
        EXPECT_EQ(status, 2) << out;
        ASSERT_NE(out.find('\n'), std::string::npos) << out;
        const std::string first = out.substr(0, out.find('\n'));
        EXPECT_EQ(first.rfind("bcast-host: ", 0), 0u) << out;
        EXPECT_NE(first.find(c.message), std::string::npos) << out;
        EXPECT_NE(out.find("usage: bcast-host MODE"), std::string::npos) << out;
    }
}
