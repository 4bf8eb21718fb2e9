// Prints what the plugin makes of a JSON text given as the first argument.
#include <iostream>
#include <string>

std::string ConsumerDescribe(const std::string& json);

int main(int argc, char** argv) {
    std::cout << ConsumerDescribe(argc > 1 ? argv[1] : "{}") << std::endl;
    return 0;
}
