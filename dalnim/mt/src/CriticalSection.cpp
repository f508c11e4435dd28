#include <dalnim/dalbase.hpp>

#include <dalnim/mt/CriticalSection.hpp>

#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

namespace com::kor::dal::nim::mt {

namespace {

/** Constructs the track only now that a call has failed: success costs nothing but the call. */
[[noreturn]] void raise(qv_err_t status, const char* scope, unsigned int line)
{
    const sys::StackTrack track(scope, CriticalSection::CLASS_NAME, NAMESPACE_NAME, line);
    throw sys::system_error(status);
}

inline void check(qv_err_t status, const char* scope, unsigned int line)
{
    if (status != 0) {
        raise(status, scope, line);
    }
}

}

CriticalSection::CriticalSection()
{
    check(qv_si_mutex_init(&_mu, nullptr), "CriticalSection()", __LINE__);
}

CriticalSection::CriticalSection(bool recursive)
{
    check(qv_si_mutex_init(&_mu, recursive ? "R" : "r"), "CriticalSection()", __LINE__);
}

CriticalSection::~CriticalSection()
{
    qv_si_mutex_destroy(&_mu);
}

const CriticalSection& CriticalSection::acquire() const
{
    check(qv_si_mutex_lock(&_mu), "acquire()", __LINE__);
    return *this;
}

void CriticalSection::release() const
{
    check(qv_si_mutex_unlock(&_mu), "release()", __LINE__);
}

bool CriticalSection::release(const std::nothrow_t&) const noexcept
{
    return qv_si_mutex_unlock(&_mu) == 0;
}

bool CriticalSection::request() const noexcept
{
    return qv_si_mutex_trylock(&_mu) == 0;
}

}
