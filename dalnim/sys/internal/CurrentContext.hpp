#ifndef DALNIM_SYS_INTERNAL_CURRENTCONTEXT_HPP
#define DALNIM_SYS_INTERNAL_CURRENTCONTEXT_HPP

#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/ContainerContext.hpp>

namespace com::kor::dal::nim::sys::internal {

/** The container context of one thread; it stands in the thread's ThreadState. */
class DALNIM_API CurrentContext : public type::ContainerContext
{
public:
    static constexpr const char CLASS_NAME[] = "CurrentContext";

    CurrentContext();
    /** A duplicate, by the attributes of the keys. */
    CurrentContext(const type::ContainerContext& ref);
    /** A duplicate, by the attributes of the keys. */
    CurrentContext(const CurrentContext& ref);
    /** @name Assignment */
    /** @{ */
    /** Replaces the content by a duplicate, as type::ContainerContext does. */
    CurrentContext& operator=(const CurrentContext& ref);
    CurrentContext& operator=(const type::ContainerContext& ref);
    /** @} */

    /** 0: it is filed nowhere. */
    UInt32_t key() const override;

private:
    ~CurrentContext() noexcept(false) override;
};

}

#endif
