#include <dalnim/io/Base64.hpp>
#include <dalnim/io/Encoding.hpp>
#include <dalnim/io/HexDump.hpp>

#include <support/VirtualSlot.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Base64;
using com::kor::dal::nim::io::Decoder;
using com::kor::dal::nim::io::Encoder;
using com::kor::dal::nim::io::EncodingBase;
using com::kor::dal::nim::io::HexDump;

static_assert(std::is_abstract_v<EncodingBase> && std::is_abstract_v<Encoder> && std::is_abstract_v<Decoder>);
static_assert(!std::is_copy_constructible_v<Base64> && !std::is_copy_assignable_v<Base64>);
static_assert(!std::is_copy_constructible_v<HexDump> && !std::is_copy_assignable_v<HexDump>);
static_assert(std::is_default_constructible_v<Base64> && std::is_default_constructible_v<HexDump>);
static_assert(std::has_virtual_destructor_v<EncodingBase>);
static_assert(std::is_base_of_v<EncodingBase, Encoder> && std::is_base_of_v<EncodingBase, Decoder>);
static_assert(std::is_convertible_v<Base64*, EncodingBase*>, "one base, though by two ways");
static_assert(!std::is_convertible_v<HexDump*, Decoder*>);

typedef std::ostream& (Encoder::*EncodeStream)(std::ostream&, std::istream&, unsigned int) const;
typedef String (Encoder::*EncodeString)(const String&, unsigned int) const;
typedef std::ostream& (Decoder::*DecodeStream)(std::ostream&, std::istream&, unsigned int) const;
typedef String (Decoder::*DecodeString)(const String&, unsigned int) const;

TEST(Encoding, InterfacesHaveTheirSlots)
{
    EXPECT_EQ(2, virtualSlot(&EncodingBase::features));
    EXPECT_EQ(3, virtualSlot(&EncodingBase::scheme));
    EXPECT_EQ(4, virtualSlot(&Encoder::createDecoder));
    EXPECT_EQ(5, virtualSlot(static_cast<EncodeStream>(&Encoder::encode)));
    EXPECT_EQ(6, virtualSlot(static_cast<EncodeString>(&Encoder::encode)));
    EXPECT_EQ(4, virtualSlot(&Decoder::createEncoder));
    EXPECT_EQ(5, virtualSlot(static_cast<DecodeStream>(&Decoder::decode)));
    EXPECT_EQ(6, virtualSlot(static_cast<DecodeString>(&Decoder::decode)));
}

TEST(Encoding, Base64HasItsSlots)
{
    typedef std::ostream& (Base64::*Stream)(std::ostream&, std::istream&, unsigned int) const;
    typedef String (Base64::*Text)(const String&, unsigned int) const;
    EXPECT_EQ(2, virtualSlot(&Base64::features));
    EXPECT_EQ(3, virtualSlot(&Base64::scheme));
    EXPECT_EQ(4, virtualSlot(&Base64::createDecoder));
    EXPECT_EQ(5, virtualSlot(static_cast<Stream>(&Base64::encode)));
    EXPECT_EQ(6, virtualSlot(static_cast<Text>(&Base64::encode)));
    EXPECT_EQ(7, virtualSlot(&Base64::createEncoder));
    EXPECT_EQ(8, virtualSlot(static_cast<Stream>(&Base64::decode)));
    EXPECT_EQ(9, virtualSlot(static_cast<Text>(&Base64::decode)));
}

TEST(Encoding, HexDumpHasItsSlots)
{
    typedef std::ostream& (HexDump::*Stream)(std::ostream&, std::istream&, unsigned int) const;
    typedef String (HexDump::*Text)(const String&, unsigned int) const;
    EXPECT_EQ(2, virtualSlot(&HexDump::features));
    EXPECT_EQ(3, virtualSlot(&HexDump::scheme));
    EXPECT_EQ(4, virtualSlot(&HexDump::createDecoder));
    EXPECT_EQ(5, virtualSlot(static_cast<Stream>(&HexDump::encode)));
    EXPECT_EQ(6, virtualSlot(static_cast<Text>(&HexDump::encode)));
}

TEST(Encoding, ClassesHaveNoState)
{
    EXPECT_EQ(2 * sizeof(void*), sizeof(Base64));
    EXPECT_EQ(sizeof(void*), sizeof(HexDump));
}

TEST(Encoding, Flags)
{
    EXPECT_EQ(256U, +EncodingBase::ENC_LINE_BREAKS);
    EXPECT_EQ(512U, +EncodingBase::DEC_SKIP_INVALID);
    EXPECT_EQ(256U, +Base64::ENC_LINE_BREAKS);
}

TEST(Encoding, SchemesAndFeatures)
{
    const Base64 base64;
    const HexDump hex_dump;
    EXPECT_EQ(7U, base64.features());
    EXPECT_EQ(5U, hex_dump.features());
    EXPECT_EQ("Base64", base64.scheme());
    EXPECT_EQ("HexDump", hex_dump.scheme());
    EXPECT_STREQ("Base64", Base64::ENCODING_SCHEME);
    EXPECT_STREQ("HexDump", HexDump::ENCODING_SCHEME);

    const EncodingBase& base = base64;
    EXPECT_EQ(7U, base.features());
    EXPECT_EQ(&base64.scheme(), &Base64().scheme());
    EXPECT_EQ(&hex_dump.scheme(), &HexDump().scheme());
}

TEST(Encoding, SchemeMayBeCalledOnAnyThread)
{
    std::vector<std::thread> threads;
    std::vector<const String*> names(4);
    for (const String*& name : names) {
        threads.emplace_back([&name] { name = &Base64().scheme(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const String* name : names) {
        EXPECT_EQ(names[0], name);
    }
}

TEST(Encoding, EachDirectionCreatesTheOther)
{
    const Base64 base64;
    const std::unique_ptr<Decoder> decoder(base64.createDecoder());
    const std::unique_ptr<Encoder> encoder(decoder->createEncoder());
    ASSERT_NE(nullptr, encoder);
    EXPECT_NE(static_cast<const EncodingBase*>(&base64), decoder.get());
    EXPECT_EQ("ABC", decoder->decode("QUJD"));
    EXPECT_EQ("QUJD", encoder->encode("ABC"));
    EXPECT_EQ("Base64", encoder->scheme());

    const std::unique_ptr<Decoder> again(encoder->createDecoder());
    EXPECT_EQ(7U, again->features());
}

TEST(Encoding, DumpHasNoDecoder)
{
    EXPECT_EQ(nullptr, HexDump().createDecoder());
}

/** Adds a mark in its overloads for streams. */
template <class Scheme>
class Marking : public Scheme
{
public:
    using Scheme::encode;
    std::ostream& encode(std::ostream& os, std::istream& is, unsigned int flags) const override
    {
        os << "<" << flags << ">";
        return Scheme::encode(os, is, flags);
    }
};

class MarkingBase64 : public Marking<Base64>
{
public:
    using Base64::decode;
    std::ostream& decode(std::ostream& os, std::istream& is, unsigned int flags) const override
    {
        os << "<" << flags << ">";
        return Base64::decode(os, is, flags);
    }
};

TEST(Encoding, StringOverloadsCallTheOverriddenStreamOverloads)
{
    EXPECT_EQ("<0>QUJD", MarkingBase64().encode("ABC"));
    EXPECT_EQ("<256>QUJD", MarkingBase64().encode("ABC", 256));
    EXPECT_EQ("<512>ABC", MarkingBase64().decode("QU*JD", 512));
    EXPECT_THROW(MarkingBase64().decode("QU*JD"), std::invalid_argument);
    EXPECT_EQ("<2>00000000: 41 42 | AB", Marking<HexDump>().encode("AB", 2));
}

TEST(Encoding, InterfacesHaveDefaultFlags)
{
    const Base64 base64;
    const Encoder& encoder = base64;
    const Decoder& decoder = base64;
    std::istringstream data("ABC");
    std::istringstream text("QUJD");
    std::ostringstream os;
    EXPECT_EQ(&os, &encoder.encode(os, data));
    EXPECT_EQ(&os, &decoder.decode(os, text));
    EXPECT_EQ("QUJDABC", os.str());
    EXPECT_EQ("QUJD", encoder.encode("ABC"));
    EXPECT_EQ("ABC", decoder.decode("QUJD"));
}

}
