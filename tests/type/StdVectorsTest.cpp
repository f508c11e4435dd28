#include <dalnim/type/StdVectors.hpp>
#include <dalnim/type/StreamOps.hpp>
#include <dalnim/type/StringPair.hpp>

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using namespace com::kor::dal::nim;

static_assert(std::is_same_v<StringVector, std::vector<String>>);
static_assert(std::is_same_v<type::StringVector, StringVector>);
static_assert(std::is_same_v<type::StringPair, std::pair<String, String>>);
static_assert(std::is_same_v<type::WideStringPair, std::pair<std::wstring, std::wstring>>);
static_assert(std::is_same_v<type::StringPairVector, std::vector<std::pair<String, String>>>);
static_assert(std::is_same_v<type::WideStringVector, std::vector<std::wstring>>);
static_assert(std::is_same_v<type::WideStringPairVector, std::vector<std::pair<std::wstring, std::wstring>>>);

TEST(StdVectors, VectorsOfPairs)
{
    type::StringPairVector pairs;
    pairs.emplace_back("name", "value");
    EXPECT_EQ(type::StringPair("name", "value"), pairs.front());
}

}
