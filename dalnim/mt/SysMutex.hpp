#ifndef DALNIM_MT_SYSMUTEX_HPP
#define DALNIM_MT_SYSMUTEX_HPP

#include <dalnim/mt/MutexOps.hpp>

class RX_Mutex;

namespace com::kor::dal::nim::mt {

/**
 * The mutex behind every CondSem and Queue. It may be used from any number of threads, is not
 * recursive, and must be released by the thread that acquired it: a wrong release is reported.
 */
class DALNIM_API SysMutex : public MutexOps
{
public:
    static constexpr const char CLASS_NAME[] = "SysMutex";

    /** Throws sys::system_error with the cause, or `std::bad_alloc`. */
    SysMutex();
    /** Destroying a locked mutex ends the process. */
    ~SysMutex() override;

    SysMutex(const SysMutex&) = delete;
    SysMutex& operator=(const SysMutex&) = delete;

    const MutexOps& acquire() const override;
    void release() const override;
    bool release(const std::nothrow_t&) const noexcept override;
    /** False also for a failure. */
    bool request() const override;

private:
    void* os_mux() const override;

    RX_Mutex* _mu;
};

}

#endif
