// Feeds inputs to a fuzz target without a fuzzer: every file in the folders that are named.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            inputs.push_back(entry.path());
        }
    }
    std::sort(inputs.begin(), inputs.end());
    if (inputs.empty()) {
        std::cerr << "no inputs\n";
        return 1;
    }

    for (const auto& input : inputs) {
        // Where one ends the process, it is the last that was named.
        std::cout << input.native() << std::endl;
        std::ifstream file(input, std::ios::binary);
        const std::vector<std::uint8_t> data{std::istreambuf_iterator<char>(file), {}};
        if (!file.is_open()) {
            std::cerr << "cannot be read\n";
            return 1;
        }
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
    std::cout << inputs.size() << " inputs\n";
}
