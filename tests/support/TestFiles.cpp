#include "TestFiles.h"

#include <fstream>
#include <random>
#include <sstream>

namespace BcastTest {

std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream data;
    data << in.rdbuf();
    return data.str();
}

void WriteWholeFile(const std::string& path, const std::string& data) {
    std::ofstream(path, std::ios::binary) << data;
}

std::string RandomBytes(std::size_t size, unsigned variant) {
    std::mt19937 random(variant);
    std::string data(size, '\0');
    for (char& c : data) {
        c = static_cast<char>(random() & 0xFF);
    }
    return data;
}

}  // namespace BcastTest
