// bcast-host: the client host. Loads the broadcast module, configures the framework from a client
// configuration and drives the module from the command line or in a window.

#include <QApplication>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "framework/base/SharedObject.h"
#include "framework/business/PlatformLogin.h"
#include "host/ClientConfig.h"
#include "host/Doctor.h"
#include "host/HostCommands.h"
#include "host/PluginModule.h"
#include "host/web/WebCommand.h"

namespace {

// Exit code of a mode that needs the platform when the login fails (1: the work failed, 2: usage).
constexpr int kExitLoginFailed = 3;

const char* const kModes =
    "modes:\n"
    "  lifecycle           run Init, Start, UpdateFrame, Notify, StopWorking, UnInit and print each result\n"
    "  api METHOD [JSON] [METHOD [JSON]...]\n"
    "                      call the module's methods /API/Broadcast/V0/METHOD in turn as a registered\n"
    "                      listener, printing each answer and the notifications until the work settles\n"
    "                      (or for --wait SECONDS) before the next call; after the last of several\n"
    "                      calls, until the work settles\n"
    "  web METHOD [JSON]   call a method of the module's web controller (StartIPSpeakerBroadcast,\n"
    "                      StopIPSpeakerBroadcast, DownloadMediaFile, StartBroadcastListen,\n"
    "                      StopBroadcastListen, CleanCache) and print each outgoing message\n"
    "  device-talk IDS     talk from the microphone to the devices IDS (\"201,202\") for --wait SECONDS\n"
    "                      (default 5), printing each device's state, then stop\n"
    "  gui [--screenshot DIR]\n"
    "                      show the module's broadcast console in a window (needs a display); with\n"
    "                      --screenshot, write one PNG per tab of the console into DIR and exit\n"
    "  webui               serve the module's web pages: print \"page: URL\" and \"record page: URL\",\n"
    "                      then run until SIGINT or SIGTERM\n"
    "  doctor              check the data directory, the module, the platform and the login, the push\n"
    "                      link, the devices' ports and the audio devices: one line per check, exit 1\n"
    "                      when one fails\n"
    "api, web, device-talk, gui and webui log in to the platform of the configuration first.\n"
    "The module defaults to ../lib/libBroadCastPlugin.so beside this program (the build tree), else the\n"
    "installed one, or $BCAST_MODULE.\n"
    "exit codes: 0 done, 1 the work failed, 2 bad command line, 3 the login failed\n";

const char* const kUsageLine =
    "usage: bcast-host MODE [ARGS] --config FILE [--module PATH] [--wait SECONDS] (bcast-host --help)";

struct Options {
    std::string mode;
    std::vector<std::string> arguments;
    std::string configPath;
    std::string modulePath;
    std::string screenshotDir;
    double waitSeconds = -1;
};

bool KnownMode(const std::string& mode) {
    for (const char* known : {"lifecycle", "gui", "api", "web", "device-talk", "webui", "doctor"}) {
        if (mode == known) {
            return true;
        }
    }
    return false;
}

// What the command line asks for, beyond what the parser checks; false with a one-line reason.
bool CheckOptions(const Options& options, std::string& error) {
    if (options.mode.empty()) {
        error = "no mode given";
        return false;
    }
    if (options.configPath.empty()) {
        error = "--config FILE is required";
        return false;
    }
    if (!KnownMode(options.mode)) {
        error = "unknown mode " + options.mode;
        return false;
    }
    const bool takesMethod = options.mode == "api" || options.mode == "web";
    const bool deviceTalk = options.mode == "device-talk";
    const std::size_t allowed = options.mode == "api" ? options.arguments.size()
                                : takesMethod         ? 2
                                : deviceTalk          ? 1
                                                      : 0;
    if (takesMethod && options.arguments.empty()) {
        error = options.mode + " needs a METHOD";
        return false;
    }
    if (deviceTalk && (options.arguments.empty() || options.arguments[0].empty() ||
                       options.arguments[0].find_first_not_of("0123456789,") != std::string::npos)) {
        error = "device-talk needs the device ids, such as 201,202";
        return false;
    }
    if (!options.screenshotDir.empty() && options.mode != "gui") {
        error = "--screenshot belongs to the gui mode";
        return false;
    }
    if (options.arguments.size() > allowed) {
        error = "unexpected argument " + options.arguments[allowed];
        return false;
    }
    return true;
}

// Parses the command line. Returns -1 to go on, else the exit code (0 after --help or --version, 2 after
// a bad command line, reported in one line).
int ParseOptions(int argc, char** argv, Options& options) {
    CLI::App parser(
        "bcast-host: loads the broadcast module, configures the framework from a client "
        "configuration and drives the module.",
        "bcast-host");
    parser.set_version_flag("--version", BCAST_VERSION);
    parser.add_option("mode", options.mode, "lifecycle, api, web, device-talk, gui, webui or doctor");
    parser.add_option("args", options.arguments, "the mode's arguments");
    parser.add_option("--config", options.configPath, "the client configuration (JSON)")->type_name("FILE");
    parser.add_option("--module", options.modulePath, "the module to load")->type_name("PATH");
    parser
        .add_option("--wait", "how long api, web and device-talk wait for the work")
        // A number of seconds, 0 or more; the message names the option as before.
        ->check(CLI::Validator(
            [&options](std::string& value) {
                char* end = nullptr;
                options.waitSeconds = std::strtod(value.c_str(), &end);
                return end == value.c_str() || *end != '\0' || options.waitSeconds < 0
                           ? std::string("needs a number of seconds, 0 or more")
                           : std::string();
            },
            "SECONDS"))
        ->type_name("SECONDS");
    parser.add_option("--screenshot", options.screenshotDir, "gui: write one PNG per tab into DIR and exit")
        ->type_name("DIR");
    parser.footer(kModes);
    // Every word that is no option is an argument of the mode; what is left is an unknown option.
    parser.allow_extras();
    std::string error;
    try {
        parser.parse(argc, argv);
        if (!parser.remaining().empty()) {
            error = "unknown option " + parser.remaining().front();
        }
    } catch (const CLI::Success& e) {
        return parser.exit(e);
    } catch (const CLI::ParseError& e) {
        error = e.what();
    }
    if (error.empty() && CheckOptions(options, error)) {
        return -1;
    }
    std::cerr << "bcast-host: " << error << "\n" << kUsageLine << "\n";
    return 2;
}

// The web adapter library lies beside the module and links it; loaded after the module, it uses the module
// already in the process.
int RunWeb(const BcastHost::ClientConfig& config, const BcastHost::CPluginModule& module,
           const std::string& modulePath, const Options& options, std::ostream& out) {
    const std::string adapterPath = modulePath.substr(0, modulePath.rfind('/') + 1) + "libbcast_hostweb.so";
    Tal::Base::CSharedObject adapter;
    std::string reason;
    if (!adapter.Open(adapterPath, reason)) {
        out << "bcast-host: cannot load the web adapter " << adapterPath << ": " << reason << std::endl;
        return 1;
    }
    auto run = reinterpret_cast<BcastHostRunWebMethodFn>(adapter.Symbol("BcastHostRunWebMethod"));
    if (run == nullptr) {
        out << "bcast-host: the web adapter lacks BcastHostRunWebMethod" << std::endl;
        return 1;
    }
    const auto& entry = module.Entry();
    int code = 1;
    if (!entry.Init(config.language, nullptr) || !entry.Start()) {
        out << "the module failed to start" << std::endl;
    } else {
        code = run(options.arguments[0].c_str(),
                   options.arguments.size() > 1 ? options.arguments[1].c_str() : "{}", options.waitSeconds);
    }
    entry.StopWorking();
    entry.UnInit();
    out << (code == 0 ? "web ok" : "web FAILED") << std::endl;
    return code;
}

// Qt wants a private runtime directory; make the one it would fall back to, without its warning. Command-line
// modes run without a display.
void PrepareQtEnvironment(const Options& options) {
    if (std::getenv("XDG_RUNTIME_DIR") == nullptr) {
        const std::string runtime = "/tmp/runtime-" + std::to_string(getuid());
        mkdir(runtime.c_str(), 0700);
        setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    }
    if (options.mode != "gui" && std::getenv("QT_QPA_PLATFORM") == nullptr) {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    }
}

// The calls of the api and device-talk modes.
BcastHost::ApiOptions ApiOptionsOf(const Options& options) {
    BcastHost::ApiOptions api;
    if (options.mode == "device-talk") {
        // The talk runs for --wait seconds between the start and the stop; the stop then settles.
        api.calls.push_back(
            BcastHost::ApiCall{"StartDeviceBroadcast",
                               "{\"Data\":{\"DeviceIDs\":\"" + options.arguments[0] + "\",\"Type\":0}}"});
        api.calls.push_back(BcastHost::ApiCall{"StopDeviceBroadcast", "{}"});
        api.waitSeconds = options.waitSeconds >= 0 ? options.waitSeconds : 5;
        return api;
    }
    // METHOD [JSON] pairs: an argument that starts with '{' is the request of the method before it.
    for (const std::string& argument : options.arguments) {
        if (!argument.empty() && argument[0] == '{' && !api.calls.empty()) {
            api.calls.back().request = argument;
        } else {
            api.calls.push_back(BcastHost::ApiCall{argument, "{}"});
        }
    }
    api.waitSeconds = options.waitSeconds;
    return api;
}

// Logs in for the modes that work against the platform, saying how it went.
bool Login(const BcastHost::ClientConfig& config) {
    std::string error;
    const BusinessCommon::PlatformLoginRequest login = BcastHost::LoginRequestOf(config);
    if (!BusinessCommon::LoginToPlatform(login, error)) {
        std::cout << "bcast-host: login to " << config.platformAddress << ":" << config.platformPort << " as "
                  << config.userName << " failed: " << error << std::endl;
        return false;
    }
    std::cout << "login: " << config.userName << "@" << config.platformAddress << ":" << config.platformPort
              << std::endl;
    return true;
}

// Runs the mode asked for with the module loaded.
int RunMode(const BcastHost::ClientConfig& config, BcastHost::CPluginModule& module, const std::string& path,
            const Options& options) {
    if (options.mode == "lifecycle") {
        return BcastHost::RunLifecycle(config, module.Entry(), std::cout);
    }
    if (options.mode == "webui") {
        return BcastHost::RunWebUi(config, module.Entry(), std::cout);
    }
    if (options.mode == "web") {
        return RunWeb(config, module, path, options, std::cout);
    }
    if (options.mode == "api" || options.mode == "device-talk") {
        return BcastHost::RunApi(config, module.Entry(), ApiOptionsOf(options), std::cout);
    }
    return BcastHost::RunGui(config, module.Entry(), std::cout, options.screenshotDir);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const int parsed = ParseOptions(argc, argv, options);
    if (parsed >= 0) {
        return parsed;
    }
    std::string error;
    PrepareQtEnvironment(options);

    BcastHost::ClientConfig config;
    if (!BcastHost::LoadClientConfig(options.configPath, config, error)) {
        std::cerr << "bcast-host: " << error << "\n";
        return 1;
    }
    // The doctor reports an unusable data directory as one of its checks.
    if (!BcastHost::ApplyClientConfig(config, error) && options.mode != "doctor") {
        std::cerr << "bcast-host: " << error << "\n";
        return 1;
    }

    QApplication app(argc, argv);
    const std::string path = options.modulePath.empty() ? BcastHost::DefaultModulePath() : options.modulePath;
    if (options.mode == "doctor") {
        return BcastHost::RunDoctor(config, options.configPath, path, std::cout);
    }
    // Declared after the application so that the module is unloaded while the application still exists.
    BcastHost::CPluginModule module;
    if (!module.Load(path, error)) {
        std::cerr << "bcast-host: " << error << "\n";
        return 1;
    }
    // Every mode but the lifecycle check works against the platform: without a login none of them can do
    // what was asked, so a failed login ends the host at once with its reason.
    const bool online = options.mode != "lifecycle";
    if (online && !Login(config)) {
        return kExitLoginFailed;
    }
    const int code = RunMode(config, module, path, options);
    if (online) {
        BusinessCommon::LogoutFromPlatform();
    }
    return code;
}
