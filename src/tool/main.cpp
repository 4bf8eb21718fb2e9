// bcast-tool: integrator utilities on the broadcast libraries.

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tool/ToolCommand.h"

namespace {

// One registration function per command family.
constexpr void (*kFamilies[])(BcastTool::CommandList&) = {
    &BcastTool::AddVoiceCommands,
    &BcastTool::AddRtpCommands,
    &BcastTool::AddAudioCommands,
};

std::string CommandList(const BcastTool::CommandList& commands) {
    std::string text = "commands:\n";
    for (const auto& command : commands) {
        text += std::string("  ") + command.name + " " + command.usage + "\n      " + command.summary + "\n";
    }
    return text + "exit codes: 0 done, 1 the command failed, 2 bad command line\n";
}

}  // namespace

int main(int argc, char** argv) {
    BcastTool::CommandList commands;
    for (auto family : kFamilies) {
        family(commands);
    }
    // The first word names the command; the words after it are the command's own, read by the command.
    CLI::App parser("bcast-tool: integrator utilities on the broadcast libraries.", "bcast-tool");
    parser.set_version_flag("--version", BCAST_VERSION);
    std::string name;
    parser.add_option("command", name, "the command to run")->required();
    parser.footer(CommandList(commands));
    if (argc >= 2 && std::strcmp(argv[1], "help") == 0) {
        std::fputs(parser.help().c_str(), stdout);
        return 0;
    }
    // Words after the command's name belong to the command (its own --help among them).
    const bool named = argc >= 2 && argv[1][0] != '-';
    try {
        parser.parse(named ? 2 : argc, argv);
    } catch (const CLI::Success& e) {
        return parser.exit(e);
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "bcast-tool: %s\nusage: bcast-tool COMMAND [ARGS]\n%s", e.what(),
                     CommandList(commands).c_str());
        return 2;
    }
    std::vector<std::string> rest;
    if (named) {
        rest.assign(argv + 2, argv + argc);
    }
    std::vector<char*> args;
    for (std::string& word : rest) {
        args.push_back(&word[0]);
    }
    args.push_back(nullptr);
    for (const auto& command : commands) {
        if (name == command.name) {
            return command.run(static_cast<int>(rest.size()), args.data());
        }
    }
    // The error in one line, then the commands there are.
    std::fprintf(stderr, "bcast-tool: unknown command \"%s\"\nusage: bcast-tool COMMAND [ARGS]\n%s",
                 name.c_str(), CommandList(commands).c_str());
    return 2;
}
