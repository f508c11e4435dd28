// Parses documents with the push parser and with the class Parser, compared with other parsers. The arguments
// are the kind of document and its size; 100 MB only if DALNIM_BENCH_LARGE is set in the environment.

#include "Documents.hpp"

#include <dalnim/xml/Parser.hpp>
#include <dalnim/xml/nim_opbparse.h>

#include <benchmark/benchmark.h>
#include <expat.h>
#if defined DALNIM_BENCH_PUGIXML
#include <pugixml.hpp>
#endif
#if defined DALNIM_BENCH_POCO
#include <Poco/SAX/DefaultHandler.h>
#include <Poco/SAX/SAXParser.h>
#endif

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::xml::Attributes;
using com::kor::dal::nim::xml::Consumer;
using com::kor::dal::nim::xml::ConsumerRef;

void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

/** The push parser, with a callback that does nothing. */
class PlainParser
{
public:
    PlainParser()
    {
        require(nim_pdsParseInit(0, nullptr, nullptr, nullptr, nullptr, ignore, nullptr, &handle_)
                == PDS_PARSE_OK);
    }

    ~PlainParser()
    {
        nim_pdsParseDestroy(&handle_);
    }

    void parse(const std::string& text)
    {
        nim_pdsParseReset(0, nullptr, handle_);
        const int code = nim_pdsParseBuffer(const_cast<char*>(text.c_str()),
                                            PDS_PARSE_F_LAST | PDS_PARSE_F_SKIP_WS, handle_);
        require(code == PDS_PARSE_OK);
    }

private:
    static int ignore(PDS_PARSE_H, pds_parse_cb_type_e, void*, void*, char*, char*, char*, std::size_t,
                      char**)
    {
        return 0;
    }

    PDS_PARSE_H handle_ = nullptr;
};

/** The class Parser, with a consumer that counts events. */
class ObjectParser
{
public:
    ObjectParser() : consumer_(new Counter), parser_(consumer_) {}

    void parse(const std::string& text)
    {
        parser_.parse(text);
    }

private:
    class Counter : public Consumer
    {
    public:
        bool elementBegin(const String&, const String&, const Attributes& attrs) override
        {
            benchmark::DoNotOptimize(count_ += 1 + attrs.size());
            return true;
        }

        bool elementEnd(const String&, const String&) override
        {
            benchmark::DoNotOptimize(++count_);
            return true;
        }

        bool elementProcessData(const String&, const String&, const String&, bool) override
        {
            benchmark::DoNotOptimize(++count_);
            return true;
        }

    private:
        std::size_t count_ = 0;
    };

    ConsumerRef consumer_;
    com::kor::dal::nim::xml::Parser parser_;
};

class ExpatParser
{
public:
    ExpatParser() : parser_(XML_ParserCreate(nullptr)) {}

    ~ExpatParser()
    {
        XML_ParserFree(parser_);
    }

    void parse(const std::string& text)
    {
        XML_ParserReset(parser_, nullptr);
        XML_SetElementHandler(
            parser_, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
        XML_SetCharacterDataHandler(parser_, [](void*, const XML_Char*, int) {});
        require(XML_Parse(parser_, text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK);
    }

private:
    XML_Parser parser_;
};

#if defined DALNIM_BENCH_PUGIXML
/** Builds its tree from its own copy of the document. */
class PugiParser
{
public:
    void parse(const std::string& text)
    {
        require(tree_.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8));
    }

private:
    pugi::xml_document tree_;
};
#endif

#if defined DALNIM_BENCH_POCO
class PocoParser
{
public:
    PocoParser()
    {
        parser_.setContentHandler(&handler_);
    }

    void parse(const std::string& text)
    {
        parser_.parseMemoryNP(text.data(), text.size());
    }

private:
    Poco::XML::DefaultHandler handler_;
    Poco::XML::SAXParser parser_;
};
#endif

/** The lower limit: reading each byte once. */
class MemChr
{
public:
    void parse(const std::string& text)
    {
        benchmark::DoNotOptimize(std::memchr(text.data(), 0, text.size()));
    }
};

template <class Parser>
void parseOne(benchmark::State& state)
{
    const int kind = static_cast<int>(state.range(0));
    const std::string& text = documents::one(kind, static_cast<std::size_t>(state.range(1)));
    state.SetLabel(documents::nameOf(kind));
    Parser parser;
    for (auto _ : state) {
        parser.parse(text);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

template <class Parser>
void parseMessages(benchmark::State& state)
{
    std::int64_t bytes = 0;
    for (const std::string& text : documents::messages()) {
        bytes += static_cast<std::int64_t>(text.size());
    }
    Parser parser;
    for (auto _ : state) {
        for (const std::string& text : documents::messages()) {
            parser.parse(text);
        }
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

#if defined DALNIM_BENCH_PUGIXML
/** Returns the CPU time of this thread, on which the other rates are based, too. */
double processorSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/** Parses a buffer that may be modified. Filling the buffer is not measured. */
void timeInPlace(benchmark::State& state, const std::vector<const std::string*>& texts)
{
    std::vector<std::vector<char>> buffers;
    std::int64_t bytes = 0;
    for (const std::string* text : texts) {
        buffers.emplace_back(text->begin(), text->end());
        bytes += static_cast<std::int64_t>(text->size());
    }
    pugi::xml_document tree;
    for (auto _ : state) {
        for (std::size_t i = 0; i < texts.size(); ++i) {
            texts[i]->copy(buffers[i].data(), buffers[i].size());
        }
        const double start = processorSeconds();
        for (std::vector<char>& buffer : buffers) {
            require(tree.load_buffer_inplace(buffer.data(), buffer.size(), pugi::parse_default,
                                             pugi::encoding_utf8));
        }
        state.SetIterationTime(processorSeconds() - start);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

void parseOneInPlace(benchmark::State& state)
{
    const int kind = static_cast<int>(state.range(0));
    state.SetLabel(documents::nameOf(kind));
    timeInPlace(state, {&documents::one(kind, static_cast<std::size_t>(state.range(1)))});
}

void parseMessagesInPlace(benchmark::State& state)
{
    std::vector<const std::string*> texts;
    for (const std::string& text : documents::messages()) {
        texts.push_back(&text);
    }
    timeInPlace(state, texts);
}
#endif

void sizes(benchmark::internal::Benchmark* benchmark)
{
    for (const int kind : {documents::ATTRIBUTES, documents::TEXT, documents::MIXED}) {
        for (const int size : {10000, 1000000, 10000000}) {
            benchmark->Args({kind, size});
        }
        if (std::getenv("DALNIM_BENCH_LARGE") != nullptr) {
            benchmark->Args({kind, 100000000});
        }
    }
}

}

BENCHMARK_TEMPLATE(parseOne, MemChr)->Apply(sizes);
BENCHMARK_TEMPLATE(parseOne, PlainParser)->Apply(sizes);
BENCHMARK_TEMPLATE(parseOne, ObjectParser)->Apply(sizes);
BENCHMARK_TEMPLATE(parseOne, ExpatParser)->Apply(sizes);
BENCHMARK_TEMPLATE(parseMessages, MemChr);
BENCHMARK_TEMPLATE(parseMessages, PlainParser);
BENCHMARK_TEMPLATE(parseMessages, ObjectParser);
BENCHMARK_TEMPLATE(parseMessages, ExpatParser);
#if defined DALNIM_BENCH_PUGIXML
BENCHMARK_TEMPLATE(parseOne, PugiParser)->Apply(sizes);
BENCHMARK_TEMPLATE(parseMessages, PugiParser);
BENCHMARK(parseOneInPlace)->Apply(sizes)->UseManualTime();
BENCHMARK(parseMessagesInPlace)->UseManualTime();
#endif
#if defined DALNIM_BENCH_POCO
BENCHMARK_TEMPLATE(parseOne, PocoParser)->Apply(sizes);
BENCHMARK_TEMPLATE(parseMessages, PocoParser);
#endif
