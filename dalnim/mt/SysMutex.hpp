#ifndef DALNIM_MT_SYSMUTEX_HPP
#define DALNIM_MT_SYSMUTEX_HPP

#include <dalnim/mt/MutexOps.hpp>
#include <qv/pmx/thread_safety.h>

class RX_Mutex;

namespace com::kor::dal::nim::mt {

/**
 * A mutex, which CondSem and Queue use. It is not recursive and must be released by the thread that acquired
 * it: a release by another thread fails with 1 (EPERM), a second acquisition with 35 (EDEADLK).
 *
 * Thread safety: any thread may call any operation.
 */
class DALNIM_API SysMutex : public MutexOps
{
public:
    static constexpr const char CLASS_NAME[] = "SysMutex";

    /**
     * @throws sys::system_error  if the system cannot create the mutex, with its error number
     * @throws std::bad_alloc     if memory runs out
     */
    SysMutex();
    /** Terminates the process if the mutex is locked. */
    ~SysMutex() override;

    SysMutex(const SysMutex&) = delete;
    SysMutex& operator=(const SysMutex&) = delete;

    const MutexOps& acquire() const override DALNIM_ACQUIRE() DALNIM_RETURN_CAPABILITY(this);
    void release() const override DALNIM_RELEASE();
    bool release(const std::nothrow_t&) const noexcept override DALNIM_RELEASE();
    /** Returns false also on failure. */
    bool request() const override DALNIM_TRY_ACQUIRE(true);

private:
    void* os_mux() const override;

    RX_Mutex* _mu;
};

}

#endif
