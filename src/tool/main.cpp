// bcast-tool: integrator utilities of the broadcast module.

#include <cstdio>
#include <cstring>

#include "tool/rtp/RtpCommands.h"

namespace {

struct Command {
    const char* name;
    int (*run)(int argc, char** argv);
    const char* summary;
};

const Command kCommands[] = {
    {"rtp-send", &RunRtpSend,
     "send a WAV file or a tone to HOST:PORT as G.711 u-law RTP, paced in real time"},
    {"rtp-recv", &RunRtpRecv, "receive an RTP stream, check it and write it as WAV"},
};

void Usage() {
    std::fprintf(stderr, "usage: bcast-tool COMMAND [options]\ncommands:\n");
    for (const auto& command : kCommands) {
        std::fprintf(stderr, "  %-10s %s\n", command.name, command.summary);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        Usage();
        return 2;
    }
    for (const auto& command : kCommands) {
        if (std::strcmp(argv[1], command.name) == 0) {
            return command.run(argc - 1, argv + 1);
        }
    }
    Usage();
    return 2;
}
