// Replays fuzz inputs without libFuzzer: every file of the directories (or the files) named on the command
// line goes once through the target's LLVMFuzzerTestOneInput, in name order. A fault stops the run as it
// would stop the fuzzer; an argument without any input fails, so that a lost corpus does not pass silently.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s CORPUS_DIR|FILE...\n", argv[0]);
        return 2;
    }
    std::size_t total = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<fs::path> files;
        std::error_code error;
        if (fs::is_directory(argv[i], error)) {
            for (const auto& entry : fs::directory_iterator(argv[i], error)) {
                if (entry.is_regular_file()) {
                    files.push_back(entry.path());
                }
            }
        } else if (fs::is_regular_file(argv[i], error)) {
            files.emplace_back(argv[i]);
        }
        if (files.empty()) {
            std::fprintf(stderr, "%s: no input in %s\n", argv[0], argv[i]);
            return 1;
        }
        std::sort(files.begin(), files.end());
        for (const fs::path& path : files) {
            std::ifstream in(path, std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                          std::istreambuf_iterator<char>());
            if (!in.good() && !in.eof()) {
                std::fprintf(stderr, "%s: cannot read %s\n", argv[0], path.c_str());
                return 1;
            }
            // A copy of exactly the input's size, so that AddressSanitizer sees a read past its end.
            std::vector<uint8_t> input(bytes.begin(), bytes.end());
            static uint8_t empty = 0;
            uint8_t* data = input.empty() ? &empty : input.data();
            LLVMFuzzerTestOneInput(data, input.size());
            ++total;
        }
    }
    std::printf("%zu inputs replayed\n", total);
    return 0;
}
