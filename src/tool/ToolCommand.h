#pragma once
// Subcommands of bcast-tool. Each family of commands lives in its own folder and adds its entries
// through one registration function listed in main.cpp.

#include <vector>

namespace BcastTool {

struct ToolCommand {
    const char* name;     ///< first argument on the command line
    const char* usage;    ///< arguments after the name
    const char* summary;  ///< one line for the command list
    /// Runs with the arguments after the name; returns the exit status.
    int (*run)(int argc, char** argv);
};

using CommandList = std::vector<ToolCommand>;

/// "inspect" and "encode".
void AddVoiceCommands(CommandList& commands);
/// "rtp-send" and "rtp-recv".
void AddRtpCommands(CommandList& commands);
/// "compare".
void AddAudioCommands(CommandList& commands);

}  // namespace BcastTool
