#include <dalnim/dalbase.hpp>

#include <dalnim/type/Context.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/UniqueID.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <qv/pmx/thread_safety.h>

#include <atomic>
#include <cerrno>

namespace com::kor::dal::nim::type {

namespace {

constexpr unsigned int SHARED = 1;
constexpr unsigned int SHALLOW = 2;
constexpr unsigned int DEEP = 4;
constexpr unsigned int ALL_ATTRIBUTES = SHARED | SHALLOW | DEEP;

// Compatibility: a key contains its attributes in bits 7 to 9. The sequence number is combined with it twice,
// shifted and unshifted, each time under a mask. Bit 6 of the number is lost, so numbers that differ only in
// that bit produce the same key. Callers that store keys rely on this layout.
constexpr unsigned int ATTR_WIDTH = 3;
constexpr unsigned int ATTR_SHIFT = 7;
constexpr UInt32_t ATTR_MASK = ALL_ATTRIBUTES << ATTR_SHIFT;
constexpr UInt32_t LO_MASK = 0x3F;
constexpr UInt32_t HI_MASK = ~(LO_MASK | ATTR_MASK);
constexpr UInt32_t MAX_KEY = 0xFFFFFFFF >> ATTR_WIDTH;
constexpr UInt32_t RESERVED_KEY = 0xFFFFFFFF;

static_assert(HI_MASK == 0xFFFFFC40 && MAX_KEY == 0x1FFFFFFF, "the layout of a key");

UInt32_t _key_last DALNIM_GUARDED_BY(sys::internal::initMutex);
/** Set under InitLock, also read without it. */
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

/** Throws. Opens the track of keyAttributes() only now, because that is called for each entry of a copied
 * context. */
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
        // Drawn before the lock is acquired. If two threads race, the first one's number is used.
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
// There are no members to copy.
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
    return ContainerContext::current();
}

}
