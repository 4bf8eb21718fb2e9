// bcast-tool: integrator utilities on the broadcast libraries.

#include <cstdio>
#include <cstring>

#include "tool/ToolCommand.h"

namespace {

// One registration function per command family.
constexpr void (*kFamilies[])(BcastTool::CommandList&) = {
    &BcastTool::AddVoiceCommands,
    &BcastTool::AddRtpCommands,
    &BcastTool::AddAudioCommands,
};

void PrintUsage(const BcastTool::CommandList& commands) {
    std::fprintf(stderr, "usage: bcast-tool COMMAND [ARGS]\n\ncommands:\n");
    for (const auto& command : commands) {
        std::fprintf(stderr, "  %s %s\n      %s\n", command.name, command.usage, command.summary);
    }
}

}  // namespace

int main(int argc, char** argv) {
    BcastTool::CommandList commands;
    for (auto family : kFamilies) {
        family(commands);
    }
    if (argc < 2 || std::strcmp(argv[1], "help") == 0 || std::strcmp(argv[1], "--help") == 0 ||
        std::strcmp(argv[1], "-h") == 0) {
        PrintUsage(commands);
        return argc < 2 ? 2 : 0;
    }
    for (const auto& command : commands) {
        if (std::strcmp(argv[1], command.name) == 0) {
            return command.run(argc - 2, argv + 2);
        }
    }
    std::fprintf(stderr, "bcast-tool: unknown command \"%s\"\n\n", argv[1]);
    PrintUsage(commands);
    return 2;
}
