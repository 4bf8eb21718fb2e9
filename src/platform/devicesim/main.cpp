// bcast-devsim: runs a simulated broadcast device until interrupted.

#include <time.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "platform/devicesim/DeviceSimulator.h"

namespace {

volatile std::sig_atomic_t g_stop = 0;

void OnSignal(int) {
    g_stop = 1;
}

}  // namespace

int main(int argc, char** argv) {
    DeviceSim::DeviceSimConfig config;
    std::vector<int> refused;
    CLI::App parser("bcast-devsim: runs a simulated broadcast device until SIGINT or SIGTERM.",
                    "bcast-devsim");
    parser.set_version_flag("--version", BCAST_VERSION);
    parser.add_option("--host", config.host, "address to listen on")->capture_default_str()->type_name("A");
    parser.add_option("--port", config.port, "port to listen on (0: a free one)")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535))
        ->type_name("N");
    parser.add_option("--user", config.userName, "the device's user")->capture_default_str()->type_name("U");
    parser.add_option("--password", config.password, "the user's password")->type_name("P");
    parser.add_option("--channels", config.channelCount, "talk channels")
        ->capture_default_str()
        ->check(CLI::PositiveNumber)
        ->type_name("N");
    parser.add_option("--refuse-channel", refused, "refuse talks on channel C (repeatable)")->type_name("C");
    parser.add_flag("--refuse-login", config.refuseLogin, "refuse every login");
    parser.add_flag("--no-stdconfig", "the device does not support the standard configuration interface");
    parser.add_option("--record-dir", config.recordDirectory, "where each channel's talks are recorded")
        ->type_name("DIR");
    parser.footer("exit codes: 0 stopped by a signal, 1 cannot listen, 2 bad command line");
    try {
        parser.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return parser.exit(e);
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "bcast-devsim: %s\nusage: bcast-devsim [OPTIONS] (bcast-devsim --help)\n",
                     e.what());
        return 2;
    }
    config.refusedChannels.insert(refused.begin(), refused.end());
    if (parser.count("--no-stdconfig") > 0) {
        config.stdConfigSupported = false;
    }

    DeviceSim::CDeviceSimulator device;
    if (!device.Start(config)) {
        std::fprintf(stderr, "bcast-devsim: cannot listen on %s:%d\n", config.host.c_str(), config.port);
        return 1;
    }
    std::signal(SIGINT, OnSignal);
    std::signal(SIGTERM, OnSignal);
    std::printf("bcast-devsim listening on %s:%d (user %s)\n", config.host.c_str(), device.Port(),
                config.userName.c_str());
    std::fflush(stdout);
    while (g_stop == 0) {
        struct timespec pause = {0, 200 * 1000 * 1000};
        nanosleep(&pause, nullptr);
    }
    device.Stop();
    const DeviceSim::DeviceSimStats stats = device.Stats();
    std::printf("logins %d, auth failures %d, talks %d (refused %d)\n", stats.logins, stats.authFailures,
                stats.talksOpened, stats.talksRefused);
    for (const auto& channel : stats.channels) {
        std::printf("channel %d: %llu bytes in %d talks (%s) -> %s\n", channel.first,
                    static_cast<unsigned long long>(channel.second.bytes), channel.second.talks,
                    channel.second.audioType.c_str(), channel.second.recordingPath.c_str());
    }
    return 0;
}
