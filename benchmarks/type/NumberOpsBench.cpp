// Number parsing, compared with strtol() and strtod(), std::from_chars(), and similar libraries.

#include <dalnim/type/NumberOps.hpp>

#include <benchmark/benchmark.h>
#ifdef DALNIM_BENCH_FAST_FLOAT
#include <fast_float/fast_float.h>
#endif

#include <charconv>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::type::NumberOps;

constexpr std::size_t COUNT = 1024;

const std::vector<String>& integers()
{
    static const std::vector<String> texts = [] {
        std::mt19937 random(73);
        std::vector<String> all;
        for (std::size_t i = 0; i < COUNT; ++i) {
            all.push_back(std::to_string(static_cast<int>(random()) >> random() % 31));
        }
        return all;
    }();
    return texts;
}

const std::vector<String>& reals()
{
    static const std::vector<String> texts = [] {
        std::mt19937 random(73);
        std::uniform_real_distribution<double> distribution(-1e6, 1e6);
        std::vector<String> all;
        for (std::size_t i = 0; i < COUNT; ++i) {
            all.push_back(std::to_string(distribution(random)));
        }
        return all;
    }();
    return texts;
}

template <class Action>
void convertAll(benchmark::State& state, const std::vector<String>& texts, Action action)
{
    for (auto _ : state) {
        for (const String& text : texts) {
            benchmark::DoNotOptimize(action(text));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}

template <class T>
T parse(const String& text)
{
    T result;
    NumberOps::parse(result, text);
    return result;
}

template <class T>
T fromChars(const String& text)
{
    T result = 0;
    std::from_chars(text.data(), text.data() + text.size(), result);
    return result;
}

void parseInt(benchmark::State& state)
{
    convertAll(state, integers(), parse<int>);
}
BENCHMARK(parseInt);

void parseLong(benchmark::State& state)
{
    convertAll(state, integers(), parse<long>);
}
BENCHMARK(parseLong);

void strtolAlone(benchmark::State& state)
{
    convertAll(state, integers(), [](const String& text) { return std::strtol(text.c_str(), nullptr, 0); });
}
BENCHMARK(strtolAlone);

void intFromChars(benchmark::State& state)
{
    convertAll(state, integers(), fromChars<int>);
}
BENCHMARK(intFromChars);

void parseDouble(benchmark::State& state)
{
    convertAll(state, reals(), parse<double>);
}
BENCHMARK(parseDouble);

void strtodAlone(benchmark::State& state)
{
    convertAll(state, reals(), [](const String& text) { return std::strtod(text.c_str(), nullptr); });
}
BENCHMARK(strtodAlone);

void doubleFromChars(benchmark::State& state)
{
    convertAll(state, reals(), fromChars<double>);
}
BENCHMARK(doubleFromChars);

#ifdef DALNIM_BENCH_FAST_FLOAT
void doubleFastFloat(benchmark::State& state)
{
    convertAll(state, reals(), [](const String& text) {
        double result = 0;
        fast_float::from_chars(text.data(), text.data() + text.size(), result);
        return result;
    });
}
BENCHMARK(doubleFastFloat);
#endif

void parseFloat(benchmark::State& state)
{
    convertAll(state, reals(), parse<float>);
}
BENCHMARK(parseFloat);

}
