// Runs a fuzz target without a fuzzer: on every file in the given directories or, with --mutate, on mutations
// of these files by the target's own mutator, which are the same in every run.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Null in a target without a mutator.
extern "C" [[gnu::weak]] std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                                             std::size_t max_size, unsigned int seed);

namespace {

typedef std::vector<std::uint8_t> Input;

constexpr std::size_t MAX_SIZE = 4096;

std::minstd_rand randomNumber;

std::vector<std::filesystem::path> filesIn(const std::vector<std::string>& directories)
{
    std::vector<std::filesystem::path> files;
    for (const std::string& directory : directories) {
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool readFile(const std::filesystem::path& path, Input& input)
{
    std::ifstream file(path, std::ios::binary);
    input.assign(std::istreambuf_iterator<char>(file), {});
    return file.is_open();
}

void run(const Input& input)
{
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

/** Runs the target on mutations of the inputs, and on mutations of these. */
void runMutations(std::vector<Input> inputs)
{
    const std::size_t count = std::getenv("DALNIM_TEST_LONG") != nullptr ? 1000000 : 20000;
    const std::size_t capacity = 4 * inputs.size();
    for (std::size_t i = 0; i < count; ++i) {
        Input input = inputs[randomNumber() % inputs.size()];
        const std::size_t size = input.size();
        input.resize(std::max(size, MAX_SIZE));
        input.resize(LLVMFuzzerCustomMutator(input.data(), size, input.size(),
                                             static_cast<unsigned int>(randomNumber())));
        run(input);
        if (inputs.size() < capacity) {
            inputs.push_back(input);
        } else if (i % 4 == 0) {
            inputs[capacity / 4 + randomNumber() % (capacity - capacity / 4)] = input;
        }
    }
    std::cout << count << " mutations\n";
}

}

/** For mutators: changes, inserts or erases one byte. Replaces the richer function of libFuzzer. */
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size)
{
    const auto byte = static_cast<std::uint8_t>(randomNumber() % 256);
    const std::size_t at = randomNumber() % (size + 1);
    if (at < size && byte % 4 == 0) {
        std::copy(data + at + 1, data + size, data + at);
        return size - 1;
    }
    if (size < max_size && byte % 4 == 1) {
        std::copy_backward(data + at, data + size, data + size + 1);
        data[at] = static_cast<std::uint8_t>(randomNumber() % 256);
        return size + 1;
    }
    if (at < size) {
        data[at] = byte;
    }
    return size;
}

int main(int argc, char** argv)
{
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool mutate = !arguments.empty() && arguments[0] == "--mutate";
    arguments.erase(arguments.begin(), arguments.begin() + (mutate ? 1 : 0));
    const std::vector<std::filesystem::path> files = filesIn(arguments);
    if (files.empty() || (mutate && LLVMFuzzerCustomMutator == nullptr)) {
        std::cerr << "no inputs, or --mutate for a target without a mutator\n";
        return 1;
    }

    std::vector<Input> inputs;
    for (const auto& file : files) {
        Input input;
        if (!readFile(file, input)) {
            std::cerr << "cannot read " << file.native() << "\n";
            return 1;
        }
        if (!mutate) {
            // Printed first, so that the last line names the input that ended the process.
            std::cout << file.native() << std::endl;
            run(input);
        }
        inputs.push_back(input);
    }
    if (mutate) {
        runMutations(inputs);
    }
    std::cout << inputs.size() << " inputs\n";
}
