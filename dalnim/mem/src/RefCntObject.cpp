#include <dalnim/dalbase.hpp>

#include <dalnim/mem/RefCntObject.hpp>

#include <dalnim/mem/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <qv/pmx/src/perturb.hpp>

#include <cerrno>
#include <limits>

namespace com::kor::dal::nim::mem {

RefCntObject::RefCntObject(const RefCntObject& ref) noexcept
    : type::Object(ref), refs(0), bias(0), flags(ref.flags)
{
}

// The count and how it is counted are no part of the value. NOLINTNEXTLINE(cert-oop54-cpp)
RefCntObject& RefCntObject::operator=(const RefCntObject&) noexcept
{
    return *this;
}

RefCntObject::~RefCntObject() noexcept(false) {}

UInt32_t RefCntObject::refCount(bool incorporate_bias) const
{
    // Acquire: a caller that finds itself the sole owner may change the object. Former owners read it before
    // they decremented the count with release order; increments in between continue the release sequence.
    const UInt32_t count = static_cast<UInt32_t>(__atomic_load_n(&refs, __ATOMIC_ACQUIRE));
    return incorporate_bias ? count - bias : count;
}

void RefCntObject::releaseRef() const
{
    if ((flags & COUNT_REFS) == 0) {
        return;
    }
    const std::int32_t alive = decrement();
    if (alive > 0) {
        return;
    }
    if (alive < 0) {
        const sys::StackTrack track("releaseRef()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
        throw sys::system_error(-1, "Reference count < 0");
    }
    delete this;
}

bool RefCntObject::destroy() const
{
    delete this;
    return true;
}

bool RefCntObject::releaseRefAbove(UInt32_t floor) const noexcept
{
    // Relaxed: only the value to compare. The exchange is ordered like qv_si_atomic_decrement().
    si_atomic_t count = __atomic_load_n(&refs, __ATOMIC_RELAXED);
    while (static_cast<std::int64_t>(static_cast<UInt32_t>(count)) - bias > std::int64_t{floor} + 1) {
        qv::perturb();
        if (__atomic_compare_exchange_n(&refs, &count, count - 1, true, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED)) {
            return true;
        }
    }
    return false;
}

UInt32_t RefCntObject::refBias() const noexcept
{
    return bias;
}

void RefCntObject::refBias(unsigned int new_bias)
{
    const sys::StackTrack track("refBias()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    // The argument is unsigned, so that only the upper limit needs a check.
    if (RefCntObject::refCount(false) <= new_bias) {
        throw sys::system_error(ERANGE, "Bias would exceed range limits.");
    }
    bias = new_bias;
}

void RefCntObject::adjBias(int bias_adjustment)
{
    const sys::StackTrack track("adjBias()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const std::int64_t sum = std::int64_t(bias) + bias_adjustment;
    if (sum < 0 || sum > std::numeric_limits<std::int32_t>::max() || sum >= RefCntObject::refCount(false)) {
        throw sys::system_error(ERANGE, "Bias would exceed range limits.");
    }
    bias = static_cast<UInt32_t>(sum);
}

void RefCntObject::incBias()
{
    adjBias(1);
}

void RefCntObject::decBias()
{
    adjBias(-1);
}

}
