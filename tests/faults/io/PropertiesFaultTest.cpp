#include "layer/Fault.hpp"
#include "layer/Walk.hpp"
#include "support/Files.hpp"

#include <dalnim/io/Config.hpp>
#include <dalnim/io/Properties.hpp>
#include <dalnim/sys/SysError.hpp>

#include <support/StandardLibrary.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using namespace faults;
using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Config;
using com::kor::dal::nim::io::Properties;
using com::kor::dal::nim::sys::system_error;

/** Returns a string that is too long for the inline storage. */
String longText(const String& name)
{
    return name + String(60, '.');
}

std::map<String, String> contentOf(const Properties& table)
{
    std::map<String, String> content;
    for (const auto& [key, value] : table) {
        content.emplace(key, value);
    }
    return content;
}

typedef std::map<String, String> Content;
typedef std::unique_ptr<Properties> Table;

Table tableOf(const Content& content)
{
    Table table(new Properties);
    for (const auto& [key, value] : content) {
        table->setProperty(key, value);
    }
    return table;
}

const Content& oldContent()
{
    static const Content content = {{longText("a"), longText("1")}, {longText("c"), longText("3")}};
    return content;
}

TEST(PropertiesFault, SettingANewKeySucceedsOrChangesNothing)
{
    const String key = longText("b");
    const String value = longText("2");
    Content after = oldContent();
    after[key] = value;
    EXPECT_GE(walkAllocations([] { return tableOf(oldContent()); },
                              [&](Table& table) { table->setProperty(key, value); },
                              [&](Table& table, bool done) {
                                  EXPECT_EQ(done ? after : oldContent(), contentOf(*table));
                              }),
              3u);
}

TEST(PropertiesFault, ReplacingAValueSucceedsOrChangesNothing)
{
    const String key = longText("a");
    const String value = String(1000, 'v');
    Content after = oldContent();
    after[key] = value;
    EXPECT_GE(walkAllocations([] { return tableOf(oldContent()); },
                              [&](Table& table) { table->setProperty(key, value); },
                              [&](Table& table, bool done) {
                                  EXPECT_EQ(done ? after : oldContent(), contentOf(*table));
                              }),
              1u);
}

/** Checks that each pair is one of the old or of the new ones, and that no old key is missing. */
void expectBetween(const Content& before, const Content& content, const Content& after)
{
    for (const auto& [key, value] : content) {
        const auto old = before.find(key);
        const auto now = after.find(key);
        EXPECT_TRUE((old != before.end() && old->second == value)
                    || (now != after.end() && now->second == value))
            << key << "=" << value;
    }
    for (const auto& [key, value] : before) {
        EXPECT_EQ(1u, content.count(key)) << key << "=" << value;
    }
}

TEST(PropertiesFault, AddingATableMayAddAPrefixOfIt)
{
    const Table source = tableOf(
        {{longText("a"), String(500, 'n')}, {longText("b"), longText("2")}, {longText("d"), longText("4")}});
    Content after = oldContent();
    for (const auto& [key, value] : *source) {
        after[key] = value;
    }
    EXPECT_GE(walkAllocations([] { return tableOf(oldContent()); },
                              [&](Table& table) { table->addAll(*source); },
                              [&](Table& table, bool done) {
                                  if (done) {
                                      EXPECT_EQ(after, contentOf(*table));
                                  } else {
                                      expectBetween(oldContent(), contentOf(*table), after);
                                  }
                              }),
              5u);
}

TEST(PropertiesFault, CopyIsConstructedOrThrows)
{
    const Table source = tableOf(oldContent());
    EXPECT_GE(walkAllocations([] { return Table(); },
                              [&](Table& table) { table.reset(new Properties(*source, true)); },
                              [&](Table& table, bool done) {
                                  ASSERT_EQ(done, table != nullptr);
                                  if (done) {
                                      EXPECT_EQ(oldContent(), contentOf(*table));
                                  }
                              }),
              5u);
}

TEST(PropertiesFault, SelectionIsReturnedOrThrows)
{
    const Table source = tableOf({{"x/" + longText("a"), longText("1")},
                                  {"*/" + longText("b"), longText("2")},
                                  {"/" + longText("a"), longText("3")},
                                  {"y/" + longText("d"), longText("4")}});
    const Content selected = {{longText("a"), longText("1")}, {longText("b"), longText("2")}};
    const String instance = "x";
    const auto expectSelected = [&](Table& table, bool done) {
        ASSERT_EQ(done, table != nullptr);
        if (done) {
            EXPECT_EQ(selected, contentOf(*table));
        }
    };
    EXPECT_GE(
        walkAllocations([] { return Table(); },
                        [&](Table& table) { table.reset(Config::getDefaultedProperties(*source, instance)); },
                        expectSelected),
        5u);

    const String prefix = "x/";
    const Content one = {{longText("a"), longText("1")}};
    EXPECT_GE(walkAllocations([] { return Table(); },
                              [&](Table& table) { table.reset(source->getProperties(prefix)); },
                              [&](Table& table, bool done) {
                                  ASSERT_EQ(done, table != nullptr);
                                  if (done) {
                                      EXPECT_EQ(one, contentOf(*table));
                                  }
                              }),
              3u);
}

TEST(PropertiesFault, QueriesAllocateNothingInTheTable)
{
    const Table table = tableOf(oldContent());
    const String key = longText("a");
    const String missing = longText("m");
    // They allocate only for their StackTrack.
    walkAllocations([] { return String(); },
                    [&](String& found) {
                        const String& value = table->getProperty(key);
                        const bool contained = table->containsKey(key) && !table->containsKey(missing);
                        if (contained && &table->getProperty(missing, key) == &key) {
                            found.swap(const_cast<String&>(value));
                            found.swap(const_cast<String&>(value));
                            found = "ok";
                        }
                    },
                    [](String& found, bool done) { EXPECT_EQ(done ? "ok" : "", found); });
    EXPECT_EQ(oldContent(), contentOf(*table));
}

/** A table into which a text is loaded, and the warnings of the loads. */
struct Loading
{
    explicit Loading(const String& name = String()) : path(name), table(tableOf(oldContent())) {}

    void load(const String& text, Properties::Severity severity = Properties::SEV_WARNING)
    {
        std::istringstream stream(text);
        std::ostringstream warnings;
        std::ostringstream notes;
        table->load(stream, path, warnings, notes, severity);
        warned = warnings.str();
    }

    String path;
    Table table;
    String warned;
};
typedef std::unique_ptr<Loading> LoadingRef;

TEST(PropertiesFault, LoadIsCompleteOrThrows)
{
    const String text = longText("b") + "=" + longText("2") + "\n" + longText("a") + " = " + String(300, 'n')
                        + "\\\n" + String(2000, 'o') + "\n# comment " + String(3000, '#') + "\n"
                        + longText("e") + ":" + String(5000, '5') + "\n";
    Content after = oldContent();
    after[longText("b")] = longText("2");
    after[longText("a")] = String(300, 'n') + String(2000, 'o');
    after[longText("e")] = String(5000, '5');
    for (const Properties::Severity severity : {Properties::SEV_ERROR, Properties::SEV_WARNING}) {
        EXPECT_GE(walkAllocations([] { return std::make_unique<Loading>(); },
                                  [&](LoadingRef& loading) { loading->load(text, severity); },
                                  [&](LoadingRef& loading, bool done) {
                                      const Content content = contentOf(*loading->table);
                                      if (done) {
                                          EXPECT_EQ(after, content);
                                      } else {
                                          expectBetween(oldContent(), content, after);
                                      }
                                  }),
                  10u);
    }
}

/** The tests above could not distinguish a short file from a load that was abandoned. */
TEST(PropertiesFault, LoadThatCannotWriteItsWarningsSetsTheStreamsState)
{
    const String text = longText("a") + "=" + longText("new") + "\n";
    const String warning = "WARNING: :1: Overriding property \"" + longText("a") + "\"\n";
    struct Attempt
    {
        Table table = tableOf(oldContent());
        std::ostringstream warnings;
    };
    walkAllocations([] { return std::make_unique<Attempt>(); },
                    [&](std::unique_ptr<Attempt>& attempt) {
                        std::istringstream stream(text);
                        std::ostringstream notes;
                        attempt->table->load(stream, String(), attempt->warnings, notes,
                                             Properties::SEV_WARNING);
                    },
                    [&](std::unique_ptr<Attempt>& attempt, bool done) {
                        if (done && attempt->warnings.good()) {
                            EXPECT_NE(String::npos, attempt->warnings.str().find(warning));
                        }
                        attempt->warnings.clear();
                        attempt->warnings.str("");
                    });
}

class IncludeFault : public testing::Test
{
protected:
    IncludeFault()
    {
        support::writeFile(folder.file("inner"), longText("i") + "=" + longText("inner") + "\n");
        support::writeFile(folder.file("other"), longText("o") + "=" + longText("other") + "\n");
        after[longText("i")] = longText("inner");
        after[longText("o")] = longText("other");
        after[longText("z")] = longText("last");
    }

    static String text()
    {
        return "%pragma include \"inner\"\n%pragma include \"other\"\n" + longText("z") + "="
               + longText("last") + "\n";
    }

    support::ScratchFolder folder;
    Content after = oldContent();
};

TEST_F(IncludeFault, LoadWithIncludesIsCompleteOrThrows)
{
    const String path = folder.file("outer");
    EXPECT_GE(walkAllocations([&] { return std::make_unique<Loading>(path); },
                              [&](LoadingRef& loading) { loading->load(text()); },
                              [&](LoadingRef& loading, bool done) {
                                  const Content content = contentOf(*loading->table);
                                  if (done) {
                                      EXPECT_EQ(after, content);
                                  } else {
                                      expectBetween(oldContent(), content, after);
                                  }
                              }),
              20u);
}

TEST_F(IncludeFault, FileThatCannotBeOpenedIsNamedInTheError)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "libc++ does not open files by the function that fails here";
    }
    for (const int error : {EACCES, EMFILE, ENOMEM, EIO}) {
        Loading loading(folder.file("outer"));
        Fault fault(Call::FOPEN, error, 2, 1);
        String failure;
        try {
            loading.load(text());
        } catch (const std::runtime_error& exc) {
            failure = exc.what();
        }
        fault.disarm();
        EXPECT_EQ(1u, fault.failed());
        EXPECT_EQ("ERROR: outer:2: failed to open include file: \"" + folder.file("other") + "\"", failure);
        Content first = oldContent();
        first[longText("i")] = longText("inner");
        EXPECT_EQ(first, contentOf(*loading.table));
        loading.load(text());
        EXPECT_EQ(after, contentOf(*loading.table));
    }
}

/** A stream buffer that accepts a limited number of bytes. */
class LimitedBuffer : public std::stringbuf
{
public:
    explicit LimitedBuffer(std::size_t size) : space(size) {}

private:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override
    {
        const std::streamsize accepted = std::min(count, static_cast<std::streamsize>(space));
        space -= static_cast<std::size_t>(accepted);
        return std::stringbuf::xsputn(bytes, accepted);
    }

    std::size_t space;
};

TEST(PropertiesFault, StoreThatRunsOutOfMemoryThrowsOrSetsTheStreamsState)
{
    const Table table = tableOf(oldContent());
    const String header = longText("header");
    EXPECT_GE(walkAllocations([] { return std::make_unique<std::ostringstream>(); },
                              [&](std::unique_ptr<std::ostringstream>& os) {
                                  os->clear();
                                  os->str("");
                                  table->store(*os, header);
                              },
                              [&](std::unique_ptr<std::ostringstream>& os, bool done) {
                                  if (done && os->good()) {
                                      const String stored = os->str();
                                      EXPECT_EQ(0u, stored.find("#" + header + "\n#"));
                                      EXPECT_NE(String::npos,
                                                stored.find("\n" + longText("a") + "=" + longText("1") + "\n"
                                                            + longText("c") + "=" + longText("3") + "\n"));
                                  }
                              }),
              2u);
}

TEST(PropertiesFault, StoreOnAFullDeviceSetsTheStreamsState)
{
    const Table table = tableOf(oldContent());
    LimitedBuffer storage(100);
    std::ostream os(&storage);
    EXPECT_EQ(&os, &table->store(os, "header"));
    EXPECT_TRUE(os.bad());
    EXPECT_EQ(oldContent(), contentOf(*table));
}

TEST(PropertiesFault, StoreWithoutALocalTimeThrows)
{
    const Table table = tableOf(oldContent());
    std::ostringstream os;
    Fault fault(Call::LOCALTIME, EOVERFLOW);
    int number = 0;
    try {
        table->store(os, "");
    } catch (const system_error& error) {
        number = error.error();
    }
    fault.disarm();
    EXPECT_EQ(38, number);
    EXPECT_EQ("", os.str());
    EXPECT_TRUE(table->store(os, "").good());
}

}
