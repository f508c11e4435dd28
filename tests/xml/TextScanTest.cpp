// The inner loops of the parser, which the library does not export. Compiled for this processor, and in the
// form for every processor.

#include <dalnim/xml/src/ElementPath.hpp>
#include <dalnim/xml/src/TextScan.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

using namespace com::kor::dal::nim;
using xml::ByteVector;
using xml::MatchMask;

/** A text in memory of the exact size, with a NUL at its end, so that a sanitizer reports any access outside.
 */
class Text
{
public:
    explicit Text(const std::string& text) : _size(text.size()), _memory(new char[_size + 1])
    {
        std::memcpy(_memory.get(), text.c_str(), _size + 1);
    }

    char* begin() const
    {
        return _memory.get();
    }
    char* end() const
    {
        return _memory.get() + _size;
    }
    std::ptrdiff_t offset(const char* position) const
    {
        return position == nullptr ? -1 : position - begin();
    }

private:
    std::size_t _size;
    std::unique_ptr<char[]> _memory;
};

ByteVector vectorOf(const std::string& bytes)
{
    return xml::load(bytes.data());
}

TEST(ByteVector, StoresWhatItLoaded)
{
    const std::string bytes = "0123456789abcdef";
    char stored[18] = "................";
    xml::store(stored + 1, vectorOf(bytes));
    EXPECT_EQ("." + bytes, std::string(stored, 17));
}

TEST(ByteVector, MaskHasTheBytesThatMatch)
{
    for (std::size_t place = 0; place < 16; ++place) {
        std::string bytes(16, 'a');
        bytes[place] = '\xFF';
        const MatchMask mask = xml::matchMask(xml::equal(vectorOf(bytes), '\xFF'));
        EXPECT_EQ(place, xml::firstByte(mask));
        EXPECT_EQ(mask, mask & xml::firstBytesMask(place + 1));
        if (place != 0) {
            EXPECT_EQ(0U, mask & xml::firstBytesMask(place));
        }
    }
    EXPECT_EQ(0U, xml::matchMask(xml::equal(vectorOf(std::string(16, 'a')), 'b')));
    EXPECT_EQ(xml::ALL_BYTES, xml::matchMask(xml::equal(vectorOf(std::string(16, 'a')), 'a')));
    EXPECT_EQ(xml::ALL_BYTES, xml::firstBytesMask(16));
}

TEST(ByteVector, EveryByteIsComparedWithTheRange)
{
    for (int byte = 0; byte < 256; ++byte) {
        const ByteVector bytes = vectorOf(std::string(16, static_cast<char>(byte)));
        const bool isInRange = byte >= '\t' && byte < '\t' + 5;
        EXPECT_EQ(isInRange ? xml::ALL_BYTES : 0, xml::matchMask(xml::inRange(bytes, '\t', 5))) << byte;
    }
}

TEST(TextScan, FindsTheFirstOfTwoBytesAtEveryPosition)
{
    for (std::size_t size = 0; size < 50; ++size) {
        for (std::size_t place = 0; place <= size; ++place) {
            std::string content(size, '\xFE');
            if (place < size) {
                content[place] = place % 2 == 0 ? '<' : '&';
                content.back() = '<';
            }
            const Text text(content);
            const char* const found = xml::findEither(text.begin(), text.end(), '<', '&');
            ASSERT_EQ(static_cast<std::ptrdiff_t>(place), text.offset(found)) << size;
        }
    }
}

TEST(TextScan, FindsTheEndOfAValueAtEveryPosition)
{
    for (const char last : {'"', '&', '\n', '\r'}) {
        for (std::size_t size = 0; size < 50; ++size) {
            for (std::size_t place = 0; place <= size; ++place) {
                std::string content(size, '\'');
                if (place < size) {
                    content[place] = last;
                }
                const Text text(content);
                ASSERT_EQ(static_cast<std::ptrdiff_t>(place),
                          text.offset(xml::findInValue<'"'>(text.begin(), text.end())))
                    << size;
            }
        }
    }
}

TEST(TextScan, SkipsEverySpaceOnly)
{
    xml::fillCharTypes();
    const std::string spaces = " \t\n\v\f\r";
    for (std::size_t size = 0; size < 70; ++size) {
        std::string content;
        for (std::size_t i = 0; i < size; ++i) {
            content += spaces[i % spaces.size()];
        }
        for (const std::string rest :
             {"", "x", "\x08", "\x0E", "\x1F", "!", "\x80", "\xA0", "x                "}) {
            const Text text(content + rest);
            ASSERT_EQ(static_cast<std::ptrdiff_t>(size),
                      text.offset(xml::skipSpace(text.begin(), text.end())))
                << size << " and " << rest;
        }
    }
}

TEST(TextScan, FindsThreeCharactersAtEveryPosition)
{
    for (std::size_t size = 0; size < 50; ++size) {
        for (std::size_t place = 0; place + 3 <= size; ++place) {
            std::string content(size, '-');
            content.replace(place, 3, "-->");
            const Text text(content);
            ASSERT_EQ(static_cast<std::ptrdiff_t>(place + 3),
                      text.offset(xml::findPast(text.begin(), text.end(), "-->")))
                << size;
        }
        const Text without(std::string(size, '-'));
        ASSERT_EQ(-1, without.offset(xml::findPast(without.begin(), without.end(), "-->")));
    }
}

TEST(ElementPath, SkipsOnlyTheNameOfTheInnermostElement)
{
    for (std::size_t size = 1; size < 40; ++size) {
        const std::string name(size, 'n');
        const Text text(name + ">" + name + std::string(16, '.'));
        String memory;
        xml::ElementPath path(memory, text.end());
        ASSERT_TRUE(path.open(text.begin(), size, true));
        char* const second = text.begin() + size + 1;
        ASSERT_EQ(static_cast<std::ptrdiff_t>(2 * size + 1), text.offset(path.skipTag(second)));
        for (std::size_t place = 0; place < size; ++place) {
            second[place] = 'm';
            ASSERT_EQ(nullptr, path.skipTag(second)) << place << " of " << size;
            second[place] = 'n';
        }
    }
}

}
