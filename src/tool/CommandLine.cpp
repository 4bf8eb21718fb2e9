#include "tool/CommandLine.h"

#include <cstdio>
#include <vector>

namespace BcastTool {

int ParseCommandWords(CLI::App& app, int argc, char** argv, const std::string& name,
                      const std::string& usage) {
    // CLI11 takes a vector of words last first.
    std::vector<std::string> words(argv, argv + argc);
    std::vector<std::string> reversed(words.rbegin(), words.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        std::fputs(app.help().c_str(), stdout);
        std::fputs(usage.c_str(), stdout);
        return 0;
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "%s: %s\n%s", name.c_str(), e.what(), usage.c_str());
        return 2;
    }
    return -1;
}

}  // namespace BcastTool
