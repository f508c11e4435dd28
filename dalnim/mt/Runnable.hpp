#ifndef DALNIM_MT_RUNNABLE_HPP
#define DALNIM_MT_RUNNABLE_HPP

#include <dalnim/type/Object.hpp>

namespace com::kor::dal::nim::mt {

/** Anything that can be run. */
class DALNIM_API Runnable : public virtual type::Object
{
public:
    ~Runnable() noexcept(false) override;
    /** Does the work. What it throws is for whoever runs it: see Task, Thread and ThreadPool. */
    virtual void run() = 0;

protected:
    Runnable() noexcept;
    /** @name Copying */
    /** @{ */
    /** There is nothing to copy. */
    Runnable(const Runnable& ref) noexcept;
    Runnable& operator=(const Runnable& ref) noexcept;
    /** @} */
};

}

#endif
