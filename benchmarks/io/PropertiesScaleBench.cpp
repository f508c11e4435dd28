// Tables of 10 to 1,000,000 properties: load, store, lookup and selection, by the library and its peers,
// compared with a bare std::getline of the same lines.

#include <dalnim/io/Properties.hpp>

#include <benchmark/benchmark.h>

#ifdef DALNIM_BENCH_LOG4CPLUS
#include <log4cplus/helpers/property.h>
#endif
#ifdef DALNIM_BENCH_POCO
#include <Poco/AutoPtr.h>
#include <Poco/Util/PropertyFileConfiguration.h>
#endif
#ifdef DALNIM_BENCH_PROPERTY_TREE
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#endif

#include <algorithm>
#include <cstdint>
#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <random>
#include <streambuf>
#include <string>
#include <vector>

namespace {

using com::kor::dal::nim::io::Properties;

/** Number of properties with the same prefix. */
constexpr std::int64_t GROUP = 100;

/** Returns `count` keys in random order. */
std::vector<std::string> keysOf(std::int64_t count)
{
    std::vector<std::string> keys;
    for (std::int64_t i = 0; i < count; ++i) {
        keys.push_back("server." + std::to_string(i / GROUP) + ".setting." + std::to_string(i % GROUP));
    }
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

/** Returns the text of `count` properties. Cached, since generating it takes longer than the measurement. */
const std::string& textOf(std::int64_t count)
{
    static std::map<std::int64_t, std::string> cache;
    std::string& text = cache[count];
    if (text.empty()) {
        for (const std::string& key : keysOf(count)) {
            text += key + " = a value of " + key + "\n";
        }
    }
    return text;
}

/** Reads a string in place, so that copying it is not measured. */
class TextBuffer : public std::streambuf
{
public:
    explicit TextBuffer(const std::string& text)
    {
        char* const begin = const_cast<char*>(text.data());
        setg(begin, begin, begin + text.size());
    }
};

/** Discards its output. */
class NullBuffer : public std::streambuf
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

/** Measures `load(stream)`. Destroying the table that it returns is not measured. */
template <class Load>
void measureLoad(benchmark::State& state, Load load)
{
    const std::string& text = textOf(state.range(0));
    for (auto _ : state) {
        TextBuffer buffer(text);
        std::istream stream(&buffer);
        auto table = load(stream);
        benchmark::DoNotOptimize(table);
        state.PauseTiming();
        table.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/** Measures `find(key)` for keys in random order. */
template <class Find>
void measureLookUp(benchmark::State& state, Find find)
{
    static std::map<std::int64_t, std::vector<std::string>> cache;
    std::vector<std::string>& keys = cache[state.range(0)];
    if (keys.empty()) {
        keys = keysOf(state.range(0));
        std::shuffle(keys.begin(), keys.end(), std::mt19937(2));
    }
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(find(keys[next]));
        next = (next + 1) % keys.size();
    }
    state.SetItemsProcessed(state.iterations());
}

/** Measures `select(prefix)` for one prefix after another. */
template <class Select>
void measureSelect(benchmark::State& state, Select select)
{
    const std::int64_t groups = std::max<std::int64_t>(1, state.range(0) / GROUP);
    std::int64_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(select("server." + std::to_string(next) + ".setting."));
        next = (next + 7) % groups;
    }
    state.SetItemsProcessed(state.iterations() * std::min(GROUP, state.range(0)));
}

/** Returns a table of `count` properties, of any type. Cached like textOf(). */
template <class Pointer, class Load>
const Pointer& loadedOnce(std::int64_t count, Load load)
{
    static std::map<std::int64_t, Pointer> cache;
    Pointer& table = cache[count];
    if (!table) {
        TextBuffer buffer(textOf(count));
        std::istream stream(&buffer);
        table = load(stream);
    }
    return table;
}

const std::unique_ptr<Properties>& loaded(std::int64_t count)
{
    return loadedOnce<std::unique_ptr<Properties>>(
        count, [](std::istream& stream) { return std::make_unique<Properties>(stream); });
}

void loadDalnim(benchmark::State& state)
{
    measureLoad(state, [](std::istream& stream) { return std::make_unique<Properties>(stream); });
}

void lookUpDalnim(benchmark::State& state)
{
    const auto& table = loaded(state.range(0));
    measureLookUp(state, [&](const std::string& key) { return table->getProperty(key); });
}

void selectDalnim(benchmark::State& state)
{
    const auto& table = loaded(state.range(0));
    measureSelect(state, [&](const std::string& prefix) {
        return std::unique_ptr<Properties>(table->getProperties(prefix));
    });
}

void storeDalnim(benchmark::State& state)
{
    const auto& table = loaded(state.range(0));
    NullBuffer buffer;
    std::ostream stream(&buffer);
    for (auto _ : state) {
        table->store(stream, "benchmark");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/** The lower limit: reading the lines. */
void loadGetline(benchmark::State& state)
{
    measureLoad(state, [](std::istream& stream) {
        auto line = std::make_unique<std::string>();
        std::size_t bytes = 0;
        while (std::getline(stream, *line)) {
            bytes += line->size();
        }
        benchmark::DoNotOptimize(bytes);
        return line;
    });
}

void numbers(benchmark::internal::Benchmark* benchmark)
{
    benchmark->RangeMultiplier(10)->Range(10, 1000000);
}

BENCHMARK(loadDalnim)->Name("load/dalnim")->Apply(numbers);
BENCHMARK(loadGetline)->Name("load/getline")->Apply(numbers);
BENCHMARK(storeDalnim)->Name("store/dalnim")->Apply(numbers);
BENCHMARK(lookUpDalnim)->Name("lookUp/dalnim")->Apply(numbers);
BENCHMARK(selectDalnim)->Name("select/dalnim")->Apply(numbers);

#ifdef DALNIM_BENCH_LOG4CPLUS
typedef log4cplus::helpers::Properties Log4cplusTable;

const std::unique_ptr<Log4cplusTable>& loadedLog4cplus(std::int64_t count)
{
    return loadedOnce<std::unique_ptr<Log4cplusTable>>(
        count, [](std::istream& stream) { return std::make_unique<Log4cplusTable>(stream); });
}

void loadLog4cplus(benchmark::State& state)
{
    measureLoad(state, [](std::istream& stream) { return std::make_unique<Log4cplusTable>(stream); });
}

void lookUpLog4cplus(benchmark::State& state)
{
    const auto& table = loadedLog4cplus(state.range(0));
    measureLookUp(state, [&](const std::string& key) -> std::string { return table->getProperty(key); });
}

void selectLog4cplus(benchmark::State& state)
{
    const auto& table = loadedLog4cplus(state.range(0));
    measureSelect(state, [&](const std::string& prefix) { return table->getPropertySubset(prefix).size(); });
}

BENCHMARK(loadLog4cplus)->Name("load/log4cplus")->Apply(numbers);
BENCHMARK(lookUpLog4cplus)->Name("lookUp/log4cplus")->Apply(numbers);
BENCHMARK(selectLog4cplus)->Name("select/log4cplus")->Apply(numbers);
#endif

#ifdef DALNIM_BENCH_POCO
typedef Poco::Util::PropertyFileConfiguration PocoTable;

const Poco::AutoPtr<PocoTable>& loadedPoco(std::int64_t count)
{
    return loadedOnce<Poco::AutoPtr<PocoTable>>(
        count, [](std::istream& stream) { return Poco::AutoPtr<PocoTable>(new PocoTable(stream)); });
}

void loadPoco(benchmark::State& state)
{
    measureLoad(state, [](std::istream& stream) { return Poco::AutoPtr<PocoTable>(new PocoTable(stream)); });
}

void lookUpPoco(benchmark::State& state)
{
    const Poco::AutoPtr<PocoTable>& table = loadedPoco(state.range(0));
    measureLookUp(state, [&](const std::string& key) { return table->getString(key); });
}

void storePoco(benchmark::State& state)
{
    const Poco::AutoPtr<PocoTable>& table = loadedPoco(state.range(0));
    NullBuffer buffer;
    std::ostream stream(&buffer);
    for (auto _ : state) {
        table->save(stream);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(loadPoco)->Name("load/POCO")->Apply(numbers);
BENCHMARK(lookUpPoco)->Name("lookUp/POCO")->Apply(numbers);
BENCHMARK(storePoco)->Name("store/POCO")->Apply(numbers);
#endif

#ifdef DALNIM_BENCH_PROPERTY_TREE
void loadPropertyTree(benchmark::State& state)
{
    measureLoad(state, [](std::istream& stream) {
        auto table = std::make_unique<boost::property_tree::ptree>();
        boost::property_tree::read_ini(stream, *table);
        return table;
    });
}

BENCHMARK(loadPropertyTree)->Name("load/Boost")->Apply(numbers);
#endif

}
