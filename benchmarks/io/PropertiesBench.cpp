#include <dalnim/io/Properties.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <ostream>
#include <random>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Properties;

constexpr int LINES = 100000;

std::vector<String> makeKeys()
{
    std::vector<String> keys;
    for (int i = 0; i < LINES; ++i) {
        keys.push_back("server." + std::to_string(i / 100) + ".setting." + std::to_string(i % 100));
    }
    return keys;
}

const std::vector<String>& keysInOrder()
{
    static const std::vector<String> keys = [] {
        std::vector<String> all = makeKeys();
        std::sort(all.begin(), all.end());
        return all;
    }();
    return keys;
}

const std::vector<String>& keysShuffled()
{
    static const std::vector<String> keys = [] {
        std::vector<String> all = makeKeys();
        std::shuffle(all.begin(), all.end(), std::mt19937(1));
        return all;
    }();
    return keys;
}

String textOf(const std::vector<String>& keys)
{
    String text;
    for (const String& key : keys) {
        text += key + " = a value of " + key + "\n";
    }
    return text;
}

String textWithEscapes(const std::vector<String>& keys)
{
    String text;
    for (const String& key : keys) {
        text += key + "=C:\\\\Programs\\tand \\u00e9, \\\n    continued\n";
    }
    return text;
}

/** Reads a string in place, so that copying it is not measured. */
class TextBuffer : public std::streambuf
{
public:
    explicit TextBuffer(const String& text)
    {
        char* const begin = const_cast<char*>(text.data());
        setg(begin, begin, begin + text.size());
    }
};

/** Discards its output. */
class Sink : public std::streambuf
{
protected:
    int_type overflow(int_type c) override
    {
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char*, std::streamsize count) override
    {
        return count;
    }
};

const Properties& table()
{
    static const std::unique_ptr<Properties> loaded = [] {
        std::istringstream stream(textOf(keysShuffled()));
        return std::make_unique<Properties>(stream);
    }();
    return *loaded;
}

void countLines(benchmark::State& state, const String& text)
{
    state.SetItemsProcessed(state.iterations() * LINES);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

/** The lower limit: reading the lines. */
void readLines(benchmark::State& state)
{
    const String text = textOf(keysShuffled());
    for (auto _ : state) {
        TextBuffer buffer(text);
        std::istream stream(&buffer);
        String line;
        std::size_t bytes = 0;
        while (std::getline(stream, line)) {
            bytes += line.size();
        }
        benchmark::DoNotOptimize(bytes);
    }
    countLines(state, text);
}
BENCHMARK(readLines)->Unit(benchmark::kMillisecond);

void load(benchmark::State& state, const String& text)
{
    for (auto _ : state) {
        TextBuffer buffer(text);
        std::istream stream(&buffer);
        Properties* const loaded = new Properties(stream);
        benchmark::DoNotOptimize(loaded->size());
        state.PauseTiming();
        delete loaded;
        state.ResumeTiming();
    }
    countLines(state, text);
}

void loadShuffled(benchmark::State& state)
{
    load(state, textOf(keysShuffled()));
}
BENCHMARK(loadShuffled)->Unit(benchmark::kMillisecond);

void loadInOrder(benchmark::State& state)
{
    load(state, textOf(keysInOrder()));
}
BENCHMARK(loadInOrder)->Unit(benchmark::kMillisecond);

void loadEscapes(benchmark::State& state)
{
    load(state, textWithEscapes(keysInOrder()));
}
BENCHMARK(loadEscapes)->Unit(benchmark::kMillisecond);

/** Loads the same properties again: all keys exist already. */
void loadAgain(benchmark::State& state)
{
    const String text = textOf(keysShuffled());
    Properties target(table());
    for (auto _ : state) {
        TextBuffer buffer(text);
        std::istream stream(&buffer);
        target.load(stream);
    }
    countLines(state, text);
}
BENCHMARK(loadAgain)->Unit(benchmark::kMillisecond);

void loadSmallFile(benchmark::State& state)
{
    const String text = "# a small file\n\nname = value\nother: a second value\n";
    for (auto _ : state) {
        TextBuffer buffer(text);
        std::istream stream(&buffer);
        const Properties loaded(stream);
        benchmark::DoNotOptimize(loaded.size());
    }
}
BENCHMARK(loadSmallFile);

void lookUp(benchmark::State& state)
{
    const std::vector<String>& keys = keysShuffled();
    const Properties& properties = table();
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(properties.getProperty(keys[next]));
        next = (next + 1) % keys.size();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(lookUp);

/** Selects by one of a thousand prefixes with a hundred properties each. */
void selectByPrefix(benchmark::State& state)
{
    const Properties& properties = table();
    int next = 0;
    for (auto _ : state) {
        const std::unique_ptr<Properties> selected(
            properties.getProperties("server." + std::to_string(next) + ".setting."));
        benchmark::DoNotOptimize(selected->size());
        next = (next + 7) % (LINES / 100);
    }
    state.SetItemsProcessed(state.iterations() * 100);
}
BENCHMARK(selectByPrefix)->Unit(benchmark::kMicrosecond);

void copyTable(benchmark::State& state)
{
    const Properties& properties = table();
    for (auto _ : state) {
        const Properties copy(properties);
        benchmark::DoNotOptimize(copy.size());
    }
    state.SetItemsProcessed(state.iterations() * LINES);
}
BENCHMARK(copyTable)->Unit(benchmark::kMillisecond);

void iterate(benchmark::State& state)
{
    const Properties& properties = table();
    for (auto _ : state) {
        std::size_t bytes = 0;
        for (const auto& property : properties) {
            bytes += property.second.size();
        }
        benchmark::DoNotOptimize(bytes);
    }
    state.SetItemsProcessed(state.iterations() * LINES);
}
BENCHMARK(iterate)->Unit(benchmark::kMillisecond);

void store(benchmark::State& state)
{
    const Properties& properties = table();
    Sink buffer;
    std::ostream stream(&buffer);
    for (auto _ : state) {
        properties.store(stream, "benchmark");
    }
    state.SetItemsProcessed(state.iterations() * LINES);
}
BENCHMARK(store)->Unit(benchmark::kMillisecond);

}
