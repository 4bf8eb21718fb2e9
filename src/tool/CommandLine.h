#pragma once
// The words of one bcast-tool command, read with CLI11 the same way for every command.

#include <string>

#include <CLI/CLI.hpp>

namespace BcastTool {

/// Parses the words after the command's name into `app`'s options. Returns -1 to go on, else the exit
/// status: 0 after --help (the command's help on stdout), 2 after a bad command line (`name: reason` on
/// stderr, then `usage`).
int ParseCommandWords(CLI::App& app, int argc, char** argv, const std::string& name,
                      const std::string& usage);

}  // namespace BcastTool
