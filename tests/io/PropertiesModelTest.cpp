#include "PropertiesModel.hpp"

#include <dalnim/io/Properties.hpp>

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <sstream>
#include <stdexcept>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Properties;
using propertiestest::Model;

/** Returns a random text of the format's special characters and words and of ordinary ones. */
String randomText(std::mt19937& random)
{
    static const char* const pieces[] = {"\\",      "\\\n",    "\n",       "\n",         "\n",
                                         " ",       "\t",      "\r\n",     "=",          ":",
                                         "#",       "!",       "%",        "%pragma ",   "%pragma severity ",
                                         "warning", "error\n", "include ", "\"x.conf\"", "\"",
                                         "\\u",     "\\u0041", "\\u00",    "\\x",        "\\x4",
                                         "\\x41",   "\\101",   "\\4",      "\\377",      "\\t",
                                         "\\ ",     "\\=",     "a",        "b",          "key",
                                         "value",   "e9",      "0",        "7",          "\xff",
                                         "\v"};
    String text;
    for (auto count = random() % 24; count > 0; --count) {
        text += pieces[random() % (sizeof pieces / sizeof *pieces)];
    }
    if (random() % 8 == 0) {
        text += '\0';
    }
    return text;
}

TEST(PropertiesModel, LoaderAgreesWithTheModel)
{
    std::mt19937 random(8101);
    int loaded = 0;
    int warned = 0;
    for (int round = 0; round < 30000; ++round) {
        const String text = randomText(random);
        const bool report = random() % 2 == 0;
        const bool keep = random() % 2 == 0;
        const Model model(text, "/nowhere/", "x.conf", report, keep);

        Properties properties;
        std::istringstream stream(text);
        std::ostringstream warnings;
        std::ostringstream notes;
        String error;
        try {
            properties.load(stream, "/nowhere/x.conf", warnings, notes,
                            report ? Properties::SEV_WARNING : Properties::SEV_ERROR, keep);
        } catch (const std::exception& e) {
            error = e.what();
        }
        typedef std::map<std::string, std::string> Table;
        ASSERT_EQ(model.table, Table(properties.begin(), properties.end())) << text;
        ASSERT_EQ(model.warnings, warnings.str()) << text;
        ASSERT_STREQ(model.error.c_str(), error.c_str()) << text;
        loaded += error.empty() ? 1 : 0;
        warned += warnings.str().empty() ? 0 : 1;
    }
    EXPECT_LT(3000, loaded);
    EXPECT_GT(27000, loaded);
    EXPECT_LT(300, warned);
}

}
