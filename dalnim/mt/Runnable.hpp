#ifndef DALNIM_MT_RUNNABLE_HPP
#define DALNIM_MT_RUNNABLE_HPP

#include <dalnim/type/Object.hpp>

namespace com::kor::dal::nim::mt {

/** The interface of work that a Task, a Thread or a ThreadPool can run. */
class DALNIM_API Runnable : public virtual type::Object
{
public:
    ~Runnable() noexcept(false) override;
    /** Does the work. Exceptions are handled by the caller: see Task, Thread and ThreadPool. */
    virtual void run() = 0;

protected:
    Runnable() noexcept;
    /** @name Copying */
    /** @{ */
    /** Does nothing: there are no data. */
    Runnable(const Runnable& ref) noexcept;
    Runnable& operator=(const Runnable& ref) noexcept;
    /** @} */
};

}

#endif
