// Base64 from and to memory, compared with OpenSSL and, if installed, POCO and Boost. Rates are in bytes of
// the data, not of the encoded text. OpenSSL and Boost are measured with preallocated memory, as called from
// C, and with a new string, as called from C++.

#include <dalnim/io/Base64.hpp>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#ifdef DALNIM_BENCH_POCO
#include <Poco/Base64Decoder.h>
#include <Poco/Base64Encoder.h>
#endif
#ifdef DALNIM_BENCH_BEAST
#include <boost/beast/core/detail/base64.hpp>
#endif

#include <algorithm>
#include <istream>
#include <ostream>
#include <random>
#include <streambuf>
#include <string>
#include <vector>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Base64;
using com::kor::dal::nim::io::EncodingBase;

String makeData(std::size_t length)
{
    std::mt19937_64 random(64);
    String data(length, '\0');
    std::generate(data.begin(), data.end(), [&] { return static_cast<char>(random() & 0xFF); });
    return data;
}

/** Reads and writes preallocated memory, so that its growth is not measured. */
class Memory : public std::streambuf
{
public:
    Memory(char* begin, std::size_t length)
    {
        setg(begin, begin, begin + length);
        setp(begin, begin + length);
    }
};

const unsigned char* bytes(const String& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytes(String& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

void count(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark* benchmark)
{
    for (const int size : {1000, 100000, 1000000, 100000000}) {
        benchmark->Arg(size);
    }
}

void encodeString(benchmark::State& state)
{
    const String data = makeData(static_cast<std::size_t>(state.range(0)));
    const Base64 base64;
    for (auto _ : state) {
        benchmark::DoNotOptimize(base64.encode(data));
    }
    count(state);
}
BENCHMARK(encodeString)->Apply(sizes);

void encodeStringToLines(benchmark::State& state)
{
    const String data = makeData(static_cast<std::size_t>(state.range(0)));
    const Base64 base64;
    for (auto _ : state) {
        benchmark::DoNotOptimize(base64.encode(data, EncodingBase::ENC_LINE_BREAKS));
    }
    count(state);
}
BENCHMARK(encodeStringToLines)->Apply(sizes);

void encodeStream(benchmark::State& state)
{
    String data = makeData(static_cast<std::size_t>(state.range(0)));
    String text(data.size() / 3 * 4 + 4, '\0');
    const Base64 base64;
    for (auto _ : state) {
        Memory input(data.data(), data.size());
        Memory output(text.data(), text.size());
        std::istream is(&input);
        std::ostream os(&output);
        base64.encode(os, is);
        benchmark::DoNotOptimize(text.data());
    }
    count(state);
}
BENCHMARK(encodeStream)->Apply(sizes);

void encodeOpenSsl(benchmark::State& state)
{
    const String data = makeData(static_cast<std::size_t>(state.range(0)));
    String text(data.size() / 3 * 4 + 5, '\0');
    for (auto _ : state) {
        benchmark::DoNotOptimize(EVP_EncodeBlock(bytes(text), bytes(data), static_cast<int>(data.size())));
    }
    count(state);
}
BENCHMARK(encodeOpenSsl)->Apply(sizes);

void encodeOpenSslToNewString(benchmark::State& state)
{
    const String data = makeData(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        String text(data.size() / 3 * 4 + 5, '\0');
        const int length = EVP_EncodeBlock(bytes(text), bytes(data), static_cast<int>(data.size()));
        text.resize(static_cast<std::size_t>(length));
        benchmark::DoNotOptimize(text);
    }
    count(state);
}
BENCHMARK(encodeOpenSslToNewString)->Apply(sizes);

void decodeString(benchmark::State& state)
{
    const Base64 base64;
    const String text = base64.encode(makeData(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        benchmark::DoNotOptimize(base64.decode(text));
    }
    count(state);
}
BENCHMARK(decodeString)->Apply(sizes);

void decodeStringOfLines(benchmark::State& state)
{
    const Base64 base64;
    const String text =
        base64.encode(makeData(static_cast<std::size_t>(state.range(0))), EncodingBase::ENC_LINE_BREAKS);
    for (auto _ : state) {
        benchmark::DoNotOptimize(base64.decode(text));
    }
    count(state);
}
BENCHMARK(decodeStringOfLines)->Apply(sizes);

void decodeStream(benchmark::State& state)
{
    const Base64 base64;
    String text = base64.encode(makeData(static_cast<std::size_t>(state.range(0))));
    String data(static_cast<std::size_t>(state.range(0)), '\0');
    for (auto _ : state) {
        Memory input(text.data(), text.size());
        Memory output(data.data(), data.size());
        std::istream is(&input);
        std::ostream os(&output);
        base64.decode(os, is);
        benchmark::DoNotOptimize(data.data());
    }
    count(state);
}
BENCHMARK(decodeStream)->Apply(sizes);

void decodeOpenSsl(benchmark::State& state)
{
    const String text = Base64().encode(makeData(static_cast<std::size_t>(state.range(0))));
    String data(text.size() / 4 * 3, '\0');
    for (auto _ : state) {
        benchmark::DoNotOptimize(EVP_DecodeBlock(bytes(data), bytes(text), static_cast<int>(text.size())));
    }
    count(state);
}
BENCHMARK(decodeOpenSsl)->Apply(sizes);

void decodeOpenSslToNewString(benchmark::State& state)
{
    const String text = Base64().encode(makeData(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        String data(text.size() / 4 * 3, '\0');
        benchmark::DoNotOptimize(EVP_DecodeBlock(bytes(data), bytes(text), static_cast<int>(text.size())));
        benchmark::DoNotOptimize(data);
    }
    count(state);
}
BENCHMARK(decodeOpenSslToNewString)->Apply(sizes);

#ifdef DALNIM_BENCH_POCO

void encodePoco(benchmark::State& state)
{
    const String data = makeData(static_cast<std::size_t>(state.range(0)));
    String text(data.size() / 3 * 4 + 4, '\0');
    for (auto _ : state) {
        Memory output(text.data(), text.size());
        std::ostream os(&output);
        Poco::Base64Encoder encoder(os);
        encoder.rdbuf()->setLineLength(0);
        encoder.write(data.data(), static_cast<std::streamsize>(data.size()));
        encoder.close();
        benchmark::DoNotOptimize(text.data());
    }
    count(state);
}
BENCHMARK(encodePoco)->Apply(sizes);

void decodePoco(benchmark::State& state)
{
    String text = Base64().encode(makeData(static_cast<std::size_t>(state.range(0))));
    String data(static_cast<std::size_t>(state.range(0)), '\0');
    for (auto _ : state) {
        Memory input(text.data(), text.size());
        std::istream is(&input);
        Poco::Base64Decoder decoder(is);
        decoder.read(data.data(), static_cast<std::streamsize>(data.size()));
        benchmark::DoNotOptimize(data.data());
    }
    count(state);
}
BENCHMARK(decodePoco)->Apply(sizes);

#endif
#ifdef DALNIM_BENCH_BEAST

void encodeBeast(benchmark::State& state)
{
    const String data = makeData(static_cast<std::size_t>(state.range(0)));
    String text(data.size() / 3 * 4 + 4, '\0');
    for (auto _ : state) {
        benchmark::DoNotOptimize(boost::beast::detail::base64::encode(text.data(), data.data(), data.size()));
    }
    count(state);
}
BENCHMARK(encodeBeast)->Apply(sizes);

void encodeBeastToNewString(benchmark::State& state)
{
    const String data = makeData(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        String text(boost::beast::detail::base64::encoded_size(data.size()), '\0');
        text.resize(boost::beast::detail::base64::encode(text.data(), data.data(), data.size()));
        benchmark::DoNotOptimize(text);
    }
    count(state);
}
BENCHMARK(encodeBeastToNewString)->Apply(sizes);

void decodeBeast(benchmark::State& state)
{
    const String text = Base64().encode(makeData(static_cast<std::size_t>(state.range(0))));
    String data(text.size() / 4 * 3, '\0');
    for (auto _ : state) {
        benchmark::DoNotOptimize(boost::beast::detail::base64::decode(data.data(), text.data(), text.size()));
    }
    count(state);
}
BENCHMARK(decodeBeast)->Apply(sizes);

void decodeBeastToNewString(benchmark::State& state)
{
    const String text = Base64().encode(makeData(static_cast<std::size_t>(state.range(0))));
    for (auto _ : state) {
        String data(boost::beast::detail::base64::decoded_size(text.size()), '\0');
        data.resize(boost::beast::detail::base64::decode(data.data(), text.data(), text.size()).first);
        benchmark::DoNotOptimize(data);
    }
    count(state);
}
BENCHMARK(decodeBeastToNewString)->Apply(sizes);

#endif

}
