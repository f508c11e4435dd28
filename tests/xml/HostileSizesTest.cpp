#include <dalnim/xml/nim_opbparse.h>

#include <support/CpuTime.hpp>
#include <support/LongRun.hpp>
#include <support/PeakMemory.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <string>

#include <pthread.h>

namespace {

constexpr std::size_t MEBIBYTE = std::size_t{1} << 20;

/** A parser whose callback counts events and measures their strings. */
class CountingParser
{
public:
    CountingParser()
    {
        EXPECT_EQ(nim_pdsParseInit(0, this, nullptr, nullptr, nullptr, count, nullptr, &handle), 0);
    }
    ~CountingParser()
    {
        nim_pdsParseDestroy(&handle);
    }
    CountingParser(const CountingParser&) = delete;
    CountingParser& operator=(const CountingParser&) = delete;

    int push(const std::string& piece)
    {
        return nim_pdsParseBuffer(const_cast<char*>(piece.c_str()), 0, handle);
    }
    int finish(const std::string& piece)
    {
        return nim_pdsParseBuffer(const_cast<char*>(piece.c_str()), PDS_PARSE_F_LAST, handle);
    }
    std::string error() const
    {
        return nim_pdsParseGetErrorInfo(handle);
    }

    /** Number of events by type. */
    std::array<std::size_t, 4> events = {};
    /** Lengths of the strings of the last event, in bytes. */
    std::size_t tagLength = 0;
    std::size_t dataLength = 0;
    std::size_t attributes = 0;
    std::size_t valueLength = 0;

private:
    static int count(PDS_PARSE_H, pds_parse_cb_type_e type, void* context, void*, char* tag, char*,
                     char* data, std::size_t entries, char** attributes)
    {
        auto& self = *static_cast<CountingParser*>(context);
        ++self.events[type];
        self.tagLength = std::strlen(tag);
        self.dataLength = data != nullptr ? std::strlen(data) : self.dataLength;
        if (type == PDS_PARSE_CB_TAG_START) {
            self.attributes = entries / 2;
            self.valueLength = entries != 0 ? std::strlen(attributes[1]) : 0;
        }
        return 0;
    }

    PDS_PARSE_H handle = nullptr;
};

std::string repeated(const std::string& text, std::size_t times)
{
    std::string result;
    result.reserve(text.size() * times);
    for (; times > 0; --times) {
        result += text;
    }
    return result;
}

/** Pushes repetitions of `text` until at least `bytes` were pushed. */
void pushMuch(CountingParser& parser, const std::string& text, std::size_t bytes)
{
    const std::string piece = repeated(text, 65536 / text.size() + 1);
    for (std::size_t pushed = 0; pushed < bytes; pushed += piece.size()) {
        ASSERT_EQ(parser.push(piece), 0);
    }
}

/** Runs `work` on a thread with a stack of 256 KiB, too small for a recursion over many levels. */
void runOnSmallStack(std::function<void()> work)
{
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
}

TEST(HostileSizes, DocumentIsStoredOnceAndParsedInPlace)
{
    const std::size_t size = (support::isLongRun() ? 1024 : 32) * MEBIBYTE;
    const std::string row = "<row id=\"1\" name='n'>text &amp; more<b/><![CDATA[x]]><!-- c --></row>\n";
    CountingParser parser;
    const support::PeakMemory whole;
    ASSERT_EQ(parser.push("<rows>"), 0);
    pushMuch(parser, row, size);

    const support::PeakMemory parse;
    ASSERT_EQ(parser.finish("</rows>"), 0);
    const std::size_t rows = parser.events[PDS_PARSE_CB_CDATA];
    EXPECT_GE(rows, size / row.size());
    EXPECT_EQ(parser.events[PDS_PARSE_CB_TAG_START], 2 * rows + 1);
    EXPECT_EQ(parser.events[PDS_PARSE_CB_TAG_END], 2 * rows + 1);
    EXPECT_EQ(parser.events[PDS_PARSE_CB_DATA], 2 * rows);
    RecordProperty("growth", std::to_string(whole.growth() / MEBIBYTE));
    RecordProperty("growth_of_parse", std::to_string(parse.growth() / MEBIBYTE));
    if (support::measuresMemory()) {
        // When the buffer doubles, the old and the new one exist at the same time.
        EXPECT_LE(whole.growth(), 3 * size);
        EXPECT_LE(parse.growth(), 4 * MEBIBYTE);
    }
}

struct Single
{
    const char* name;
    const char* open;
    const char* close;
    /** Length to check: at least the number of bytes pushed; null checks none. */
    std::size_t CountingParser::*length;
};

void PrintTo(const Single& single, std::ostream* os)
{
    *os << single.name;
}

class HostileSingle : public testing::TestWithParam<Single>
{};

TEST_P(HostileSingle, AnyConstructMayFillTheDocument)
{
    const Single& single = GetParam();
    const std::size_t size = (support::isLongRun() ? 1024 : 16) * MEBIBYTE;
    const support::PeakMemory memory;
    CountingParser parser;
    ASSERT_EQ(parser.push(single.open), 0);
    pushMuch(parser, "x", size);
    ASSERT_EQ(parser.finish(single.close), 0) << parser.error().substr(0, 100);
    if (single.length != nullptr) {
        EXPECT_GE(parser.*single.length, size);
    }
    EXPECT_EQ(parser.events[PDS_PARSE_CB_TAG_START], parser.events[PDS_PARSE_CB_TAG_END]);
    EXPECT_NE(parser.events[PDS_PARSE_CB_TAG_START], 0U);
    RecordProperty("growth", std::to_string(memory.growth() / MEBIBYTE));
    if (support::measuresMemory()) {
        // A name is also stored in the path.
        EXPECT_LE(memory.growth(), 4 * size);
    }
}

INSTANTIATE_TEST_SUITE_P(All, HostileSingle,
                         testing::Values(Single{"Text", "<a>", "</a>", &CountingParser::dataLength},
                                         Single{"CData", "<a><![CDATA[", "]]></a>",
                                                &CountingParser::dataLength},
                                         Single{"Value", "<a b=\"", "\"/>", &CountingParser::valueLength},
                                         Single{"AttributeName", "<a ", "=\"\"/>", nullptr},
                                         Single{"Element", "<", "/>", &CountingParser::tagLength},
                                         Single{"Comment", "<a><!--", "--></a>", nullptr},
                                         Single{"Instruction", "<?", "?><a/>", nullptr},
                                         Single{"DocType", "<!DOCTYPE ", "><a/>", nullptr}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(HostileSizes, NestingUsesNoStack)
{
    const std::size_t depth = support::isLongRun() ? 20000000 : 1000000;
    const auto parse = [depth](const std::string& end, int code) {
        const support::PeakMemory memory;
        CountingParser parser;
        pushMuch(parser, "<a>", 3 * depth);
        EXPECT_EQ(parser.finish(end), code);
        EXPECT_GE(parser.events[PDS_PARSE_CB_TAG_START], depth - 1);
        if (support::measuresMemory()) {
            EXPECT_LE(memory.growth(), 128 * depth);
        }
        return parser.error();
    };
    runOnSmallStack([&parse] {
        EXPECT_THAT(parse("</b>", PDS_PARSE_E_SYNTAX), testing::StartsWith("Mismatched End Tag -- near"));
        EXPECT_THAT(parse(" ", PDS_PARSE_E_SYNTAX), testing::StartsWith("Premature end of data stream"));
    });
}

TEST(HostileSizes, NumberOfAttributesIsUnlimited)
{
    const std::size_t count = support::isLongRun() ? 10000000 : 500000;
    const support::PeakMemory memory;
    CountingParser parser;
    ASSERT_EQ(parser.push("<a"), 0);
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_EQ(parser.push(" n" + std::to_string(i) + "=''"), 0);
    }
    ASSERT_EQ(parser.finish("/>"), 0);
    EXPECT_EQ(parser.attributes, count);
    RecordProperty("growth", std::to_string(memory.growth() / MEBIBYTE));
    if (support::measuresMemory()) {
        EXPECT_LE(memory.growth(), 192 * count);
    }
}

/**
 * A document, not always well-formed, that repeats one piece and would be slow to parse in quadratic time.
 */
struct Repetition
{
    const char* open;
    const char* piece;
    const char* close;
};

void PrintTo(const Repetition& document, std::ostream* os)
{
    *os << document.open << "..." << document.piece << "..." << document.close;
}

class HostileRepetition : public testing::TestWithParam<Repetition>
{};

TEST_P(HostileRepetition, TakesLinearTime)
{
    const auto time = [](std::size_t times) {
        const Repetition& document = GetParam();
        const std::string text = document.open + repeated(document.piece, times) + document.close;
        return support::cpuTimeOf([&text] { CountingParser().finish(text); });
    };
    constexpr std::size_t FACTOR = 8;
    const std::size_t few = 20000;
    // A parse in quadratic time would take 64 times as long.
    EXPECT_LT(time(FACTOR * few), 3 * FACTOR * time(few) + 0.01);
}

INSTANTIATE_TEST_SUITE_P(
    All, HostileRepetition,
    testing::Values(Repetition{"", "<a>", ""}, Repetition{"<r>", "</a>", ""}, Repetition{"<a>", "<!--", ""},
                    Repetition{"<a><!--", "--", ""}, Repetition{"<a><!", "]]", ""},
                    Repetition{"<a>", "<?", ""}, Repetition{"<a><?", "??", ""},
                    Repetition{"<a>", "<!DOCTYPE ", ""}, Repetition{"<!DOCTYPE ", "<>", ""},
                    Repetition{"<a>", "&#1;", "</a>"}, Repetition{"<a>&#", "1", ";</a>"},
                    Repetition{"<a>", "&amp;<b/>", "</a>"}, Repetition{"<a>", "<b>", "</b></a>"},
                    Repetition{"<a b='", "\n", "'/>"}, Repetition{"<a b='", "&lt;", "'/>"},
                    Repetition{"<a ", "b", ""}, Repetition{"<a>", "<b c=''/>", "</a>"},
                    Repetition{"<a>", " ", "</a>"}, Repetition{"", "<?x?><!-- -->", ""},
                    Repetition{"</", "a", ""}));

}
