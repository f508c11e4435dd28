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

/** The generic mutation of libFuzzer; Replay.cpp has a simple one. */
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

/** The random choices of one mutation, determined by the seed that the fuzzer passes. */
class Choices
{
public:
    explicit Choices(unsigned int seed) : random(seed) {}

    /** Returns a number from 0 to `limit` - 1; `limit` must not be 0. */
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

/** Applies the generic mutation to a part of an input, which may grow by a few bytes. */
inline void mutateBytes(std::string& piece)
{
    constexpr std::size_t GROWTH = 16;
    std::vector<std::uint8_t> bytes(piece.begin(), piece.end());
    bytes.resize(piece.size() + GROWTH);
    bytes.resize(LLVMFuzzerMutate(bytes.data(), piece.size(), bytes.size()));
    piece.assign(bytes.begin(), bytes.end());
}

/** Copies a mutated input to the buffer of the fuzzer, truncated to its size. Returns the length. */
inline std::size_t store(const std::string& input, std::uint8_t* data, std::size_t max_size)
{
    const std::size_t size = std::min(input.size(), max_size);
    std::memcpy(data, input.data(), size);
    return size;
}

#endif
