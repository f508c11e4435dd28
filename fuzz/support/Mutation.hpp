#ifndef FUZZ_SUPPORT_MUTATION_HPP
#define FUZZ_SUPPORT_MUTATION_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <random>
#include <string>
#include <string_view>
#include <vector>

/** What the fuzzer itself does to bytes that it knows nothing about; Replay.cpp has a plain one. */
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

/** The choices of one mutation, all of which follow from the seed that the fuzzer gives for it. */
class Choices
{
public:
    explicit Choices(unsigned int seed) : random(seed) {}

    /** From 0 up to `limit`, which is not 0, and without it. */
    std::size_t below(std::size_t limit)
    {
        return random() % limit;
    }

    bool oneIn(std::size_t chances)
    {
        return below(chances) == 0;
    }

    std::string oneOf(std::initializer_list<std::string_view> choices)
    {
        return std::string(*(choices.begin() + below(choices.size())));
    }

private:
    std::minstd_rand random;
};

/** Lets the fuzzer mutate a piece of an input, which may grow a little by it. */
inline void mutateBytes(std::string& piece)
{
    constexpr std::size_t GROWTH = 16;
    std::vector<std::uint8_t> bytes(piece.begin(), piece.end());
    bytes.resize(piece.size() + GROWTH);
    bytes.resize(LLVMFuzzerMutate(bytes.data(), piece.size(), bytes.size()));
    piece.assign(bytes.begin(), bytes.end());
}

/** Hands a mutated input back to the fuzzer, as much of it as there is room for. */
inline std::size_t store(const std::string& input, std::uint8_t* data, std::size_t max_size)
{
    const std::size_t size = std::min(input.size(), max_size);
    std::memcpy(data, input.data(), size);
    return size;
}

#endif
