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

#include "host/ClientConfig.h"
#include "host/HostCommands.h"
#include "host/PluginModule.h"

namespace {

void PrintUsage(std::ostream& out) {
    out << "usage: bcast-host MODE [ARGS] --config FILE [--module PATH] [--wait SECONDS]\n"
           "modes:\n"
           "  lifecycle           run Init, Start, UpdateFrame, Notify, StopWorking, UnInit and print each result\n"
           "  api METHOD [JSON]   call the module's method /API/Broadcast/V0/METHOD as a registered listener,\n"
           "                      print the answer and the notifications until the work settles\n"
           "                      (or for --wait SECONDS)\n"
           "  gui                 show the module's broadcast panel in a window (needs a display)\n"
           "The module defaults to ../lib/libBroadCastPlugin.so beside this program, or $BCAST_MODULE.\n";
}

struct Options {
    std::string mode;
    std::vector<std::string> arguments;
    std::string configPath;
    std::string modulePath;
    double waitSeconds = -1;
};

bool ParseOptions(int argc, char** argv, Options& options, std::string& error) {
    std::vector<std::string> args(argv + 1, argv + argc);
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if ((arg == "--config" || arg == "--module") && i + 1 < args.size()) {
            (arg == "--config" ? options.configPath : options.modulePath) = args[++i];
        } else if (arg == "--wait" && i + 1 < args.size()) {
            char* end = nullptr;
            options.waitSeconds = std::strtod(args[++i].c_str(), &end);
            if (end == nullptr || *end != '\0' || options.waitSeconds < 0) {
                error = "--wait needs a number of seconds";
                return false;
            }
        } else if (arg == "--help" || arg == "-h") {
            return false;
        } else if (!arg.empty() && arg[0] == '-') {
            error = "unknown option " + arg;
            return false;
        } else if (options.mode.empty()) {
            options.mode = arg;
        } else {
            options.arguments.push_back(arg);
        }
    }
    if (options.mode.empty()) {
        error = "no mode given";
        return false;
    }
    if (options.configPath.empty()) {
        error = "--config FILE is required";
        return false;
    }
    const std::size_t allowed = options.mode == "api" ? 2 : 0;
    if (options.mode == "api" && options.arguments.empty()) {
        error = "api needs a METHOD";
        return false;
    }
    if (options.arguments.size() > allowed) {
        error = "unexpected argument " + options.arguments[allowed];
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    std::string error;
    if (!ParseOptions(argc, argv, options, error)) {
        if (!error.empty()) {
            std::cerr << "bcast-host: " << error << "\n";
        }
        PrintUsage(std::cerr);
        return 2;
    }
    if (options.mode != "lifecycle" && options.mode != "gui" && options.mode != "api") {
        std::cerr << "bcast-host: unknown mode " << options.mode << "\n";
        PrintUsage(std::cerr);
        return 2;
    }
    // Qt wants a private runtime directory; make the one it would fall back to, without its warning.
    if (std::getenv("XDG_RUNTIME_DIR") == nullptr) {
        const std::string runtime = "/tmp/runtime-" + std::to_string(getuid());
        mkdir(runtime.c_str(), 0700);
        setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
    }
    // Command-line modes run without a display.
    if (options.mode != "gui" && std::getenv("QT_QPA_PLATFORM") == nullptr) {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    }

    BcastHost::ClientConfig config;
    if (!BcastHost::LoadClientConfig(options.configPath, config, error) ||
        !BcastHost::ApplyClientConfig(config, error)) {
        std::cerr << "bcast-host: " << error << "\n";
        return 1;
    }

    QApplication app(argc, argv);
    int code = 1;
    {
        // Declared after the application so that the module is unloaded while the application still exists.
        BcastHost::CPluginModule module;
        const std::string path =
            options.modulePath.empty() ? BcastHost::DefaultModulePath() : options.modulePath;
        if (!module.Load(path, error)) {
            std::cerr << "bcast-host: " << error << "\n";
            return 1;
        }
        if (options.mode == "lifecycle") {
            code = BcastHost::RunLifecycle(config, module.Entry(), std::cout);
        } else if (options.mode == "api") {
            BcastHost::ApiOptions api;
            api.method = options.arguments[0];
            if (options.arguments.size() > 1) {
                api.request = options.arguments[1];
            }
            api.waitSeconds = options.waitSeconds;
            code = BcastHost::RunApi(config, module.Entry(), api, std::cout);
        } else {
            code = BcastHost::RunGui(config, module.Entry(), std::cout);
        }
    }
    return code;
}
