// The Debian packages as a user gets them (scripts/package.sh builds them): extracted with dpkg -x into a
// temporary root, the installed programs run there with a clean environment and resolve every library inside
// that root; the installed platform serves its installed demo site and the installed host serves its
// installed web pages; a third party builds a plugin against the development package; the control files
// carry the computed dependencies, the conffiles and the service; lintian reports no error.

#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "TestProcess.h"

using BcastTest::ProcessResult;
using BcastTest::RunProcess;

namespace {

const std::vector<std::string> kPackages = {"bcast-framework", "bcast-framework-dev", "bcast-client",
                                            "bcast-platform", "bcast-tools"};

std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

std::vector<std::string> ListDir(const std::string& dir) {
    std::vector<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") {
                names.push_back(name);
            }
        }
        closedir(d);
    }
    return names;
}

bool IsElf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    char magic[4] = {};
    in.read(magic, 4);
    return in.gcount() == 4 && magic[0] == 0x7f && magic[1] == 'E' && magic[2] == 'L' && magic[3] == 'F';
}

// The word after `prefix` in `text` (up to white space), empty when `prefix` is not there.
std::string WordAfter(const std::string& text, const std::string& prefix) {
    const std::size_t start = text.find(prefix);
    if (start == std::string::npos) {
        return "";
    }
    const std::size_t from = start + prefix.size();
    return text.substr(from, text.find_first_of(" \t\r\n", from) - from);
}

// Every `from` in `text` replaced by `to`.
std::string ReplaceAll(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// Waits up to `seconds` for `prefix` to appear in the file; the word after it, or empty.
std::string WaitForWord(const std::string& path, const std::string& prefix, int seconds, std::string& text) {
    for (int i = 0; i < seconds * 10; ++i) {
        text = ReadFile(path);
        const std::string word = WordAfter(text, prefix);
        if (!word.empty()) {
            return word;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return "";
}

// The program run with nothing of this process's environment but a PATH and a HOME.
std::vector<std::string> CleanEnv(const std::string& home, std::vector<std::string> argv) {
    std::vector<std::string> command = {"env",
                                        "-i",
                                        "PATH=/usr/bin:/bin",
                                        "HOME=" + home,
                                        "QT_QPA_PLATFORM=offscreen",
                                        "XDG_RUNTIME_DIR=" + home};
    command.insert(command.end(), argv.begin(), argv.end());
    return command;
}

class PackageTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        root_ = new BcastTest::CTempDir("bcast-package-root");
        const std::string dir = Env("BCAST_PACKAGE_DIR");
        for (const std::string& package : kPackages) {
            const std::string file = dir + "/" + package + "_" + BCAST_VERSION + "_amd64.deb";
            if (access(file.c_str(), R_OK) != 0) {
                missing_ += file + " ";
                continue;
            }
            debs_[package] = file;
            const ProcessResult x = RunProcess({"dpkg", "-x", file, root_->Path()}, 60000);
            if (x.exitCode != 0) {
                missing_ += "(dpkg -x " + file + ": " + x.output + ") ";
            }
        }
        arch_ = RunProcess({"dpkg-architecture", "-qDEB_HOST_MULTIARCH"}, 10000).output;
        arch_ = arch_.substr(0, arch_.find('\n'));
    }
    static void TearDownTestSuite() {
        delete root_;
        root_ = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(missing_.empty()) << "build the packages first (scripts/package.sh): " << missing_;
    }
    static std::string Root(const std::string& path = "") { return root_->Path() + path; }
    static std::string PrivateLibDir() { return Root("/usr/lib/" + arch_ + "/bcast"); }

    static BcastTest::CTempDir* root_;
    static std::map<std::string, std::string> debs_;
    static std::string missing_;
    static std::string arch_;
};

BcastTest::CTempDir* PackageTest::root_ = nullptr;
std::map<std::string, std::string> PackageTest::debs_;
std::string PackageTest::missing_;
std::string PackageTest::arch_;

}  // namespace

TEST_F(PackageTest, EveryInstalledProgramAndLibraryResolvesItsLibrariesInsideTheInstallation) {
    std::vector<std::string> files;
    for (const std::string& name : ListDir(Root("/usr/bin"))) {
        files.push_back(Root("/usr/bin/" + name));
    }
    for (const std::string& name : ListDir(PrivateLibDir())) {
        files.push_back(PrivateLibDir() + "/" + name);
    }
    int checked = 0;
    for (const std::string& file : files) {
        if (!IsElf(file)) {
            continue;
        }
        SCOPED_TRACE(file);
        ++checked;
        const ProcessResult ldd = RunProcess(CleanEnv(Root(), {"ldd", file}), 30000);
        ASSERT_EQ(ldd.exitCode, 0) << ldd.output;
        EXPECT_EQ(ldd.output.find("not found"), std::string::npos) << ldd.output;
        for (const std::string& tree : {Env("BCAST_BINARY_DIR"), Env("BCAST_SOURCE_DIR")}) {
            ASSERT_FALSE(tree.empty());
            EXPECT_EQ(ldd.output.find(tree), std::string::npos) << "resolves into " << tree << "\n"
                                                                << ldd.output;
        }
        // Each of the project's own libraries resolves into the private directory of this root.
        std::istringstream lines(ldd.output);
        for (std::string line; std::getline(lines, line);) {
            if (line.find("libtal_") != std::string::npos) {
                const std::string target = line.substr(line.find("=> ") + 3);
                EXPECT_EQ(target.rfind(Root("/usr/bin/../lib/" + arch_ + "/bcast/"), 0) == 0 ||
                              target.rfind(PrivateLibDir() + "/", 0) == 0,
                          true)
                    << line;
            }
        }
    }
    // Four programs, the module, the web adapter and sixteen framework libraries (versioned, with their
    // development links in the -dev package).
    EXPECT_GE(checked, 4 + 2 + 16 * 2);
    for (const char* program : {"bcast-host", "bcast-platform", "bcast-tool", "bcast-devsim"}) {
        struct stat info {};
        EXPECT_EQ(stat(Root(std::string("/usr/bin/") + program).c_str(), &info), 0) << program;
        EXPECT_TRUE(info.st_mode & S_IXOTH) << program;
    }
    // AAC is a plug-in beside the codec library; neither the host, the module nor the codec library maps
    // libavcodec or libavformat when it is loaded.
    EXPECT_EQ(access((PrivateLibDir() + "/libtal_codec_aac.so").c_str(), R_OK), 0);
    for (const std::string& file : {Root("/usr/bin/bcast-host"), PrivateLibDir() + "/libBroadCastPlugin.so",
                                    PrivateLibDir() + "/libtal_codec.so." + BCAST_VERSION}) {
        const std::string libraries = RunProcess(CleanEnv(Root(), {"ldd", file}), 30000).output;
        EXPECT_EQ(libraries.find("libavcodec"), std::string::npos) << file << "\n" << libraries;
        EXPECT_EQ(libraries.find("libavformat"), std::string::npos) << file << "\n" << libraries;
    }
    const std::string soname =
        RunProcess({"objdump", "-p", PrivateLibDir() + "/libtal_base.so." + BCAST_VERSION}, 10000).output;
    EXPECT_NE(soname.find("SONAME               libtal_base.so.0"), std::string::npos) << soname;
}

TEST_F(PackageTest, InstalledProgramsAnswerHelpAndVersionAndTheHostRunsItsLifecycle) {
    for (const std::string program : {"bcast-host", "bcast-platform", "bcast-tool", "bcast-devsim"}) {
        SCOPED_TRACE(program);
        const ProcessResult help =
            RunProcess(CleanEnv(Root(), {Root("/usr/bin/" + program), "--help"}), 30000);
        EXPECT_EQ(help.exitCode, 0) << help.output;
        EXPECT_NE(help.output.find("--version"), std::string::npos) << help.output;
        const ProcessResult version =
            RunProcess(CleanEnv(Root(), {Root("/usr/bin/" + program), "--version"}), 30000);
        EXPECT_EQ(version.exitCode, 0) << version.output;
        EXPECT_NE(version.output.find(BCAST_VERSION), std::string::npos) << version.output;
        const ProcessResult bad =
            RunProcess(CleanEnv(Root(), {Root("/usr/bin/" + program), "--no-such-option"}), 30000);
        EXPECT_EQ(bad.exitCode, 2) << bad.output;
    }
    const ProcessResult platformHelp =
        RunProcess(CleanEnv(Root(), {Root("/usr/bin/bcast-platform"), "--help"}), 30000);
    EXPECT_NE(platformHelp.output.find("--fixture FILE"), std::string::npos) << platformHelp.output;

    // The installed default configuration, with the data directory moved into the temporary root.
    std::string config = ReadFile(Root("/etc/bcast/client.json"));
    ASSERT_NE(config.find("\"DataPath\": \"\""), std::string::npos) << config;
    config.replace(config.find("\"DataPath\": \"\""), 14, "\"DataPath\": \"" + Root("/data") + "\"");
    std::ofstream(Root("/client.json")) << config;
    const ProcessResult lifecycle = RunProcess(
        CleanEnv(Root(), {Root("/usr/bin/bcast-host"), "lifecycle", "--config", Root("/client.json")}),
        120000);
    EXPECT_EQ(lifecycle.exitCode, 0) << lifecycle.output;
    EXPECT_NE(lifecycle.output.find("lifecycle ok"), std::string::npos) << lifecycle.output;
    const std::string log = ReadFile(Root("/data/log/bcast-host.log"));
    EXPECT_NE(log.find("CBroadCastPluginManager init succ."), std::string::npos) << log;
}

TEST_F(PackageTest, InstalledPlatformServesItsInstalledSiteAndTheInstalledHostServesItsInstalledPages) {
    // From a directory without fixtures/, the platform finds the demo site of its installation.
    const std::string out = Root("/platform.out");
    BcastTest::CBackgroundProcess platform;
    ASSERT_TRUE(
        platform.Start(CleanEnv(Root(), {"sh", "-c",
                                         "cd " + Root() + " && exec " + Root("/usr/bin/bcast-platform") +
                                             " --listen 127.0.0.1:0 --sim-ports any --object-store off"
                                             " --speaker-dir " +
                                             Root("/speakers")}),
                       {}, out));
    std::string text;
    const std::string restUrl = WaitForWord(out, "REST listening on ", 20, text);
    ASSERT_EQ(restUrl.rfind("http://127.0.0.1:", 0), 0u) << text;
    const std::string port = restUrl.substr(restUrl.rfind(':') + 1);
    EXPECT_NE(text.find("bcast-platform: fixture " + Root("/usr/bin/../share/bcast/fixtures/demo-site.json")),
              std::string::npos)
        << text;

    std::string config = ReadFile(Root("/etc/bcast/client.json"));
    config.replace(config.find("\"Port\": 18650"), 13, "\"Port\": " + port);
    config.replace(config.find("\"DataPath\": \"\""), 14, "\"DataPath\": \"" + Root("/data-web") + "\"");
    std::ofstream(Root("/client-web.json")) << config;
    const std::string hostOut = Root("/host.out");
    BcastTest::CBackgroundProcess host;
    ASSERT_TRUE(host.Start(
        CleanEnv(Root(), {Root("/usr/bin/bcast-host"), "webui", "--config", Root("/client-web.json")}), {},
        hostOut));
    const std::string page = WaitForWord(hostOut, "\npage: ", 30, text);
    ASSERT_EQ(page.rfind("http://", 0), 0u) << text;
    const ProcessResult fetch = RunProcess({"curl", "-s", "--max-time", "10", page}, 20000);
    EXPECT_EQ(fetch.exitCode, 0) << fetch.output;
    // The page as installed in share/bcast/web.
    const std::string installed = ReadFile(Root("/usr/share/bcast/web/broadcast.html"));
    ASSERT_FALSE(installed.empty());
    EXPECT_EQ(fetch.output, installed);
    host.Stop();
    platform.Stop();
}

TEST_F(PackageTest, AThirdPartyBuildsAPluginAgainstTheDevelopmentPackage) {
    // With CMake: find_package(BcastFramework) from the extracted root.
    const std::string build = Root("/consumer-build");
    const ProcessResult configure =
        RunProcess({"cmake", "-S", Env("BCAST_SOURCE_DIR") + "/tests/package/consumer", "-B", build,
                    "-DCMAKE_PREFIX_PATH=" + Root("/usr"), "-DCMAKE_BUILD_TYPE=Release"},
                   180000);
    ASSERT_EQ(configure.exitCode, 0) << configure.output;
    const ProcessResult make = RunProcess({"cmake", "--build", build}, 300000);
    ASSERT_EQ(make.exitCode, 0) << make.output;
    const ProcessResult run = RunProcess(
        CleanEnv(Root(), {build + "/consumer", R"({"Name":"speaker","Module":3,"Code":7})"}), 30000);
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_EQ(run.output, "speaker [2][3][7]\n");
    // AAC through the installed codec library: its plug-in is found beside it.
    const ProcessResult aac = RunProcess(CleanEnv(Root(), {build + "/consumer_aac"}), 30000);
    EXPECT_EQ(aac.exitCode, 0) << aac.output;
    EXPECT_EQ(aac.output.rfind("aac frames ", 0), 0u) << aac.output;
    EXPECT_GE(std::atoi(aac.output.c_str() + 11), 15) << aac.output;

    // With pkg-config: the same plugin, the installed paths seen below the extracted root.
    const ProcessResult flags = RunProcess(
        {"env", "PKG_CONFIG_PATH=" + Root("/usr/lib/" + arch_ + "/pkgconfig"),
         "PKG_CONFIG_SYSROOT_DIR=" + Root(), "pkg-config", "--cflags", "--libs", "bcast-framework"},
        30000);
    ASSERT_EQ(flags.exitCode, 0) << flags.output;
    EXPECT_NE(flags.output.find("-I" + Root("/usr/include/bcast")), std::string::npos) << flags.output;
    EXPECT_NE(flags.output.find("-ltal_netcomm"), std::string::npos) << flags.output;
    std::string words = flags.output.substr(0, flags.output.find('\n'));
    const ProcessResult compile = RunProcess(
        {"sh", "-c",
         "c++ -std=c++17 -shared -fPIC -o " + Root("/libpcplugin.so") + " " + Env("BCAST_SOURCE_DIR") +
             "/tests/package/consumer/plugin.cpp " + words + " -Wl,--no-undefined"},
        180000);
    EXPECT_EQ(compile.exitCode, 0) << compile.output;
}

TEST_F(PackageTest, ControlFilesCarryComputedDependenciesConffilesAndTheService) {
    auto field = [](const std::string& deb, const std::string& name) {
        return RunProcess({"dpkg-deb", "-f", deb, name}, 30000).output;
    };
    // Library dependencies come from dpkg-shlibdeps; the programs depend on the framework of their version.
    const std::string framework = field(debs_["bcast-framework"], "Depends");
    for (const char* library : {"libportaudio2", "libqt5core5a", "libcurl4", "libgstreamer1.0-0", "libc6"}) {
        EXPECT_NE(framework.find(library), std::string::npos) << library << ": " << framework;
    }
    EXPECT_NE(framework.find("gstreamer1.0-plugins-good"), std::string::npos) << framework;
    const std::string sameVersion = std::string("bcast-framework (= ") + BCAST_VERSION + ")";
    for (const char* package : {"bcast-client", "bcast-platform", "bcast-tools", "bcast-framework-dev"}) {
        EXPECT_NE(field(debs_[package], "Depends").find(sameVersion), std::string::npos) << package;
    }
    EXPECT_NE(field(debs_["bcast-client"], "Depends").find("libqt5widgets5"), std::string::npos);
    const std::string platform = field(debs_["bcast-platform"], "Depends");
    EXPECT_NE(platform.find("adduser"), std::string::npos) << platform;
    EXPECT_NE(platform.find("libgstrtspserver-1.0-0"), std::string::npos) << platform;

    BcastTest::CTempDir control("bcast-package-control");
    ASSERT_EQ(
        RunProcess({"dpkg-deb", "-e", debs_["bcast-platform"], control.Path() + "/platform"}, 30000).exitCode,
        0);
    EXPECT_EQ(ReadFile(control.Path() + "/platform/conffiles"),
              "/etc/bcast/platform.conf\n/etc/bcast/site.json\n");
    const std::string postinst = ReadFile(control.Path() + "/platform/postinst");
    EXPECT_NE(postinst.find("adduser --system --group"), std::string::npos) << postinst;
    EXPECT_NE(postinst.find("install -d -o bcast -g bcast -m 0750 /var/lib/bcast"), std::string::npos);
    ASSERT_EQ(RunProcess({"sh", "-n", control.Path() + "/platform/postinst"}, 10000).exitCode, 0);
    ASSERT_EQ(
        RunProcess({"dpkg-deb", "-e", debs_["bcast-client"], control.Path() + "/client"}, 30000).exitCode, 0);
    EXPECT_EQ(ReadFile(control.Path() + "/client/conffiles"), "/etc/bcast/client.json\n");

    const std::string unit = ReadFile(Root("/lib/systemd/system/bcast-platform.service"));
    for (const char* line : {"User=bcast", "Group=bcast", "EnvironmentFile=/etc/bcast/platform.conf",
                             "ExecStart=/usr/bin/bcast-platform $BCAST_PLATFORM_OPTIONS",
                             "StateDirectory=bcast", "WorkingDirectory=/var/lib/bcast"}) {
        EXPECT_NE(unit.find(line), std::string::npos) << line << "\n" << unit;
    }
    const std::string options = ReadFile(Root("/etc/bcast/platform.conf"));
    EXPECT_NE(options.find("--fixture /etc/bcast/site.json"), std::string::npos) << options;
    EXPECT_NE(options.find("--speaker-dir /var/lib/bcast/speakers"), std::string::npos) << options;
    // The options the service passes are ones the installed platform accepts: it starts with them (here
    // with the paths and ports moved into the temporary root) and stops on SIGTERM.
    const std::string fromConf = options.substr(options.find("BCAST_PLATFORM_OPTIONS=\"") + 24);
    std::string args = fromConf.substr(0, fromConf.find('"'));
    args = ReplaceAll(args, "/etc/bcast", Root("/etc/bcast"));
    args = ReplaceAll(args, "/var/lib/bcast", Root("/var/lib/bcast"));
    args = ReplaceAll(args, "127.0.0.1:18650", "127.0.0.1:0 --sim-ports any");
    BcastTest::CBackgroundProcess service;
    const std::string out = Root("/service.out");
    ASSERT_TRUE(service.Start(
        CleanEnv(Root(), {"sh", "-c", "exec " + Root("/usr/bin/bcast-platform") + " " + args}), {}, out));
    std::string text;
    for (int i = 0; i < 200 && text.find("REST listening on") == std::string::npos; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        text = ReadFile(out);
    }
    EXPECT_NE(text.find("bcast-platform: fixture " + Root("/etc/bcast/site.json")), std::string::npos)
        << text;
    EXPECT_NE(text.find("speakers record to " + Root("/var/lib/bcast/speakers")), std::string::npos) << text;
    service.Stop();
}

TEST_F(PackageTest, LintianReportsNoError) {
    std::vector<std::string> command = {"lintian", "--fail-on", "error"};
    for (const auto& deb : debs_) {
        command.push_back(deb.second);
    }
    const ProcessResult lintian = RunProcess(command, 600000);
    EXPECT_EQ(lintian.exitCode, 0) << lintian.output;
    std::istringstream lines(lintian.output);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_NE(line.rfind("E: ", 0), 0u) << line;
    }
}
