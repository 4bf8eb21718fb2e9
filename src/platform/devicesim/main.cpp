// bcast-devsim: runs a simulated broadcast device until interrupted.

#include <time.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/devicesim/DeviceSimulator.h"

namespace {

volatile std::sig_atomic_t g_stop = 0;

void OnSignal(int) {
    g_stop = 1;
}

void Usage() {
    std::fprintf(
        stderr,
        "usage: bcast-devsim [--host A] [--port N] [--user U] [--password P] [--channels N]\n"
        "                    [--refuse-channel C]... [--refuse-login] [--no-stdconfig] [--record-dir DIR]\n");
}

}  // namespace

int main(int argc, char** argv) {
    DeviceSim::DeviceSimConfig config;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const bool hasValue = i + 1 < argc;
        if (option == "--host" && hasValue) {
            config.host = argv[++i];
        } else if (option == "--port" && hasValue) {
            config.port = std::atoi(argv[++i]);
        } else if (option == "--user" && hasValue) {
            config.userName = argv[++i];
        } else if (option == "--password" && hasValue) {
            config.password = argv[++i];
        } else if (option == "--channels" && hasValue) {
            config.channelCount = std::atoi(argv[++i]);
        } else if (option == "--refuse-channel" && hasValue) {
            config.refusedChannels.insert(std::atoi(argv[++i]));
        } else if (option == "--refuse-login") {
            config.refuseLogin = true;
        } else if (option == "--no-stdconfig") {
            config.stdConfigSupported = false;
        } else if (option == "--record-dir" && hasValue) {
            config.recordDirectory = argv[++i];
        } else {
            Usage();
            return 2;
        }
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
