#ifndef DALNIM_SYS_INTERNAL_CURRENTCONTEXT_HPP
#define DALNIM_SYS_INTERNAL_CURRENTCONTEXT_HPP

#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/ContainerContext.hpp>

namespace com::kor::dal::nim::sys::internal {

/** The container context of a thread, which its ThreadState owns. */
class DALNIM_API CurrentContext : public type::ContainerContext
{
public:
    static constexpr const char CLASS_NAME[] = "CurrentContext";

    CurrentContext();
    /** @name Copying */
    /** @{ */
    /** Duplicates the entries as the attributes of their keys require. */
    CurrentContext(const type::ContainerContext& ref);
    CurrentContext(const CurrentContext& ref);
    /** @} */
    /** @name Assignment */
    /** @{ */
    /** Replaces the entries with duplicates. See type::ContainerContext. */
    CurrentContext& operator=(const CurrentContext& ref);
    CurrentContext& operator=(const type::ContainerContext& ref);
    /** @} */

    /** Returns 0, since this context is stored under no key. */
    UInt32_t key() const override;

private:
    ~CurrentContext() noexcept(false) override;
};

}

#endif
