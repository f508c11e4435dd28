#include "layer/Fault.hpp"
#include "layer/Walk.hpp"

#include <dalnim/io/Base64.hpp>
#include <dalnim/io/HexDump.hpp>

#include <support/StandardLibrary.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

namespace {

using namespace faults;
using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Base64;
using com::kor::dal::nim::io::Decoder;
using com::kor::dal::nim::io::Encoder;
using com::kor::dal::nim::io::EncodingBase;
using com::kor::dal::nim::io::HexDump;

const String& data()
{
    static const String bytes(3000, 'A');
    return bytes;
}

/** Fails each allocation of an operation that returns a string: it must return `expected`, or throw. */
template <class Make>
unsigned int walkText(const String& expected, Make make)
{
    return walkAllocations([] { return String(); }, [&](String& made) { make().swap(made); },
                           [&](String& made, bool done) { EXPECT_EQ(done ? expected : String(), made); });
}

TEST(EncodingFault, Base64TextIsCompleteOrThrows)
{
    const Base64 base64;
    const String encoded = base64.encode(data(), EncodingBase::ENC_LINE_BREAKS);
    EXPECT_GE(walkText(encoded, [&] { return base64.encode(data(), EncodingBase::ENC_LINE_BREAKS); }), 1u);
    EXPECT_GE(walkText(data(), [&] { return base64.decode(encoded); }), 1u);
}

/** A derived class, for which Base64 uses the overloads for streams, since the class could override them. */
class OwnBase64 : public Base64
{};

TEST(EncodingFault, DerivedBase64TextIsCompleteOrThrows)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "the streams of libc++ replace std::bad_alloc by a failure of their own";
    }
    const OwnBase64 base64;
    const String encoded = base64.encode(data());
    EXPECT_GE(walkText(encoded, [&] { return base64.encode(data()); }), 3u);
    EXPECT_GE(walkText(data(), [&] { return base64.decode(encoded); }), 3u);
}

TEST(EncodingFault, HexDumpTextIsCompleteOrThrows)
{
    if (support::USES_LIBCXX) {
        GTEST_SKIP() << "the streams of libc++ replace std::bad_alloc by a failure of their own";
    }
    const HexDump dump;
    const String text = dump.encode(data());
    EXPECT_EQ(187u * 77 + 68, text.size());
    EXPECT_GE(walkText(text, [&] { return dump.encode(data()); }), 3u);
}

TEST(EncodingFault, EncoderAndDecoderAreConstructedOrThrow)
{
    const Base64 base64;
    EXPECT_GE(
        walkAllocations([] { return std::unique_ptr<Encoder>(); },
                        [&](std::unique_ptr<Encoder>& made) { made.reset(base64.createEncoder()); },
                        [](std::unique_ptr<Encoder>& made, bool done) { EXPECT_EQ(done, made != nullptr); }),
        1u);
    EXPECT_GE(
        walkAllocations([] { return std::unique_ptr<Decoder>(); },
                        [&](std::unique_ptr<Decoder>& made) { made.reset(base64.createDecoder()); },
                        [](std::unique_ptr<Decoder>& made, bool done) { EXPECT_EQ(done, made != nullptr); }),
        1u);
}

/** The overloads for streams allocate only before they read. */
TEST(EncodingFault, StreamIsReadCompletelyOrThrows)
{
    const Base64 base64;
    const HexDump dump;
    struct Streams
    {
        std::istringstream in{data()};
        // Large enough for the whole output.
        std::ostringstream out{String(20000, ' ')};
    };
    const auto walk = [](const Encoder& encoder) {
        return walkAllocations(
            [] { return std::make_unique<Streams>(); },
            [&](std::unique_ptr<Streams>& streams) { encoder.encode(streams->out, streams->in); },
            [](std::unique_ptr<Streams>& streams, bool done) {
                EXPECT_EQ(done ? -1 : 'A', streams->in.peek());
                EXPECT_TRUE(streams->out.good());
            });
    };
    EXPECT_GE(walk(base64), 1u);
    EXPECT_GE(walk(dump), 1u);
}

}
