#include <dalnim/dalbase.hpp>

#include <dalnim/type/Context.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/UniqueID.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/nsdefs.hpp>

#include <atomic>
#include <cerrno>

namespace com::kor::dal::nim::type {

namespace {

constexpr unsigned int SHARED = 1;
constexpr unsigned int SHALLOW = 2;
constexpr unsigned int DEEP = 4;
constexpr unsigned int ALL_ATTRIBUTES = SHARED | SHALLOW | DEEP;

// A key holds its attributes in bits 7 to 9. The sequence number is laid around them twice, shifted
// and unshifted, and the masks decide what survives: numbers that differ in bit 6 alone give one
// key. Who keeps keys relies on this layout.
constexpr unsigned int ATTR_WIDTH = 3;
constexpr unsigned int ATTR_SHIFT = 7;
constexpr UInt32_t ATTR_MASK = ALL_ATTRIBUTES << ATTR_SHIFT;
constexpr UInt32_t LO_MASK = 0x3F;
constexpr UInt32_t HI_MASK = ~(LO_MASK | ATTR_MASK);
constexpr UInt32_t MAX_KEY = 0xFFFFFFFF >> ATTR_WIDTH;
constexpr UInt32_t RESERVED_KEY = 0xFFFFFFFF;

static_assert(HI_MASK == 0xFFFFFC40 && MAX_KEY == 0x1FFFFFFF, "the layout of a key");

// Both guarded by InitLock; the flag is also looked at without it.
UInt32_t _key_last;
std::atomic<bool> _key_inited(false);

unsigned int validate_attributes(unsigned int attrib)
{
    if (attrib > ALL_ATTRIBUTES) {
        throw sys::system_error(EINVAL, "Unrecognized content attributes.");
    }
    if ((attrib & SHARED) != 0 && (attrib & (SHALLOW | DEEP)) != 0) {
        throw sys::system_error(EINVAL, "Conflicting content attributes.");
    }
    return (attrib & DEEP) != 0 ? attrib & ~SHALLOW : attrib;
}

/** The track of keyAttributes() is made with its failure: each entry of a context that is copied asks. */
[[noreturn]] void throw_content_key_error(const char* message, unsigned int line)
{
    const sys::StackTrack track("keyAttributes()", Context::CLASS_NAME, NAMESPACE_NAME, line);
    throw sys::system_error(EINVAL, message);
}

UInt32_t validate_content_key(UInt32_t key)
{
    if (key == RESERVED_KEY) {
        throw_content_key_error("Reserved content key.", __LINE__);
    }
    const UInt32_t attributes = (key & ATTR_MASK) >> ATTR_SHIFT;
    if ((attributes & SHARED) != 0 && (attributes & (SHALLOW | DEEP)) != 0) {
        throw_content_key_error("Key contains conflicting content attributes.", __LINE__);
    }
    return attributes;
}

UInt32_t next_sequence_number()
{
    UInt64_t start = 0;
    if (!_key_inited) {
        // Drawn ahead of the lock; when two threads race, the winner's stands.
        start = sys::UniqueID::nextUid64();
    }
    const sys::InitLock lock(true);
    if (!_key_inited) {
        _key_last = static_cast<UInt32_t>(start & (MAX_KEY >> 1));
        _key_inited = true;
    }
    if (++_key_last > MAX_KEY) {
        _key_last = 1;
    }
    return _key_last;
}

}

Context::Context() noexcept = default;
Context::Context(const Context& ref) noexcept : type::Object(ref), mem::RefCntObject(ref) {}
// There is nothing of its own to take.
Context& Context::operator=(const Context&) noexcept // NOLINT(cert-oop54-cpp)
{
    return *this;
}
Context::~Context() noexcept(false) {}

UInt32_t Context::allocateKey(unsigned int key_attributes)
{
    const sys::StackTrack track("allocateKey()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const unsigned int attributes = validate_attributes(key_attributes);
    const UInt32_t number = next_sequence_number();
    return ((number << ATTR_WIDTH) & HI_MASK) | (number & LO_MASK) | (attributes << ATTR_SHIFT);
}

UInt32_t Context::keyAttributes(unsigned int content_key)
{
    return validate_content_key(content_key);
}

ContextRef Context::current()
{
    // By the way of the container, which makes it what it looks like.
    return ContainerContext::current();
}

}
